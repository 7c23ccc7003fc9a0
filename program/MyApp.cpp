// Application object and program entry.
#include "program/MyApp.h"

#include "app/AppStartup.h"
#include "app/VessaCardsLogger.h"
#include "program/StartupTiming.h"
#include "gui/MainFrame.h"

#include <wx/cmdline.h>
#include <wx/image.h>
#include <wx/log.h>
#include <wx/utils.h>

MyApp::MyApp()
{
    VessaCards::BootstrapProcess();
}

MyApp::~MyApp()
{
    VessaCards::TeardownProcess();
}

bool MyApp::OnInit()
{
    if (!wxApp::OnInit())
        return false;
    SetAppName("VessaClient");
    SetVendorName("Korvex GmbH");
    wxInitAllImageHandlers();

    const wxString name = wxString::Format("VessaCards-%s", wxGetUserId());
    bool guarded = false;
    {
        // The lock lives in the home directory. When that cannot hold it
        // (HOME a file, a full or read-only disk) the toolkit would stop the
        // start with an error box; the program runs unguarded instead.
        wxLogNull quiet;
        guarded = m_InstanceChecker.Create(name, wxEmptyString);
    }
    if (!guarded) {
        AppLog()->LogError("single-instance lock not created in the home directory; running without it");
        return true;
    }
    return !m_InstanceChecker.IsAnotherRunning();
}

int MyApp::OnRun()
{
    m_MainFrame = new MainFrame(nullptr);
    m_MainFrame->Show(true);
    VessaCards::InstallStartupTiming(m_MainFrame);
    return wxApp::OnRun();
}

int MyApp::OnExit()
{
    return 0;
}

void MyApp::OnInitCmdLine(wxCmdLineParser& parser)
{
    // No options and no parameters: any argument is a parse error.
    static const wxCmdLineEntryDesc noArguments[] = {
        {wxCMD_LINE_NONE, nullptr, nullptr, nullptr, wxCMD_LINE_VAL_NONE, 0}};
    parser.SetDesc(noArguments);
    parser.SetSwitchChars("-");
}

bool MyApp::OnCmdLineParsed(wxCmdLineParser& /*parser*/)
{
    // The toolkit's own help and verbose switches are deliberately not handled.
    return true;
}

wxIMPLEMENT_APP(MyApp);
