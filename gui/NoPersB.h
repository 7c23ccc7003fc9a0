// Dialog shown when a card carries no identity link: explains what it is and
// offers to start the external program that writes one onto the card.
#pragma once

#include <wx/dialog.h>

#include <string>

class WriterRun;

class NoPersB : public wxDialog {
public:
    enum { ID_WRITE_PERSB = 5465, ID_CLOSE = 5466 };

    NoPersB(wxWindow* parent, wxWindowID id, const wxString& title = wxT("Keine Personenbindung"),
            const wxPoint& pos = wxDefaultPosition, const wxSize& size = wxDefaultSize,
            long style = wxDEFAULT_DIALOG_STYLE);

    virtual void evt_write_persb(wxCommandEvent& event);
    virtual void evt_close_dlg(wxCommandEvent& event);

    // Command line that starts the identity-link writer: the program path in
    // double quotes, then the option -z.
    static wxString WriterCommandLine();

    // The writer started by evt_write_persb, for the caller to wait for and
    // show the result of (the caller owns it then); null when none started.
    WriterRun* TakeWriterRun();
    ~NoPersB() override;

private:
    void do_layout();

    WriterRun* m_writer = nullptr;

    wxDECLARE_EVENT_TABLE();
};
