// A run of the identity-link writer started from the missing-identity-link
// dialog: the program's exit status and what it printed, so the window can
// show the result once it has ended.
#pragma once

#include <wx/process.h>

class WriterRun : public wxProcess {
public:
    // Starts `commandLine` asynchronously; null when it could not start.
    static WriterRun* Start(const wxString& commandLine);

    bool Finished() const { return m_finished; }
    int ExitStatus() const { return m_status; }
    // Standard output and standard error, in that order.
    const wxString& Output() const { return m_output; }
    // For an owner that stops caring: the run deletes itself when it ends.
    void Abandon();

private:
    WriterRun() : wxProcess(wxPROCESS_REDIRECT) {}
    void OnTerminate(int pid, int status) override;

    bool m_finished = false;
    bool m_abandoned = false;
    int m_status = -1;
    wxString m_output;
};
