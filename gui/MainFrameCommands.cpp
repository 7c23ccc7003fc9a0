// Main window: the buttons of the three PIN-protected areas, the status
// texts of PIN change and unblock, and the two signature tests.
#include "gui/MainFrame.h"

#include "gui/TestDialog.h"
#include "gui/Translate.h"
#include "token/acPKCS11.h"

void MainFrame::evt_sig_change_pin(wxCommandEvent& /*event*/)
{
    RunPinCommand(Korvex::APPL_SIGNATURE, false);
}

void MainFrame::evt_sig_puk(wxCommandEvent& /*event*/)
{
    RunPinCommand(Korvex::APPL_SIGNATURE, true);
}

void MainFrame::evt_enc_change_pin(wxCommandEvent& /*event*/)
{
    RunPinCommand(Korvex::APPL_ENCRYPTION, false);
}

void MainFrame::evt_enc_puk(wxCommandEvent& /*event*/)
{
    RunPinCommand(Korvex::APPL_ENCRYPTION, true);
}

void MainFrame::evt_pers_change(wxCommandEvent& /*event*/)
{
    RunPinCommand(Korvex::APPL_IDENTITY_LINK, false);
}

void MainFrame::evt_pers_puk(wxCommandEvent& /*event*/)
{
    RunPinCommand(Korvex::APPL_IDENTITY_LINK, true);
}

// The texts differ in capitalisation between the two tables ("PIN Ändern"
// and "PIN entsperren", "PIN Gesperrt" and "PUK Gesperrt"); the translation
// catalogues are keyed on exactly these texts.
void MainFrame::SetStatusPinChange(Korvex::PKCS11Return result)
{
    switch (result) {
    case Korvex::PKCS11_OK: SetStatus(Tr("PIN Änderung erfolgreich!"), false); break;
    case Korvex::PKCS11_CANCELED: SetStatus(Tr("Abbruch durch Benutzer"), true); break;
    case Korvex::PKCS11_PIN_INCORRECT: SetStatus(Tr("Fehler beim PIN Ändern! PIN falsch!"), true); break;
    case Korvex::PKCS11_PIN_LOCKED: SetStatus(Tr("Fehler beim PIN Ändern! PIN Gesperrt"), true); break;
    case Korvex::PKCS11_NOT_SUPPORTED: SetStatus(Tr("PIN Änderung nicht unterstützt!"), true); break;
    default: SetStatus(Tr("Fehler beim PIN Ändern!"), true); break;
    }
}

void MainFrame::SetStatusPinUnblock(Korvex::PKCS11Return result)
{
    switch (result) {
    case Korvex::PKCS11_OK: SetStatus(Tr("PIN Entsperren erfolgreich!"), false); break;
    case Korvex::PKCS11_CANCELED: SetStatus(Tr("Abbruch durch Benutzer"), true); break;
    case Korvex::PKCS11_PIN_INCORRECT: SetStatus(Tr("Fehler beim PIN entsperren! PIN/PUK falsch!"), true); break;
    case Korvex::PKCS11_PIN_LOCKED: SetStatus(Tr("Fehler beim PIN entsperren! PUK Gesperrt"), true); break;
    case Korvex::PKCS11_NOT_SUPPORTED: SetStatus(Tr("PIN Entsperren nicht unterstützt!"), true); break;
    default: SetStatus(Tr("Fehler beim PIN entsperren!"), true); break;
    }
}

namespace {

void RunSignatureTest(MainFrame* frame, Korvex::acPKCS11* p11, const char* title,
                      Korvex::ApplType appl)
{
    if (frame->IsCardWorkRunning())
        return;
    MainFrame::CommandScope command(frame);
    TestDialog dialog(frame, wxID_ANY, Tr(title), wxDefaultPosition, wxDefaultSize,
                      wxCAPTION | wxSYSTEM_MENU | wxCLOSE_BOX);
    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_ACOS_A03;
    CK_SLOT_ID slotId = 0;
    if (!frame->SelectedCardReader(number, type, slotId) || !dialog.SetCard(p11, slotId, number, appl)) {
        int slot = -1;
        if (!frame->GetSlotIdxForSelectedCard(slot, type))
            return;
        dialog.SetP11(p11, slot, appl);
    }
    dialog.ShowModal();
}

} // namespace

void MainFrame::evt_sig_test(wxCommandEvent& /*event*/)
{
    RunSignatureTest(this, m_P11, "Unterschriftentest mit Signaturschlüssel (6-stellige PIN)",
                     Korvex::APPL_SIGNATURE);
}

void MainFrame::evt_enc_test(wxCommandEvent& /*event*/)
{
    RunSignatureTest(this, m_P11, "Unterschriftentest mit Geheimhaltungsschlüssel (4-stellige PIN)",
                     Korvex::APPL_ENCRYPTION);
}
