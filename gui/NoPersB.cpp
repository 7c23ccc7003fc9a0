// Missing-identity-link dialog: the explanation texts and the start of the
// external program that writes an identity link onto the card.
#include "gui/NoPersB.h"

#include "gui/Translate.h"
#include "gui/WriterRun.h"

#include "base/Config.h"
#include "base/FileAndDirectory.h"

#include <wx/button.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/utils.h>

namespace {

// Setting that names the directory of the identity-link writer.
constexpr unsigned kWriterDirectorySetting = 26;
const char kWriterProgram[] = "VessaPlus";


} // namespace

wxBEGIN_EVENT_TABLE(NoPersB, wxDialog)
    EVT_BUTTON(NoPersB::ID_WRITE_PERSB, NoPersB::evt_write_persb)
    EVT_BUTTON(NoPersB::ID_CLOSE, NoPersB::evt_close_dlg)
wxEND_EVENT_TABLE()

NoPersB::NoPersB(wxWindow* parent, wxWindowID id, const wxString& title, const wxPoint& pos,
                 const wxSize& size, long style)
    : wxDialog(parent, id, title, pos, size, style) {
    do_layout();
}

void NoPersB::do_layout() {
    wxStaticText* heading = new wxStaticText(
        this, wxID_ANY, Tr("Sie haben noch keine \nZMR Stammzahl (Personenbindung)\nauf Ihrer Karte."));
    wxFont headingFont = heading->GetFont();
    headingFont.SetPointSize(headingFont.GetPointSize() + 4);
    headingFont.SetWeight(wxFONTWEIGHT_BOLD);
    heading->SetFont(headingFont);

    wxStaticText* explanation = new wxStaticText(
        this, wxID_ANY,
        Tr("Die Personenbindung stellt eine Verbindung zwischen Ihrem \nqualifizierten Zertifikat und "
           "Ihrer Stammzahl her.\nDa Sie im Zertifikat nur durch Ihren Namen identifiziert sind, "
           "\nwären sonst Verwechslungen zwischen mehreren Personen möglich."));
    wxStaticText* hint = new wxStaticText(
        this, wxID_ANY,
        Tr("Zum Aufbringen der Personenbindung auf Ihre Karte muss ein \nexternes Program "
           "gestartet werden."));
    wxFont hintFont = hint->GetFont();
    hintFont.SetStyle(wxFONTSTYLE_ITALIC);
    hint->SetFont(hintFont);

    wxButton* write = new wxButton(this, ID_WRITE_PERSB, Tr("Personenbindung aufbringen"));
    wxButton* close = new wxButton(this, ID_CLOSE, Tr("Schließen"));
    write->SetDefault();
    SetEscapeId(ID_CLOSE);

    wxBoxSizer* top = new wxBoxSizer(wxVERTICAL);
    top->Add(heading, 0, wxALL, 12);
    top->Add(explanation, 0, wxLEFT | wxRIGHT | wxBOTTOM, 12);
    top->Add(hint, 0, wxLEFT | wxRIGHT | wxBOTTOM, 12);
    wxBoxSizer* buttons = new wxBoxSizer(wxHORIZONTAL);
    buttons->AddStretchSpacer();
    buttons->Add(write, 0, wxRIGHT, 8);
    buttons->Add(close, 0);
    top->Add(buttons, 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 12);
    SetSizer(top);
    top->Fit(this);
    Layout();
    CentreOnParent();
}

wxString NoPersB::WriterCommandLine() {
    // With the setting missing the bare program name is left, which the
    // search path then resolves.
    std::string directory;
    if (Korvex::Config* config = Korvex::Config::GetHandle(0))
        config->GetString(kWriterDirectorySetting, directory);
    const std::string program = Korvex::CombinePaths(directory, kWriterProgram);
    return wxString::Format(wxT("\"%s\" -z"), wxString::FromUTF8(program));
}

NoPersB::~NoPersB() {
    if (m_writer != nullptr) m_writer->Abandon();
}

WriterRun* NoPersB::TakeWriterRun() {
    WriterRun* run = m_writer;
    m_writer = nullptr;
    return run;
}

void NoPersB::evt_write_persb(wxCommandEvent&) {
    // Whether the writer starts is not reported here; the caller that takes
    // the run shows how it ended.
    if (m_writer != nullptr) m_writer->Abandon();
    m_writer = WriterRun::Start(WriterCommandLine());
    if (IsModal())
        EndModal(1);
    else
        Hide();
}

void NoPersB::evt_close_dlg(wxCommandEvent&) {
    if (IsModal())
        EndModal(0);
    else
        Hide();
}
