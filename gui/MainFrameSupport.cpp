// Main window: what a card holder sends to support and the keyboard's way in.
// The popup entries after the defined ones (certificate export, "Diagnose"),
// the popup on the menu key and Shift+F10, focus after a refresh, and the
// names a screen reader gives the window's controls.
#include "gui/MainFrame.h"

#include "app/VessaCardsLogger.h"
#include "crypto/CertificatePem.h"
#include "gui/Accessibility.h"
#include "gui/CardList.h"
#include "gui/DiagnoseDialog.h"
#include "gui/DiagnosticsText.h"
#include "gui/Translate.h"
#include "token/ModuleDiagnostics.h"
#include "token/acPKCS11.h"

#include <wx/bmpbuttn.h>
#include <wx/button.h>
#include <wx/filedlg.h>
#include <wx/filename.h>
#include <wx/menu.h>
#include <wx/statbmp.h>
#include <wx/statbox.h>
#include <wx/stattext.h>

#include <fstream>
#include <memory>

void MainFrame::SetUpAccessibility()
{
    Accessibility::SetName(button_reload, Tr("Kartenliste neu laden"));
    Accessibility::SetName(bitmap_banner, Tr("Kartenverwaltung"));
    Accessibility::SetName(list_ctrl_cards, Tr("Karten"));
    // Buttons of the same label in two boxes differ by their box.
    const struct {
        wxStaticBox* box;
        wxWindow* controls[5];
    } groups[] = {
        {sizer_sig_staticbox,
         {button_sig_change_pin, button_sig_puk, button_sig_show_cert, button_sig_test,
          label_pin_state[Korvex::APPL_SIGNATURE]}},
        {sizer_enc_staticbox,
         {button_enc_change_pin, button_enc_puk, button_enc_show, button_enc_test,
          label_pin_state[Korvex::APPL_ENCRYPTION]}},
        {sizer_pers_staticbox,
         {button_pers_change, button_pers_puk, button_pers_show, label_pin_state[Korvex::APPL_IDENTITY_LINK],
          nullptr}},
    };
    for (const auto& group : groups)
        for (wxWindow* control : group.controls)
            if (wxButton* button = dynamic_cast<wxButton*>(control))
                Accessibility::SetName(button, button->GetLabelText(), group.box->GetLabelText());
            else if (control != nullptr)
                // The PIN line's name is its text; what it is about, its box.
                Accessibility::SetName(control, wxString(), group.box->GetLabelText());
    Bind(wxEVT_CHAR_HOOK, &MainFrame::OnSupportKey, this);
}

void MainFrame::OnSupportKey(wxKeyEvent& event)
{
    const bool menuKey = event.GetKeyCode() == WXK_MENU || event.GetKeyCode() == WXK_WINDOWS_MENU;
    const bool shiftF10 = event.GetKeyCode() == WXK_F10 && event.GetModifiers() == wxMOD_SHIFT;
    if ((menuKey || shiftF10) && list_ctrl_cards->IsEnabled() && wxWindow::FindFocus() == list_ctrl_cards) {
        ShowPopupFromKeyboard();
        return;
    }
    event.Skip();
}

void MainFrame::ShowPopupFromKeyboard()
{
    wxMenu* menu = CreateSelectedCardMenu();
    menu->Bind(wxEVT_MENU, &MainFrame::evt_OnPopupClick, this);
    // Near the list's top left corner, where the selected card's row starts
    // to be visible whatever the list scrolled to.
    wxWindow* list = list_ctrl_cards;
    PopupMenu(menu, ScreenToClient(list->ClientToScreen(wxPoint(24, 24))));
    delete menu;
}

void MainFrame::FocusSelectedCard()
{
    const bool hadFocus = m_FocusBeforeLock != nullptr || IsActive();
    m_FocusBeforeLock = nullptr;
    if (hadFocus && list_ctrl_cards->IsEnabled()) {
        Raise();
        list_ctrl_cards->SetFocus();
    }
}

void MainFrame::RememberKeyboardFocus()
{
    wxWindow* focus = FindFocus();
    m_FocusBeforeLock = focus != nullptr && wxGetTopLevelParent(focus) == this ? focus : nullptr;
}

void MainFrame::RestoreKeyboardFocus()
{
    wxWindow* focus = m_FocusBeforeLock;
    m_FocusBeforeLock = nullptr;
    if (focus == nullptr || IsClosing())
        return;
    // A button the card no longer allows passes the focus to the list.
    if (!focus->IsEnabled())
        focus = list_ctrl_cards;
    Raise();
    focus->SetFocus();
}

void MainFrame::AppendSupportEntries(wxMenu* menu)
{
    wxMenu* save = new wxMenu();
    save->Append(ID_POPUP_ENC_SAVE, Tr("Geheimhaltungszertifikat"));
    save->Append(ID_POPUP_SIG_SAVE, Tr("Signaturzertifikat"));
    menu->AppendSeparator();
    menu->AppendSubMenu(save, Tr("Zertifikat speichern…"));
    menu->Append(ID_POPUP_DIAGNOSE, Tr("Diagnose"));
}

bool MainFrame::RunSupportCommand(int id)
{
    switch (id) {
    case ID_POPUP_ENC_SAVE: SaveCertificate(false); return true;
    case ID_POPUP_SIG_SAVE: SaveCertificate(true); return true;
    case ID_POPUP_DIAGNOSE: ShowDiagnostics(); return true;
    default: return false;
    }
}

void MainFrame::ShowDiagnostics()
{
    if (IsCardWorkRunning() || IsRefreshRunning() || IsClosing())
        return;
    auto report = std::make_shared<Korvex::ModuleDiagnostics>();
    Korvex::acPKCS11* p11 = m_P11;
    StartCardWork([p11, report] { p11->ReadModuleDiagnostics(*report); },
                  [this, report] {
                      // Still inside the command: the watch keeps away while
                      // the window is open.
                      CommandScope command(this);
                      DiagnoseDialog dialog(this, FormatDiagnostics(*report, CurrentDiagnosticsContext(m_Version)));
                      dialog.ShowModal();
                  });
}

wxString MainFrame::ModuleFailureReport(const wxString& version, const wxString& failure)
{
    Korvex::ModuleDiagnostics module;
    module.modulePath = Korvex::acPKCS11::GetLoadReport().path;
    DiagnosticsContext context = CurrentDiagnosticsContext(version);
    context.moduleFailure = failure;
    return FormatDiagnostics(module, context);
}

void MainFrame::SaveCertificate(bool signature)
{
    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_ACOS_A03;
    GetSelectedItem(number, type);
    if (number.empty() || IsCardWorkRunning() || IsRefreshRunning())
        return;
    const wxString name = wxString::FromUTF8(number.c_str()) + (signature ? "-signatur" : "-geheimhaltung");
    // The file type chosen decides the form: the first is PEM, the second DER.
    wxFileDialog chooser(this, Tr("Zertifikat speichern…"), wxEmptyString, name + ".pem",
                         Tr("PEM-Zertifikat (*.pem)|*.pem|DER-Zertifikat (*.cer)|*.cer"),
                         wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    if (chooser.ShowModal() != wxID_OK)
        return;
    const bool pem = chooser.GetFilterIndex() == 0;
    wxFileName path(chooser.GetPath());
    if (!path.HasExt())
        path.SetExt(pem ? "pem" : "cer");
    ExportCertificate(signature, path.GetFullPath(), pem);
}

void MainFrame::ExportCertificate(bool signature, const wxString& path, bool pem)
{
    auto der = std::make_shared<std::vector<unsigned char>>();
    RunOnSelectedCard(
        [der, signature](Korvex::acPKCS11& p11) {
            std::vector<unsigned char> buffer(Korvex::acPKCS11::CERT_BUFFER_SIZE);
            unsigned long length = buffer.size();
            if (p11.LoadSigningCertificate(signature) && p11.GetSigningCertificate(buffer.data(), length) &&
                length <= buffer.size())
                der->assign(buffer.begin(), buffer.begin() + static_cast<long>(length));
        },
        [this, der, path, pem](const std::string&) {
            std::string text;
            if (der->empty() || (pem && !Korvex::CertificateDerToPem(*der, text))) {
                SetStatus(Tr("Das Zertifikat konnte nicht gelesen werden."), true);
                return;
            }
            if (!pem)
                text.assign(der->begin(), der->end());
            std::ofstream file(path.fn_str(), std::ios::binary | std::ios::trunc);
            file.write(text.data(), static_cast<std::streamsize>(text.size()));
            file.close();
            if (!file) {
                AppLog()->LogError(("cannot write certificate file " + path.utf8_string()).c_str());
                SetStatus(wxString::Format(Tr("Die Datei %s konnte nicht geschrieben werden."), path), true);
                return;
            }
            SetStatus(wxString::Format(Tr("Zertifikat gespeichert: %s"), path), false);
        });
}
