// Small non-modal box shown while the card list is being read.
#pragma once

#include <wx/dialog.h>

class wxStaticText;

class PleaseWait : public wxDialog {
public:
    explicit PleaseWait(wxWindow* parent);

    wxStaticText* GetMessageText() const { return m_Label; }

private:
    wxStaticText* m_Label;
};
