// Entry point of the GUI tests: prepares the simulated cards, starts
// the toolkit with an active event loop that the tests pump, and turns the
// toolkit's assertions into test failures.
#include "tests/support/GuiKit.h"

#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/image.h>
#include <wx/init.h>
#include <wx/toplevel.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

class GuiTestApp : public wxApp {
public:
    bool OnInit() override
    {
        SetAppName("VessaClient");
        wxInitAllImageHandlers();
        return true;
    }
};

void FailOnAssert(const wxString& file, int line, const wxString& func, const wxString& cond,
                  const wxString& msg)
{
    ADD_FAILURE() << "toolkit assertion " << cond << " (" << msg << ") in " << func << " at "
                  << file << ":" << line;
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    // Listing the tests needs neither a display nor the cards.
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();

    PrepareGuiTestProcess();
    // Xvfb has no accessibility bus; its client would only leak D-Bus buffers.
    setenv("NO_AT_BRIDGE", "1", 1);
    wxApp::SetInstance(new GuiTestApp());
    if (!wxEntryStart(argc, argv) || !wxTheApp->CallOnInit()) {
        std::fprintf(stderr, "cannot start the toolkit (no display?)\n");
        return 1;
    }
    wxSetAssertHandler(FailOnAssert);
    int result = 0;
    {
        wxGUIEventLoop loop;
        wxEventLoopActivator active(&loop);
        result = RUN_ALL_TESTS();
        for (wxWindow* window : wxTopLevelWindows)
            window->Destroy();
        TestSupport::Pump(20);
    }
    wxTheApp->OnExit();
    wxEntryCleanup();
    return result;
}
