// The wait box: a caption and one large line of text.
#include "gui/PleaseWait.h"

#include "gui/Translate.h"

#include <wx/font.h>
#include <wx/intl.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

PleaseWait::PleaseWait(wxWindow* parent)
    : wxDialog(parent, wxID_ANY, Tr("Bitte warten"),
               wxDefaultPosition, wxSize(220, 100), wxCAPTION)
{
    m_Label = new wxStaticText(this, wxID_ANY,
                               Tr("Bitte warten..."),
                               wxDefaultPosition, wxDefaultSize, wxALIGN_CENTRE_HORIZONTAL);
    m_Label->SetFont(wxFont(14, wxFONTFAMILY_DEFAULT, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL));

    wxBoxSizer* sizer = new wxBoxSizer(wxVERTICAL);
    sizer->AddStretchSpacer();
    sizer->Add(m_Label, 0, wxALIGN_CENTER_HORIZONTAL | wxALL, 8);
    sizer->AddStretchSpacer();
    SetSizer(sizer);
    SetSize(wxSize(220, 100));
}
