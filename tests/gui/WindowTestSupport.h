// Main-window tests on the shared fixture library: their card set and a
// fixture that brings up the real window and waits for its first card-list
// refresh.
#pragma once

#include "gui/MainFrame.h"

#include <p11-kit/pkcs11.h>

#include "tests/support/GuiKit.h"
#include "tests/support/SimControls.h"
#include "tests/support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace WindowTests {

using namespace TestSupport;

// Cards of the test card set (reader = slot id).
struct TestCard {
    const char* id;
    const char* serial;
    int type;           // TokenType
    const char* typeName;
};
extern const TestCard kJohann; // reader 0, ACOS-A03
extern const TestCard kMaria;  // reader 1, ACOS-A04
extern const TestCard kErika;  // reader 2, e-Card G2
extern const TestCard kBlank;  // reader 3, ACOS-A05, not personalised
extern const TestCard kLukas;  // spare, e-Card G3A
const CK_SLOT_ID kEmptyReader = 4;

// Files the stand-in certificate viewer was given, oldest first.
std::vector<std::string> ViewedCertificates();

// Brings up the real main window on the simulator and waits for the first
// refresh; destroys it afterwards.
class MainWindowTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    virtual bool UsesTestCardSet() const { return true; }

    // Clicks the reload button and waits for the refresh to finish.
    void Reload();
    // Waits for the next refresh to finish (one must have started or start).
    void WaitForRefresh();
    std::vector<std::string> RowNumbers() const;
    std::string RowText(long row, int column) const;
    long SelectedRow() const;
    long RowOf(const TestCard& card) const;
    // Selects a row as a click would (the selection rules run).
    void SelectCard(const TestCard& card) { SelectRow(RowOf(card)); }
    void SelectRow(long row);
    bool IsEnabled(int id) const;
    // Clicks a control as the user would and waits for a command's card work.
    void Click(int id);
    void ClickWithoutWaiting(int id);
    void WaitForCardWork();
    void ChoosePopupItem(int id);
    wxString StatusText() const;
    bool StatusShown() const;
    // The status line shows `text` with the red (error) or green icon.
    void ExpectStatus(const char* text, bool isError) const;

    MainFrame* frame = nullptr;
    std::string cardSet; // a card set of the test's own for SetUp, when not empty
    int refreshes = 0; // refreshes whose rows the window has shown
};

} // namespace WindowTests
