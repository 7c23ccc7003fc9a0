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

#include <vector>

namespace {

// The viewer reads the file after this call returns, so it stays in place
// until the next request replaces it.
const char kCertificateFileName[] = "vessacards_cert.cer";

} // namespace

bool MainFrame::ShowCert(bool signature) {
    if (IsCardWorkRunning())
        return false;
    const std::string path = Korvex::CombinePaths(Korvex::GetTempDir(), kCertificateFileName);
    CommandScope command(this);
    wxBusyCursor busy;
    Korvex::RemoveFile(path);

    if (!OpenSessionForSelectedCard()) return false;

    std::vector<unsigned char> certificate(Korvex::acPKCS11::CERT_BUFFER_SIZE);
    unsigned long length = certificate.size();
    bool shown = false;
    if (m_P11->LoadSigningCertificate(signature) &&
        m_P11->GetSigningCertificate(certificate.data(), length) &&
        Korvex::WritePrivateFile(path, certificate.data(), length)) {
        // Started or not, the certificate is on disk; a missing viewer only
        // reports on standard error.
        Korvex::ShowCertificate(path);
        shown = true;
    } else {
        AppLog()->LogError("error writing cert to file");
        SetStatus(Tr("Das Zertifikat konnte nicht gelesen werden."), true);
    }
    m_P11->CloseSession();
    return shown;
}

void MainFrame::evt_sig_show_cert(wxCommandEvent&) { ShowCert(true); }

void MainFrame::evt_enc_show(wxCommandEvent&) { ShowCert(false); }

void MainFrame::evt_pers_show(wxCommandEvent&) {
    if (IsCardWorkRunning()) return;
    CommandScope command(this);
    int slot = -1;
    Korvex::TokenType type = Korvex::TOKEN_UNKNOWN;
    if (!GetSlotIdxForSelectedCard(slot, type)) return;

    InfoboxBereich* dialog = new InfoboxBereich(this, type);
    dialog->SetP11(m_P11, slot);
    wxSafeYield();
    dialog->ShowModal();
    dialog->Destroy();
}
