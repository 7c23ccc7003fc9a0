// Entry point of the dialog GUI tests: prepares the simulated cards, starts
// the toolkit without a main loop of its own and runs the tests in between.
#include "tests/dialogs/GuiSupport.h"
#include "token/acPKCS11.h"

#include <wx/app.h>
#include <wx/image.h>
#include <wx/init.h>
#include <wx/toplevel.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

// Token-layer errors go into the test output, next to the failure they explain.
void PrintTokenError(const char* line) { fprintf(stderr, "token: %s\n", line); }

class DialogTestApp : public wxApp {
public:
    bool OnInit() override {
        wxInitAllImageHandlers();
        return true;
    }
};

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // Listing the tests needs neither a display nor the cards.
    if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();

    DialogTests::PrepareEnvironment();
    // No accessibility bus under Xvfb: its client only leaks D-Bus buffers.
    setenv("NO_AT_BRIDGE", "1", 1);
    Korvex::acPKCS11::SetErrorLoggingFunc(PrintTokenError);
    wxApp::SetInstance(new DialogTestApp());
    if (!wxEntryStart(argc, argv) || !wxTheApp->CallOnInit()) {
        fprintf(stderr, "cannot start the toolkit (no display?)\n");
        return 1;
    }
    const int result = RUN_ALL_TESTS();
    // Windows still open (the shared main window) are deleted by the
    // toolkit's clean-up.
    for (wxWindow* window : wxTopLevelWindows) window->Destroy();
    wxTheApp->ProcessPendingEvents();
    wxTheApp->OnExit();
    wxEntryCleanup();
    return result;
}
