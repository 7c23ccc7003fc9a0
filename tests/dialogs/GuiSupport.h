// Toolkit side of the dialog tests: the test application, one shared main
// window whose token object the tests use, and event pumping helpers.
#pragma once

#include "tests/dialogs/SimEnvironment.h"

#include <wx/string.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

class MainFrame;
class wxWindow;
namespace Korvex {
class acPKCS11;
}

namespace DialogTests {

// The shared main window, created on first use with its card list loaded.
MainFrame* Frame();
Korvex::acPKCS11* Token();

// Runs the event loop's pending work for about `ms` milliseconds.
void Pump(int ms);
// Pumps until `done` holds or `seconds` pass; returns `done()`.
bool PumpUntil(const std::function<bool()>& done, double seconds);

// Selects the main window's row of the card with this serial.
bool SelectCard(const Card& card);

// Reads one data object of a card through the token layer.
std::vector<unsigned char> ReadObject(const Card& card, const std::string& label);

// Saves the window's client area as PNG when KORVEX_SCREENSHOT_DIR is set.
void SaveScreenshot(wxWindow* window, const std::string& name);

wxString Utf8(const char* text);

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
