// The application object: brings the process up (configuration, paths,
// language, log), refuses a second copy for the same user and creates the
// main window.
#pragma once

#include <wx/app.h>
#include <wx/snglinst.h>

class MainFrame;
class wxCmdLineParser;

class MyApp : public wxApp {
public:
    MyApp();
    ~MyApp() override;

    bool OnInit() override;
    int OnRun() override;
    int OnExit() override;
    void OnInitCmdLine(wxCmdLineParser& parser) override;
    bool OnCmdLineParsed(wxCmdLineParser& parser) override;

private:
    wxSingleInstanceChecker m_InstanceChecker;
    MainFrame* m_MainFrame = nullptr; // owned by the toolkit once shown
};
