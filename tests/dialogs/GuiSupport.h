// Toolkit side of the dialog tests: one shared main window whose token object
// the tests use, and the fixtures around it. Event pumping, dialogs and the
// layout check come from the shared fixture library.
#pragma once

#include "tests/dialogs/DialogCards.h"
#include "tests/support/GuiKit.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

class MainFrame;
namespace Korvex {
class acPKCS11;
}

namespace DialogTests {

// The shared main window, created on first use with its card list loaded.
MainFrame* Frame();
Korvex::acPKCS11* Token();

// Selects the main window's row of the card with this serial.
bool SelectCard(const Card& card);

// Reads one data object of a card through the token layer.
std::vector<unsigned char> ReadObject(const Card& card, const std::string& label);

// Base of the dialog fixtures: the shared window has loaded the module and
// the card list before a test sets any fault, every card starts in factory
// state with no PIN answers queued, and is reset again afterwards.
class CardDialogTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// The same for tests that open one dialog of type Dialog at a time in
// `dialog`; it is destroyed after the test.
template <class Dialog>
class OpenDialogTest : public CardDialogTest {
protected:
    void TearDown() override {
        if (dialog) dialog->Destroy();
        CardDialogTest::TearDown();
    }

    Dialog* dialog = nullptr;
};

} // namespace DialogTests
