// Main-window commands that show card data: the signature and encryption
// certificates in the external viewer, and the infobox viewer.
#include "gui/MainFrame.h"

#include "app/VessaCardsLogger.h"
#include "base/FileAndDirectory.h"
#include "base/ShowCertificate.h"
#include "gui/InfoboxBereich.h"
#include "gui/Translate.h"
#include "token/acPKCS11.h"

#include <wx/utils.h>

#include <memory>
#include <vector>

namespace {

// The viewer reads the file after this call returns; it removes the file
// once it has its own copy.
const char kCertificateFileName[] = "vessacards_cert.cer";

} // namespace

void MainFrame::ShowCertificate(std::vector<bool> signatureFirst) {
    const std::string path = Korvex::CombinePaths(Korvex::GetTempDir(), kCertificateFileName);
    const CardRow* row = SelectedCardData();
    if (row != nullptr && !row->profile.vendor) {
        ShowStandardCertificate(-1);
        return;
    }
    auto written = std::make_shared<bool>(false);
    auto fileFailed = std::make_shared<bool>(false);
    RunOnSelectedCard(
        [=](Korvex::acPKCS11& p11) {
            Korvex::RemoveFile(path);
            std::vector<unsigned char> certificate(Korvex::acPKCS11::CERT_BUFFER_SIZE);
            for (bool signature : signatureFirst) {
                unsigned long length = certificate.size();
                std::string reason;
                const bool read =
                    p11.LoadSigningCertificate(signature) && p11.GetSigningCertificate(certificate.data(), length);
                if (read && Korvex::WritePrivateFile(path, certificate.data(), length, &reason)) {
                    *written = true;
                    return;
                }
                AppLog()->LogError("error writing cert to file");
                *fileFailed = read;
                if (read)
                    AppLog()->LogMessage("certificate file " + path + ": " + reason);
            }
        },
        [=](const std::string&) {
            // Started or not, the certificate is on disk; a missing viewer
            // only reports on standard error.
            if (*written)
                Korvex::HandCertificateToViewer(path);
            else if (*fileFailed)
                SetStatus(wxString::Format(Tr("Die Zertifikatsdatei %s konnte nicht angelegt werden."),
                                           wxString::FromUTF8(path.c_str())),
                          true);
            else
                SetStatus(Tr("Das Zertifikat konnte nicht gelesen werden."), true);
        });
}

void MainFrame::ShowStandardCertificate(int position)
{
    const std::string path = Korvex::CombinePaths(Korvex::GetTempDir(), kCertificateFileName);
    auto written = std::make_shared<bool>(false);
    RunOnSelectedCard(
        [=](Korvex::acPKCS11& p11) {
            Korvex::RemoveFile(path);
            std::vector<Korvex::TokenObject> certificates;
            if (!p11.ListTokenCertificates(certificates) || certificates.empty())
                return;
            // The holder's: the first with a key pair, else the first.
            const Korvex::TokenObject* chosen = &certificates.front();
            if (position >= 0 && static_cast<size_t>(position) < certificates.size())
                chosen = &certificates[position];
            else if (position >= 0)
                return;
            else
                for (const Korvex::TokenObject& certificate : certificates)
                    if (certificate.hasPrivateKey) {
                        chosen = &certificate;
                        break;
                    }
            *written = Korvex::WritePrivateFile(path, chosen->value.data(), chosen->value.size());
        },
        [=](const std::string&) {
            if (*written)
                Korvex::ShowCertificate(path);
            else
                SetStatus(Tr("Das Zertifikat konnte nicht gelesen werden."), true);
        });
}

void MainFrame::evt_sig_show_cert(wxCommandEvent&) { ShowCertificate({true}); }

void MainFrame::evt_enc_show(wxCommandEvent&) { ShowCertificate({false}); }

void MainFrame::evt_pers_show(wxCommandEvent&) {
    if (IsCardWorkRunning()) return;
    CommandScope command(this);
    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_UNKNOWN;
    CK_SLOT_ID slotId = 0;
    InfoboxBereich* dialog = nullptr;
    if (SelectedCardReader(number, type, slotId)) {
        dialog = new InfoboxBereich(this, type);
        dialog->SetCard(m_P11, slotId, number);
    } else {
        int slot = -1;
        if (!GetSlotIdxForSelectedCard(slot, type)) return;
        dialog = new InfoboxBereich(this, type);
        dialog->SetP11(m_P11, slot);
    }
    wxSafeYield();
    dialog->ShowModal();
    dialog->Destroy();
}
