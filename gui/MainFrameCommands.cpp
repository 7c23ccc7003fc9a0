// Main window: the buttons of the three PIN-protected areas, the status
// texts of PIN change and unblock, and the two signature tests.
#include "gui/MainFrame.h"

#include "gui/StandardPinCommand.h"
#include "gui/TestDialog.h"
#include "gui/Translate.h"
#include "token/StandardSignatureTest.h"
#include "token/acPKCS11.h"

#include <memory>

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

void MainFrame::RunStandardSignatureTest()
{
    struct TestRun {
        Korvex::PKCS11Return login = Korvex::PKCS11_ERROR;
        std::vector<Korvex::SignatureCheckResult> results;
    };
    const CardRow* row = SelectedCardData();
    if (row == nullptr)
        return;
    const Korvex::TokenProfile profile = row->profile;
    StandardPinTexts texts = MakeStandardPinTexts(false, profile, std::string(row->holder.utf8_str()));
    texts.title = std::string(Tr("Signatur testen").utf8_str()) + ": " + std::string(row->holder.utf8_str());
    auto run = std::make_shared<TestRun>();
    RunOnSelectedCard(
        [=](Korvex::acPKCS11& p11) {
            run->login = LoginStandardToken(p11, profile, texts);
            if (run->login != Korvex::PKCS11_OK)
                return;
            run->results = Korvex::RunStandardSignatureTest(p11, p11.GetSessionSlotId());
            p11.LogoutUser();
        },
        [this, run](const std::string&) {
            switch (run->login) {
            case Korvex::PKCS11_OK: break;
            case Korvex::PKCS11_CANCELED: SetStatus(Tr("Abbruch durch Benutzer"), true); return;
            case Korvex::PKCS11_PIN_INCORRECT: SetStatus(Tr("Anmeldung am Token fehlgeschlagen: PIN falsch."), true); return;
            default: SetStatus(Tr("Anmeldung am Token fehlgeschlagen."), true); return;
            }
            if (run->results.empty()) {
                SetStatus(Tr("Kein Schlüssel zum Signieren auf dem Token."), true);
                return;
            }
            for (const Korvex::SignatureCheckResult& result : run->results)
                if (!result.verified) {
                    SetStatus(wxString::Format(Tr("Signaturtest fehlgeschlagen: Schlüssel %s, Verfahren %s."),
                                               wxString::FromUTF8(result.key.c_str()),
                                               wxString::FromUTF8(result.mechanism.c_str())),
                              true);
                    return;
                }
            SetStatus(wxString::Format(Tr("Signaturtest erfolgreich: %d Signaturen geprüft."),
                                       static_cast<int>(run->results.size())),
                      false);
        });
}

void MainFrame::RunSignatureTest(const wxString& title, Korvex::ApplType appl)
{
    const CardRow* row = SelectedCardData();
    if (row != nullptr && !row->profile.vendor) {
        RunStandardSignatureTest();
        return;
    }
    // The key's size decides the hashes the dialog offers. It is read on the
    // worker, from the card found as every command finds it, so a slow or
    // pulled card neither freezes the window nor opens the dialog.
    struct KeyRead {
        CK_SLOT_ID slot = 0;
        Korvex::TokenInfoStruct2 info; // unread: key size 0, no hash offered
    };
    auto read = std::make_shared<KeyRead>();
    RunOnSelectedCard(
        [read](Korvex::acPKCS11& p11) {
            read->slot = p11.GetSessionSlotId();
            // Opening the session has read it, or knew it unchanged.
            if (!p11.ListedTokenInfo(read->slot, read->info))
                p11.GetTokenInfoForSlot(read->slot, read->info);
        },
        [this, read, title, appl](const std::string& number) {
            // Still inside the command: the watch keeps away while the
            // dialog is open.
            TestDialog dialog(this, wxID_ANY, title, wxDefaultPosition, wxDefaultSize,
                              wxCAPTION | wxSYSTEM_MENU | wxCLOSE_BOX);
            dialog.SetCard(m_P11, read->slot, number, appl, read->info);
            dialog.ShowModal();
        });
}

void MainFrame::evt_sig_test(wxCommandEvent& /*event*/)
{
    RunSignatureTest(Tr("Unterschriftentest mit Signaturschlüssel (6-stellige PIN)"),
                     Korvex::APPL_SIGNATURE);
}

void MainFrame::evt_enc_test(wxCommandEvent& /*event*/)
{
    RunSignatureTest(Tr("Unterschriftentest mit Geheimhaltungsschlüssel (4-stellige PIN)"),
                     Korvex::APPL_ENCRYPTION);
}
