// Signature test dialog: hashes a test text, has the card sign the digest with
// the signature or encryption key, shows the signature in Base64 and lets the
// card verify it again, both away from the GUI thread. Nothing is stored.
#pragma once

#include "crypto/HashAlgorithm.h"
#include "gui/CardWork.h"
#include "token/acPKCS11Types.h"

#include <p11-kit/pkcs11.h>

#include <wx/dialog.h>
#include <wx/timer.h>

#include <functional>
#include <memory>
#include <string>

class FadeOut;
class wxButton;
class wxComboBox;
class wxStaticBitmap;
class wxStaticText;
class wxTextCtrl;

namespace Korvex {
class acPKCS11;
}

class TestDialog : public wxDialog {
public:
    TestDialog(wxWindow* parent, wxWindowID id, const wxString& title,
               const wxPoint& pos = wxDefaultPosition, const wxSize& size = wxDefaultSize,
               long style = wxDEFAULT_DIALOG_STYLE);
    ~TestDialog() override;

    // Binds the dialog to one card and key; the token object stays owned by
    // the caller and must outlive the dialog. `slot` is the card's position
    // in the card list.
    void SetP11(Korvex::acPKCS11* p11, int slot, Korvex::ApplType appl);
    // The same for the card with this number in reader `slotId`, with its
    // token information already read (on a worker): no card call here. Each
    // session is opened on the worker, by the full look-up only when another
    // card is in that reader by then.
    void SetCard(Korvex::acPKCS11* p11, CK_SLOT_ID slotId, const std::string& number, Korvex::ApplType appl,
                 const Korvex::TokenInfoStruct2& info);

    // Maps the selected hash entry to its algorithm; shows the error status
    // and returns false when nothing usable is selected.
    bool GetHashAlgorithm(Korvex::HashAlgorithm& out);

    // Empty text hides the status line; otherwise shows it with the green or
    // red icon and starts the fade.
    void SetStatus(const wxString& text, bool isError);

    virtual void evt_sign(wxCommandEvent& event);
    virtual void evt_verify(wxCommandEvent& event);
    virtual void evt_closedlg(wxCommandEvent& event);
    virtual void evt_OnFadeOut(wxTimerEvent& event);

    // Signing and verifying run on a worker thread (the module shows its PIN
    // dialogue inside); the dialog keeps repainting and cannot be closed
    // until the card is done.
    bool IsCardWorkRunning() const { return m_cardWork.Running(); }

    // The widgets, for callers that drive the dialog without a mouse.
    wxTextCtrl* GetTextField() const { return m_text; }
    wxTextCtrl* GetSignatureField() const { return m_signature; }
    wxComboBox* GetHashChoice() const { return m_hash; }
    wxTextCtrl* GetKeyAlgorithmField() const { return m_keyAlgorithm; }
    wxStaticText* GetStatusText() const { return m_statusText; }
    wxStaticBitmap* GetStatusIcon() const { return m_statusIcon; }

    enum {
        ID_CLOSE = 5447,
        ID_SIGN = 5448,
        ID_VERIFY = 5449,
        ID_FADE_TIMER = 5445
    };

private:
    void set_properties();
    // Shows the bound key's algorithm and offers the hashes its size allows.
    void ShowKey(const Korvex::TokenInfoStruct2& info);
    void do_layout();
    // Labels of the private and the public key of the bound application.
    const char* KeyLabel() const;
    const char* PublicKeyLabel() const;
    // Digest of the current test text with the selected algorithm; shows the
    // matching error status on failure.
    bool HashTestText(std::vector<unsigned char>& digest);
    // Opens the bound card's session on the worker, runs `step` in it and
    // closes it; here, `done` gets the step's result (a card that could not
    // be reached is reported instead).
    void RunOnCard(std::function<bool(Korvex::acPKCS11&)> step, std::function<void(bool)> done);
    // Runs `work` on the worker thread with the buttons off, then `done` here.
    void RunCardWork(std::function<void()> work, std::function<void()> done);
    void evt_Close(wxCloseEvent& event);

    wxTextCtrl* m_text = nullptr;
    wxTextCtrl* m_signature = nullptr;
    wxComboBox* m_hash = nullptr;
    wxTextCtrl* m_keyAlgorithm = nullptr;
    wxButton* m_signButton = nullptr;
    wxButton* m_verifyButton = nullptr;
    wxButton* m_closeButton = nullptr;
    wxStaticBitmap* m_statusIcon = nullptr;
    wxStaticText* m_statusText = nullptr;

    wxTimer m_fadeTimer;
    std::unique_ptr<FadeOut> m_fade;

    Korvex::acPKCS11* m_p11 = nullptr;
    // Opens the session on the bound card (on the worker thread).
    std::function<bool(Korvex::acPKCS11&)> m_openSession;
    Korvex::ApplType m_appl = Korvex::APPL_SIGNATURE;
    CardWork m_cardWork;

    wxDECLARE_EVENT_TABLE();
};
