// The diagnostics window; see DiagnoseDialog.h.
#include "gui/DiagnoseDialog.h"

#include "gui/Accessibility.h"
#include "gui/Translate.h"

#include <wx/button.h>
#include <wx/clipbrd.h>
#include <wx/dataobj.h>
#include <wx/ffile.h>
#include <wx/filedlg.h>
#include <wx/log.h>
#include <wx/msgdlg.h>
#include <wx/sizer.h>
#include <wx/textctrl.h>

namespace {
enum { ID_COPY = wxID_HIGHEST + 5480, ID_SAVE };
}

DiagnoseDialog::DiagnoseDialog(wxWindow* parent, const wxString& report)
    : wxDialog(parent, wxID_ANY, Tr("Diagnose"), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      m_report(report)
{
    m_text = new wxTextCtrl(this, wxID_ANY, report, wxDefaultPosition, wxSize(620, 420),
                            wxTE_MULTILINE | wxTE_READONLY | wxTE_DONTWRAP);
    m_text->SetFont(wxFont(10, wxFONTFAMILY_TELETYPE, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL));
    // The labels carry their mnemonics; the texts in the catalogue do not.
    wxButton* copy = new wxButton(this, ID_COPY, "&" + Tr("Kopieren"));
    wxButton* save = new wxButton(this, ID_SAVE, "&" + Tr("Speichern…"));
    wxButton* close = new wxButton(this, wxID_CLOSE, Tr("Schließen"));
    Accessibility::SetName(m_text, Tr("Diagnose"));
    copy->SetDefault();
    SetEscapeId(wxID_CLOSE);

    wxBoxSizer* buttons = new wxBoxSizer(wxHORIZONTAL);
    buttons->Add(copy, 0, wxRIGHT, 8);
    buttons->Add(save, 0, wxRIGHT, 8);
    buttons->AddStretchSpacer();
    buttons->Add(close, 0);
    wxBoxSizer* top = new wxBoxSizer(wxVERTICAL);
    top->Add(m_text, 1, wxEXPAND | wxALL, 8);
    top->Add(buttons, 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 8);
    SetSizerAndFit(top);
    CentreOnParent();

    Bind(wxEVT_BUTTON, &DiagnoseDialog::OnCopy, this, ID_COPY);
    Bind(wxEVT_BUTTON, &DiagnoseDialog::OnSave, this, ID_SAVE);
    Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { EndModal(wxID_CLOSE); }, wxID_CLOSE);
    // The report is read from its first line.
    m_text->SetInsertionPoint(0);
    m_text->ShowPosition(0);
    m_text->SetFocus();
}

bool DiagnoseDialog::CopyToClipboard()
{
    if (!wxTheClipboard->Open())
        return false;
    wxTheClipboard->SetData(new wxTextDataObject(m_report));
    wxTheClipboard->Close();
    return true;
}

bool DiagnoseDialog::SaveTo(const wxString& path)
{
    wxFFile file;
    {
        wxLogNull quiet; // the failure is said below, in the program's words
        if (file.Open(path, "w") && file.Write(m_report, wxConvUTF8) && file.Close())
            return true;
    }
    wxMessageBox(wxString::Format(Tr("Die Datei %s konnte nicht geschrieben werden."), path), Tr("Diagnose"),
                 wxOK | wxICON_ERROR, this);
    return false;
}

void DiagnoseDialog::OnCopy(wxCommandEvent&)
{
    CopyToClipboard();
}

void DiagnoseDialog::OnSave(wxCommandEvent&)
{
    wxFileDialog chooser(this, Tr("Diagnose speichern"), wxEmptyString, "VessaCards-Diagnose.txt",
                         Tr("Textdateien (*.txt)|*.txt"), wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    if (chooser.ShowModal() == wxID_OK)
        SaveTo(chooser.GetPath());
}
