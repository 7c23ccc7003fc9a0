// The program's main window: banner, card list, command buttons for the
// signature certificate, the encryption certificate and the infobox area, the
// reload button and a fading status line. It owns the token object for the
// whole run and dispatches every card command on the GUI thread.
#pragma once

#include "gui/CardWatch.h"
#include "gui/CardWork.h"
#include "gui/FadeOut.h"
#include "gui/ListEntryData.h"
#include "gui/PleaseWait.h"
#include "token/acPKCS11Types.h"

#include <wx/frame.h>
#include <wx/image.h>
#include <wx/timer.h>

#include <functional>
#include <string>
#include <vector>

class CardList;
class RefreshCardThread;
class wxDataViewEvent;
class wxBitmapButton;
class wxButton;
class wxMenu;
class wxPanel;
class wxStaticBitmap;
class wxStaticBox;
class wxStaticText;
namespace Korvex {
class acPKCS11;
}

// Card number that a card without personalisation reports; commands on such
// a card are refused.
extern const std::string EMPTY_CARD;

class MainFrame : public wxFrame {
public:
    enum {
        ID_RELOAD = 5432,
        ID_PERS_CHANGE = 5433,
        ID_PERS_PUK = 5434,
        ID_PERS_SHOW = 5435,
        ID_ENC_CHANGE_PIN = 5436,
        ID_ENC_PUK = 5437,
        ID_ENC_SHOW = 5438,
        ID_ENC_TEST = 5439,
        ID_SIG_CHANGE_PIN = 5440,
        ID_SIG_PUK = 5441,
        ID_SIG_SHOW_CERT = 5442,
        ID_SIG_TEST = 5443,
        ID_START_TIMER = 5444,
        ID_FADE_TIMER = 5445,
        ID_CARD_LIST = 5446,
        ID_THREAD_FINISHED = 5453,
        ID_POPUP_ENC_CHANGE_PIN = 5454,
        ID_POPUP_SIG_CHANGE_PIN = 5455,
        ID_POPUP_PERS_CHANGE_PIN = 5456,
        ID_POPUP_ENC_PUK = 5457,
        ID_POPUP_SIG_PUK = 5458,
        ID_POPUP_PERS_PUK = 5459,
        ID_POPUP_ENC_SHOW = 5460,
        ID_POPUP_SIG_SHOW = 5461,
        ID_POPUP_PERS_SHOW = 5462,
        ID_POPUP_ENC_TEST = 5463,
        ID_POPUP_SIG_TEST = 5464,
        ID_WATCH_TIMER = 5470,
        // Standard tokens: one popup entry per certificate, by its position.
        ID_POPUP_CERTIFICATE = 5480,
        ID_POPUP_CERTIFICATE_LAST = 5529,
        // Entries after the popup's own ones (MainFrameSupport.cpp).
        ID_POPUP_ENC_SAVE = 5530,
        ID_POPUP_SIG_SAVE = 5531,
        ID_POPUP_DIAGNOSE = 5532
    };

    // Loads the token module; when that fails it tells the user and ends the
    // process with status 0, so a constructed frame always has a module.
    explicit MainFrame(wxWindow* parent);
    ~MainFrame() override;

    virtual void evt_sig_change_pin(wxCommandEvent& event);
    virtual void evt_sig_puk(wxCommandEvent& event);
    virtual void evt_sig_show_cert(wxCommandEvent& event);
    virtual void evt_sig_test(wxCommandEvent& event);
    virtual void evt_enc_change_pin(wxCommandEvent& event);
    virtual void evt_enc_puk(wxCommandEvent& event);
    virtual void evt_enc_show(wxCommandEvent& event);
    virtual void evt_enc_test(wxCommandEvent& event);
    virtual void evt_pers_change(wxCommandEvent& event);
    virtual void evt_pers_puk(wxCommandEvent& event);
    virtual void evt_pers_show(wxCommandEvent& event);
    virtual void evt_reload(wxCommandEvent& event);
    virtual void evt_OnTimer(wxTimerEvent& event);
    virtual void evt_OnFadeOut(wxTimerEvent& event);
    virtual void evt_ItemSelected(wxDataViewEvent& event);
    virtual void evt_ItemRightClick(wxDataViewEvent& event);
    virtual void evt_ItemDoubleClick(wxDataViewEvent& event);
    virtual void evt_ListKeyDown(wxKeyEvent& event);
    virtual void evt_ThreadFinished(wxCommandEvent& event);
    virtual void evt_OnPopupClick(wxCommandEvent& event);
    // Looks for cards that came or went and refreshes the list when one did.
    virtual void evt_OnWatchTimer(wxTimerEvent& event);

    // While one exists, a command uses the module on the GUI thread: the
    // watch keeps away and a refresh it wants waits for the command's end.
    class CommandScope {
    public:
        explicit CommandScope(MainFrame* frame);
        ~CommandScope();
        CommandScope(const CommandScope&) = delete;
        CommandScope& operator=(const CommandScope&) = delete;

    private:
        MainFrame* m_Frame;
    };

    // Card number and type of the selected row; with no selection the first
    // row is selected and used; an empty list gives an empty number.
    void GetSelectedItem(std::string& number, Korvex::TokenType& type);
    // Slot position of the selected card among the slots with a token. A
    // card that is no longer there is said in the status line and the list
    // is read again.
    bool GetSlotIdxForSelectedCard(int& slotIdx, Korvex::TokenType& type);
    // Locks or unlocks every command; unlocking re-applies the card-type rules.
    void MyEnable(bool enable);
    // Empty text hides the status line; otherwise it shows the text with the
    // green or red icon and starts the fade.
    void SetStatus(wxString text, bool isError);
    void SetStatusPinChange(Korvex::PKCS11Return result);
    void SetStatusPinUnblock(Korvex::PKCS11Return result);
    // Writes the certificate to a temporary file and starts the external
    // viewer; true when the viewer was started. (MainFrameCardData.cpp)
    // Writes the first of these certificates (true: signature) that the
    // selected card gives to a private file and opens it in the viewer.
    void ShowCertificate(std::vector<bool> signatureFirst);
    // A standard token's certificate by its position; -1: the holder's.
    void ShowStandardCertificate(int position);

    // The popup menu for a card of `type`; the caller owns it.
    wxMenu* CreatePopupMenu(Korvex::TokenType type);
    // The popup menu of a standard token: its PIN, each certificate by its
    // label, the signature test.
    wxMenu* CreateStandardPopupMenu(const CardRow& row);
    // The popup of the selected card, of whichever kind it is.
    wxMenu* CreateSelectedCardMenu();

    // ---- support commands and keyboard use (MainFrameSupport.cpp) ----
    // Certificate export and diagnostics, after the entries above.
    void AppendSupportEntries(wxMenu* menu);
    // Runs a popup entry of AppendSupportEntries; false for any other id.
    bool RunSupportCommand(int id);
    // Reads the module's report on the worker and shows the "Diagnose" window.
    void ShowDiagnostics();
    // Asks for a file, then writes the selected card's certificate to it.
    void SaveCertificate(bool signature);
    // Writes the selected card's certificate as PEM or DER; the result is
    // said in the status line.
    void ExportCertificate(bool signature, const wxString& path, bool pem);
    // The popup for the selected card, below its row, as a right click
    // opens it: for the menu key and Shift+F10.
    void ShowPopupFromKeyboard();
    // Puts the keyboard focus back on the card list when the window had it
    // before it was locked (or has it now).
    void FocusSelectedCard();
    // The report for a module that could not be loaded, from the start message.
    static wxString ModuleFailureReport(const wxString& version, const wxString& failure);

    // Parts of the window, for code that drives it without a mouse.
    CardList* GetCardList() const { return list_ctrl_cards; }
    wxStaticText* GetStatusText() const { return label_status; }
    wxStaticBitmap* GetStatusIcon() const { return bitmap_status; }
    wxStaticBitmap* GetBanner() const { return bitmap_banner; }
    PleaseWait& GetWaitDialog() { return m_Wait; }
    wxTimer& GetFadeTimer() { return m_FadeTimer; }
    FadeOut& GetFade() { return m_Fade; }
    Korvex::acPKCS11* GetP11() const { return m_P11; }
    bool IsRefreshRunning() const { return m_Thread != nullptr; }
    bool IsCommandRunning() const { return m_CommandDepth > 0; }
    // A command's card work runs on its worker thread (the window is locked).
    bool IsCardWorkRunning() const { return m_CardWork.Running(); }
    wxTimer& GetWatchTimer() { return m_WatchTimer; }
    // The line under an empty card list that says why it is empty.
    wxStaticText* GetListHint() const { return label_list_hint; }
    // The PIN state line of an application's box.
    wxStaticText* GetPinStateText(Korvex::ApplType appl) const;
    // The row of the selected card as the last refresh read it; null when none.
    const CardRow* SelectedCardData() const;
    // The selected card's number and type (as GetSelectedItem gives them) and
    // the reader the last refresh saw it in, which spares a look-up of every
    // card's number; false when no card of that refresh is selected.
    bool SelectedCardReader(std::string& number, Korvex::TokenType& type, CK_SLOT_ID& slotId);
    // The module's failure as the start-up message shows it (second line).
    static wxString ModuleFailureText(const Korvex::ModuleLoadReport& report);

private:
    void set_properties();
    void do_layout();
    // The banner at `height` pixels (its own height at most), scaled whole.
    void ScaleBanner(int height);
    // The banner as large as the window's room allows.
    void FitBanner();
    // Remembers the modifiers of the key being pressed, before the list sees it.
    void OnCharHook(wxKeyEvent& event);
    // Runs a PIN change or unblock on the selected card's application.
    void RunPinCommand(Korvex::ApplType appl, bool unblock);
    // Reads the selected card's key on the worker, then opens the signature
    // test for it; a card that cannot be reached is said in the status line.
    void RunSignatureTest(const wxString& title, Korvex::ApplType appl);
    // A standard token: every signing key with every mechanism it lists,
    // each signature checked against the key's certificate.
    void RunStandardSignatureTest();
    // Destroy() was called: the window only waits for its deletion.
    bool IsClosing() const;
    // Creates and starts the refresh thread; false when it could not start.
    bool StartRefreshThread();
    // Enables what the selected card allows and disables the rest.
    void ApplySelectionRules();
    // Shows the selected card's PIN states and certificate details.
    void ShowSelectedCardState();
    enum CardUnreachable { CARD_GONE, CARD_LIST_UNREADABLE, CARD_UNREADABLE };
    // Says in the status line why a command could not reach its card, and
    // reads the list again once the window is idle.
    void ReportCardUnreachable(CardUnreachable why);
    // A refresh once no command or refresh runs any more.
    void RefreshWhenIdle() { m_RefreshWanted = true; }
    // Puts PIN states read by a command into the row of that card.
    void ApplyPinStates(const std::string& number, const Korvex::CardPinStates& pins);
    // Runs `work` in a session on the selected card on the worker thread,
    // then `done` with the card's number on the GUI thread; a card that
    // cannot be found or opened is said in the status line instead.
    void RunOnSelectedCard(std::function<void(Korvex::acPKCS11&)> work,
                           std::function<void(const std::string&)> done, bool readWrite = false);
    // Locks the window and runs `work` on the worker thread; `done` runs on
    // the GUI thread afterwards unless the window is closing. False when
    // the thread could not start (the window is unlocked again).
    bool StartCardWork(std::function<void()> work, std::function<void()> done);
    void ShowRows(const ListEntryVector& rows, const std::string& keepSelected);
    // Marks the PIN states of cards whose objects could not be read as
    // unknown; their numbers, or empty when every card was read.
    static wxString MarkCardsWithUnreadData(const ListEntryVector& rows);
    // Under an empty list: no reader, or no card in one. Hidden otherwise,
    // and when the slot list itself could not be read (the status says so).
    // `readers`: the readers a refresh found with no card listed; -1 unknown.
    void ShowEmptyListHint(int readers);
    // Screen-reader names of the window's controls, and its keys.
    void SetUpAccessibility();
    void OnSupportKey(wxKeyEvent& event);
    // Locking the window takes the keyboard focus from its controls; these
    // give it back afterwards to the control that had it.
    void RememberKeyboardFocus();
    void RestoreKeyboardFocus();

    wxPanel* panel_main = nullptr;
    wxStaticBitmap* bitmap_banner = nullptr;
    CardList* list_ctrl_cards = nullptr;
    wxBitmapButton* button_reload = nullptr;
    wxStaticBox* sizer_sig_staticbox = nullptr;
    wxStaticBox* sizer_enc_staticbox = nullptr;
    wxStaticBox* sizer_pers_staticbox = nullptr;
    wxButton* button_sig_change_pin = nullptr;
    wxButton* button_sig_puk = nullptr;
    wxButton* button_sig_show_cert = nullptr;
    wxButton* button_sig_test = nullptr;
    wxButton* button_enc_change_pin = nullptr;
    wxButton* button_enc_puk = nullptr;
    wxButton* button_enc_show = nullptr;
    wxButton* button_enc_test = nullptr;
    wxButton* button_pers_change = nullptr;
    wxButton* button_pers_puk = nullptr;
    wxButton* button_pers_show = nullptr;
    wxStaticBitmap* bitmap_status = nullptr;
    wxStaticText* label_status = nullptr;
    wxStaticText* label_pin_state[3] = {nullptr, nullptr, nullptr};
    wxStaticText* label_list_hint = nullptr;

    wxImage m_BannerImage;
    // The list's pictures, in the order the constructor hands them over.
    static constexpr int kChipImage = 0;
    static constexpr int kWarningChipImage = 1;

    wxTimer m_StartTimer;
    wxTimer m_FadeTimer;
    FadeOut m_Fade;
    // Held by value: it is destroyed with the frame's members, before the
    // frame's base class would look at its children.
    PleaseWait m_Wait;

    // Control was held with the last key pressed in the window. The list's
    // key event carries no modifiers, and by the time it is handled the
    // keyboard may already have let go of the key.
    bool m_ControlWithLastKey = false;

    wxString m_Version;
    Korvex::acPKCS11* m_P11 = nullptr;
    RefreshCardThread* m_Thread = nullptr;
    CardWork m_CardWork;
    // Rows of the last refresh, by card number (the list keeps only texts).
    ListEntryVector m_Rows;
    std::string m_SelectedBeforeRefresh;

    // The control that had the keyboard focus when the window was locked.
    wxWindow* m_FocusBeforeLock = nullptr;
    wxTimer m_WatchTimer;
    CardWatch m_Watch;
    bool m_AutoRefresh = true;
    int m_CommandDepth = 0;
    bool m_RefreshWanted = false;
    // After a failed refresh, the next try; each failure waits longer.
    long long m_RetryAtMs = 0;
    int m_RetryDelayMs = 0;

    wxDECLARE_EVENT_TABLE();
};
