// Support for the main-window tests: a private card set on the simulated
// module, a scripted PIN dialogue, the module's control functions, event
// pumping, and a fixture that brings up the real window and waits for its
// first card-list refresh.
#pragma once

#include "gui/MainFrame.h"

#include <p11-kit/pkcs11.h>

#include <wx/modalhook.h>

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

class wxDialog;

namespace WindowTests {

// Cards of the test card set (reader = slot id).
struct TestCard {
    const char* id;
    const char* serial;
    const char* holder; // UTF-8; empty for the unpersonalised card
    int type;           // TokenType
    const char* typeName;
};
extern const TestCard kJohann; // reader 0, ACOS-A03
extern const TestCard kMaria;  // reader 1, ACOS-A04
extern const TestCard kErika;  // reader 2, e-Card G2
extern const TestCard kBlank;  // reader 3, ACOS-A05, not personalised
extern const TestCard kLukas;  // spare, e-Card G3A
extern const TestCard kSophie; // spare, e-Card G3B
const CK_SLOT_ID kEmptyReader = 4;

// Process-wide preparation before the toolkit starts: scratch folder, shared
// key cache, PIN dialogue program, a bin folder first on PATH.
void PrepareProcess();
const std::string& ScratchDir();
std::string SourceDir();
std::string BinaryDir();
// Uses the test card set (true) or the module's built-in demo set (false).
void UseTestCardSet(bool testSet);

// Answers of the scripted PIN dialogue, consumed in order; a used-up script
// cancels. Also clears the dialogue log.
void SetPinAnswers(std::initializer_list<std::string> answers);
// Files the stand-in certificate viewer was given, oldest first.
std::vector<std::string> ViewedCertificates();
// DER of a card's certificate as the simulator issued it.
std::vector<unsigned char> IssuedCertificate(const TestCard& card, bool signature);
std::vector<unsigned char> ReadBytes(const std::string& path);

// Lines of the dialogue log ("SETPROMPT Aktuelle PIN:", ...).
std::vector<std::string> PinDialogLog();

// The simulated module's control functions (the module must be loaded).
CK_RV SimInsertCard(CK_SLOT_ID slot, const char* card);
CK_RV SimRemoveCard(CK_SLOT_ID slot);
CK_RV SimSetFault(const char* function, const char* serial, CK_RV rv, int times);
void SimClearFaults();
// Factory PINs and counters of one card.
CK_RV SimResetCard(const char* serial);
// Sleep of every card call, in milliseconds.
void SimSetLatency(unsigned long callMs);
int SimPinTries(const char* serial, int pin);
int SimPukTries(const char* serial, int pin);
unsigned long SimPinDialogCount();

// Runs the pending toolkit work for about `ms` milliseconds.
void Pump(int ms);
// Pumps until `done` holds or `seconds` pass; returns done().
bool PumpUntil(const std::function<bool()>& done, double seconds = 20.0);

// Every colour (RGB) of the pixels that are opaque in the XPM picture and in
// the bitmap agree.
bool BitmapShowsPicture(const wxBitmap& bitmap, const char* const* xpm);

// Catches modal dialogs: records their type and title and closes them at
// once with wxID_CANCEL instead of showing them.
class ModalRecorder : public wxModalDialogHook {
public:
    ModalRecorder() { Register(); }
    ~ModalRecorder() override { Unregister(); }

    struct Seen {
        std::string type;
        wxString title;
    };
    std::vector<Seen> seen;
    // Runs on the dialog before it is dismissed.
    std::function<void(wxDialog*)> inspect;

protected:
    int Enter(wxDialog* dialog) override;
    void Exit(wxDialog*) override {}
};

// Brings up the real main window on the simulator and waits for the first
// refresh; destroys it afterwards.
class MainWindowTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Whether to use the test card set; the demo set otherwise.
    virtual bool UsesTestCardSet() const { return true; }

    // Clicks the reload button and waits for the refresh to finish.
    void Reload();
    void WaitForRefresh();
    // Card numbers of the rows, top to bottom.
    std::vector<std::string> RowNumbers() const;
    std::string RowText(long row, int column) const;
    long SelectedRow() const;
    long RowOf(const TestCard& card) const;
    // Selects a row as a click would (the selection rules run).
    void SelectRow(long row);
    void SelectCard(const TestCard& card) { SelectRow(RowOf(card)); }
    bool IsEnabled(int id) const;
    // Sends a button click of `id` to the window.
    void Click(int id);
    // Sends a popup-menu choice to the window.
    void ChoosePopupItem(int id);
    wxString StatusText() const;
    bool StatusShown() const;
    bool StatusIconIsError() const;
    bool StatusIconIsSuccess() const;

    MainFrame* frame = nullptr;
    // Refreshes whose rows the window has shown.
    int refreshes = 0;

private:
    int m_expectedRefreshes = 0;
};

} // namespace WindowTests
