// The "Diagnose" window: the diagnostics report (DiagnosticsText.h) read-only,
// with "Kopieren" to the clipboard and "Speichern…" to a text file.
#pragma once

#include <wx/dialog.h>

class wxTextCtrl;

class DiagnoseDialog : public wxDialog {
public:
    DiagnoseDialog(wxWindow* parent, const wxString& report);

    const wxString& GetReport() const { return m_report; }
    // Puts the report on the clipboard; false when the clipboard is busy.
    bool CopyToClipboard();
    // Writes the report as UTF-8 text; false (and says so) when that fails.
    bool SaveTo(const wxString& path);

private:
    void OnCopy(wxCommandEvent& event);
    void OnSave(wxCommandEvent& event);

    wxString m_report;
    wxTextCtrl* m_text = nullptr;
};
