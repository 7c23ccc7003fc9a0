// Signature test dialog: layout, choice of hash by key size, signing and
// verification on the card, and the dialog's own fading status line.
#include "gui/TestDialog.h"

#include "gui/Accessibility.h"

#include "base/base64.h"
#include "crypto/Hash.h"
#include "gui/CardSession.h"
#include "gui/FadeOut.h"
#include "gui/Images.h"
#include "gui/StatusLine.h"
#include "gui/Translate.h"
#include "token/acPKCS11.h"

#include <wx/bmpbuttn.h>
#include <wx/button.h>
#include <wx/combobox.h>
#include <wx/sizer.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/utils.h>


namespace {

// Marked for the catalogue: the user reads it in the language of the desktop.
const char* const kPresetText =
    wxTRANSLATE("Das ist ein Test!\n\nDie Signatur dieses Textes wird nur virtuell erstellt und nicht "
                "abgespeichert.");

// Below this key size no offered digest fits the key.
constexpr int kMinKeyBitsForSha1 = 192;
constexpr int kMinKeyBitsForSha256 = 256;



} // namespace

wxBEGIN_EVENT_TABLE(TestDialog, wxDialog)
    EVT_BUTTON(TestDialog::ID_SIGN, TestDialog::evt_sign)
    EVT_BUTTON(TestDialog::ID_VERIFY, TestDialog::evt_verify)
    EVT_BUTTON(TestDialog::ID_CLOSE, TestDialog::evt_closedlg)
    EVT_TIMER(TestDialog::ID_FADE_TIMER, TestDialog::evt_OnFadeOut)
    EVT_CLOSE(TestDialog::evt_Close)
wxEND_EVENT_TABLE()

TestDialog::TestDialog(wxWindow* parent, wxWindowID id, const wxString& title, const wxPoint& pos,
                       const wxSize& size, long style)
    : wxDialog(parent, id, title, pos, size, style),
      m_fadeTimer(this, ID_FADE_TIMER),
      m_fade(new FadeOut()) {
    m_text = new wxTextCtrl(this, wxID_ANY, Tr(kPresetText), wxDefaultPosition, wxDefaultSize,
                            wxTE_MULTILINE);
    m_signature = new wxTextCtrl(this, wxID_ANY, wxEmptyString, wxDefaultPosition, wxDefaultSize,
                                 wxTE_MULTILINE | wxTE_READONLY);
    m_hash = new wxComboBox(this, wxID_ANY, wxEmptyString, wxDefaultPosition, wxDefaultSize, 0,
                            nullptr, wxCB_DROPDOWN | wxCB_READONLY);
    m_keyAlgorithm = new wxTextCtrl(this, wxID_ANY, wxEmptyString, wxDefaultPosition,
                                    wxDefaultSize, wxTE_READONLY);
    m_signButton = new wxButton(this, ID_SIGN, Tr("Unterschreiben"));
    m_verifyButton = new wxButton(this, ID_VERIFY, Tr("Prüfen"));
    m_closeButton = new wxButton(this, ID_CLOSE, Tr("Dialog schließen"));
    m_statusIcon = new wxStaticBitmap(this, wxID_ANY, wxBitmap(ButtonOk));
    m_statusText = new wxStaticText(this, wxID_ANY, wxEmptyString, wxDefaultPosition,
                                    wxDefaultSize, wxALIGN_CENTRE_HORIZONTAL);
    set_properties();
    do_layout();
}

TestDialog::~TestDialog() {
    m_fadeTimer.Stop();
}

void TestDialog::set_properties() {
    m_text->SetMinSize(wxSize(600, 110));
    // Base64 comes in lines of 76 characters; a fixed-width font keeps them
    // from being re-wrapped at every slash.
    m_signature->SetFont(wxFont(9, wxFONTFAMILY_TELETYPE, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL));
    m_signature->SetMinSize(wxSize(600, 130));
    m_hash->SetMinSize(wxSize(140, -1));
    m_keyAlgorithm->SetMinSize(wxSize(80, -1));
    m_statusIcon->Hide();
    m_statusText->Hide();
    m_signButton->SetDefault();
    SetEscapeId(ID_CLOSE);
    Accessibility::SetName(m_text, Tr("Text"));
    Accessibility::SetName(m_signature, Tr("Signatur"));
    Accessibility::SetName(m_hash, Tr("Hashalgorithmus"));
    Accessibility::SetName(m_keyAlgorithm, Tr("Signaturalgorithmus"));
}

void TestDialog::do_layout() {
    wxBoxSizer* top = new wxBoxSizer(wxVERTICAL);
    top->Add(new wxStaticText(this, wxID_ANY, Tr("Text")), 0, wxLEFT | wxRIGHT | wxTOP, 8);
    top->Add(m_text, 1, wxEXPAND | wxALL, 8);

    wxFlexGridSizer* algorithms = new wxFlexGridSizer(2, 4, 6, 8);
    algorithms->Add(new wxStaticText(this, wxID_ANY, Tr("Hashalgorithmus")), 0,
                    wxALIGN_CENTER_VERTICAL);
    algorithms->Add(m_hash, 0, wxALIGN_CENTER_VERTICAL);
    algorithms->Add(new wxStaticText(this, wxID_ANY, Tr("Signaturalgorithmus")), 0,
                    wxALIGN_CENTER_VERTICAL | wxLEFT, 16);
    algorithms->Add(m_keyAlgorithm, 0, wxALIGN_CENTER_VERTICAL);
    top->Add(algorithms, 0, wxLEFT | wxRIGHT, 8);

    top->Add(new wxStaticText(this, wxID_ANY, Tr("Signatur")), 0, wxLEFT | wxRIGHT | wxTOP, 8);
    top->Add(m_signature, 1, wxEXPAND | wxALL, 8);

    wxBoxSizer* buttons = new wxBoxSizer(wxHORIZONTAL);
    buttons->Add(m_signButton, 0, wxRIGHT, 8);
    buttons->Add(m_verifyButton, 0, wxRIGHT, 8);
    buttons->AddStretchSpacer();
    buttons->Add(m_closeButton, 0);
    top->Add(buttons, 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 8);

    top->Add(StatusLine::MakeRow(m_statusIcon, m_statusText, 36), 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 8);

    SetSizer(top);
    top->Fit(this);
    Layout();
}

void TestDialog::SetP11(Korvex::acPKCS11* p11, int slot, Korvex::ApplType appl) {
    if (p11 == nullptr) return;
    m_p11 = p11;
    m_appl = appl;
    m_openSession = [slot](Korvex::acPKCS11& token) { return token.OpenSession(slot, false); };

    // A failed read leaves the key size at 0, which offers no hash at all.
    Korvex::TokenInfoStruct2 info;
    p11->GetTokenInfo(static_cast<unsigned long>(slot), info);
    ShowKey(info);
}

void TestDialog::SetCard(Korvex::acPKCS11* p11, CK_SLOT_ID slotId, const std::string& number,
                         Korvex::ApplType appl, const Korvex::TokenInfoStruct2& info) {
    if (p11 == nullptr) return;
    m_p11 = p11;
    m_appl = appl;
    m_openSession = [slotId, number](Korvex::acPKCS11& token) {
        return OpenCardSession(token, slotId, true, number) == CardSession::OPEN;
    };
    ShowKey(info);
}

void TestDialog::ShowKey(const Korvex::TokenInfoStruct2& info) {
    const Korvex::ApplType appl = m_appl;
    int keyAlgorithm = 0;
    int keyBits = 0;
    if (appl == Korvex::APPL_SIGNATURE) {
        keyAlgorithm = info.sigKeyAlgo;
        keyBits = info.sigKeyLength;
    } else if (appl == Korvex::APPL_ENCRYPTION) {
        keyAlgorithm = info.encKeyAlgo;
        keyBits = info.encKeyLength;
    } else {
        SetStatus(Tr("Ungültige Karte"), true);
        return;
    }

    if (keyAlgorithm == Korvex::KEY_ALGO_RSA)
        m_keyAlgorithm->SetValue(wxT("RSA"));
    else if (keyAlgorithm == Korvex::KEY_ALGO_EC)
        m_keyAlgorithm->SetValue(wxT("ECC"));

    m_hash->Clear();
    if (keyBits >= kMinKeyBitsForSha1) {
        m_hash->Append(wxT("SHA-1"));
        m_hash->Append(wxT("RIPEMD-160"));
        if (keyBits >= kMinKeyBitsForSha256) m_hash->Append(wxT("SHA-256"));
        // The longest digest the key allows.
        m_hash->SetSelection(static_cast<int>(m_hash->GetCount()) - 1);
    }
}

bool TestDialog::GetHashAlgorithm(Korvex::HashAlgorithm& out) {
    out = Korvex::HashSha1;
    const int selected = m_hash->GetSelection();
    const std::string name =
        selected == wxNOT_FOUND ? std::string() : m_hash->GetString(selected).ToStdString();
    if (name.empty()) {
        SetStatus(Tr("Ungültiger Hashwert ausgewählt"), true);
        return false;
    }
    if (name == "SHA-1") {
        out = Korvex::HashSha1;
    } else if (name == "RIPEMD-160") {
        out = Korvex::HashRipemd160;
    } else if (name == "SHA-256") {
        out = Korvex::HashSha256;
    } else {
        SetStatus(Tr("Ungültiger Hashwert"), true);
        return false;
    }
    return true;
}

const char* TestDialog::KeyLabel() const {
    return m_appl == Korvex::APPL_ENCRYPTION ? "SK.CH.EKEY" : "SK.CH.SIG";
}

const char* TestDialog::PublicKeyLabel() const {
    // The card verifies with the public half, which carries its own label.
    return m_appl == Korvex::APPL_ENCRYPTION ? "PK.CH.EKEY" : "PK.CH.SIG";
}

bool TestDialog::HashTestText(std::vector<unsigned char>& digest) {
    Korvex::HashAlgorithm algorithm;
    if (!GetHashAlgorithm(algorithm)) return false;
    // UTF-8 whatever the process locale, so signing and verifying always see
    // the same bytes for the same text.
    const std::string utf8 = m_text->GetValue().utf8_string();
    const std::vector<unsigned char> data(utf8.begin(), utf8.end());
    // The bare digest: the card signs exactly what it is given.
    if (!Korvex::Hash(data, digest, algorithm, false)) {
        SetStatus(Tr("Fehler beim Hashen des Textes"), true);
        return false;
    }
    return true;
}

void TestDialog::evt_sign(wxCommandEvent&) {
    SetStatus(wxEmptyString, false);
    if (m_p11 == nullptr || IsCardWorkRunning()) return;

    std::vector<unsigned char> digest;
    if (!HashTestText(digest)) return;
    auto signature = std::make_shared<std::vector<unsigned char>>();
    const std::string label = KeyLabel();
    RunOnCard(
        [=](Korvex::acPKCS11& p11) { return p11.Sign(label, digest, *signature, Korvex::HashAlreadyHashed); },
        [=](bool signedOk) {
            if (signedOk) {
                m_signature->SetValue(wxString::FromUTF8(Korvex::b64Encode(*signature)));
                SetStatus(Tr("Signatur erfolgreich!"), false);
            } else {
                SetStatus(Tr("Fehler beim Signieren"), true);
            }
        });
}

void TestDialog::evt_verify(wxCommandEvent&) {
    SetStatus(wxEmptyString, false);
    if (m_p11 == nullptr || IsCardWorkRunning()) return;

    std::vector<unsigned char> digest;
    if (!HashTestText(digest)) return;
    const std::vector<unsigned char> signature =
        Korvex::b64Decode(m_signature->GetValue().ToStdString());
    const std::string label = PublicKeyLabel();
    RunOnCard(
        [=](Korvex::acPKCS11& p11) { return p11.Verify(label, digest, signature, Korvex::HashAlreadyHashed); },
        [=](bool verified) {
            if (verified)
                SetStatus(Tr("Signaturprüfung erfolgreich!"), false);
            else
                SetStatus(Tr("Fehler beim Verifizieren der Signatur"), true);
        });
}

void TestDialog::RunOnCard(std::function<bool(Korvex::acPKCS11&)> step, std::function<void(bool)> done) {
    struct Outcome {
        bool opened = false;
        bool result = false;
    };
    auto outcome = std::make_shared<Outcome>();
    Korvex::acPKCS11* p11 = m_p11;
    const std::function<bool(Korvex::acPKCS11&)> open = m_openSession;
    RunCardWork(
        [=] {
            outcome->opened = open(*p11);
            if (!outcome->opened) return;
            outcome->result = step(*p11);
            p11->CloseSession();
        },
        [=] {
            if (!outcome->opened)
                SetStatus(Tr("Fehler beim Aufbau der Verbindung zur Karte"), true);
            else
                done(outcome->result);
        });
}

void TestDialog::RunCardWork(std::function<void()> work, std::function<void()> done) {
    // The buttons go off while the card works, and the one pressed loses the
    // keyboard focus with it; it gets it back afterwards.
    wxWindow* focus = FindFocus();
    const bool started = m_cardWork.Start(std::move(work), [this, focus, done = std::move(done)] {
        SetCursor(wxNullCursor);
        for (wxButton* button : {m_signButton, m_verifyButton, m_closeButton}) button->Enable();
        m_hash->Enable();
        if (focus != nullptr && wxGetTopLevelParent(focus) == this) focus->SetFocus();
        done();
    });
    if (!started) {
        SetStatus(Tr("Fehler beim Aufbau der Verbindung zur Karte"), true);
        return;
    }
    for (wxButton* button : {m_signButton, m_verifyButton, m_closeButton}) button->Disable();
    m_hash->Disable();
    SetCursor(wxCursor(wxCURSOR_WAIT));
}

void TestDialog::evt_Close(wxCloseEvent& event) {
    if (IsCardWorkRunning() && event.CanVeto()) {
        event.Veto();
        return;
    }
    event.Skip();
}

void TestDialog::evt_closedlg(wxCommandEvent&) {
    m_fadeTimer.Stop();
    if (IsModal())
        EndModal(wxID_CLOSE);
    else
        Hide();
}

void TestDialog::SetStatus(const wxString& text, bool isError) {
    StatusLine::Show(this, this, m_statusText, m_statusIcon, text, isError, *m_fade, m_fadeTimer,
                     m_closeButton->GetForegroundColour(), m_closeButton->GetBackgroundColour());
}

void TestDialog::evt_OnFadeOut(wxTimerEvent&) {
    if (m_statusIcon == nullptr) return;
    StatusLine::Step(m_statusText, m_statusIcon, *m_fade, m_fadeTimer);
}
