// Infobox viewer: lists the data objects of a card's infobox area, shows the
// chosen one as hex and as text (the identity link as a personal summary) and,
// on cards that keep an infobox file, switches an entry between PIN-protected
// and unprotected storage.
#pragma once

#include "gui/CardWork.h"
#include "token/acPKCS11Types.h"

#include <p11-kit/pkcs11.h>

#include <wx/dialog.h>
#include <wx/timer.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

class WriterRun;
class wxButton;
class wxStaticText;
class wxListBox;
class wxNotebook;
class wxTextCtrl;

namespace Korvex {
class acPKCS11;
}
namespace LibInfobox {
class InfoboxFS;
}

class InfoboxBereich : public wxDialog {
public:
    // What SetContent shows.
    enum ContentType { CONTENT_CLEAR = 0, CONTENT_IDENTITY_LINK = 1, CONTENT_OTHER = 2 };

    enum {
        ID_START_TIMER = 5444,
        ID_LISTBOX = wxID_HIGHEST + 5444,
        ID_PROTECT,
        ID_CLOSE
    };

    InfoboxBereich(wxWindow* parent, Korvex::TokenType type);
    ~InfoboxBereich() override;

    // The token object is borrowed from the caller; `slotIndex` is the card's
    // position in the card list.
    void SetP11(Korvex::acPKCS11* token, int slotIndex);
    // The same for the card with this number in reader `slotId`, as the last
    // refresh saw it: no look-up of every card; the full look-up only when
    // another card is in that reader now.
    void SetCard(Korvex::acPKCS11* token, CK_SLOT_ID slotId, const std::string& number);

    // Starts the one-shot start timer, so the first load runs once the dialog
    // is on screen, then runs the modal loop.
    int ShowModal() override;

    void MyEnable(bool enable);
    // Shows the missing-identity-link dialog modally; virtual so that a
    // caller can watch it being asked for.
    virtual void ShowNoPersB();

    virtual void evt_OnTimer(wxTimerEvent& event);
    virtual void evt_listbox(wxCommandEvent& event);
    virtual void evt_encrypt(wxCommandEvent& event);
    virtual void evt_button_close(wxCommandEvent& event);

    void SetContent(const std::vector<unsigned char>& bytes, ContentType type);

    // Card reads and writes run on the card-work thread; meanwhile the dialog
    // repaints with its controls off, and closing it waits.
    bool IsCardWorkRunning() const { return m_cardWork.Running(); }

    // The widgets and state, for callers that drive the dialog without a mouse.
    wxListBox* GetList() const { return m_list; }
    wxTextCtrl* GetBinaryPage() const { return m_binary; }
    wxTextCtrl* GetTextPage() const { return m_textPage; }
    wxButton* GetProtectButton() const { return m_protect; }
    // The line under the content: a read error, or how the writer ended.
    wxStaticText* GetNotice() const { return m_notice; }
    bool IsInfoboxFileMode() const { return m_infoboxFileMode; }

private:
    void set_properties();
    void do_layout();

    // Reads one data object of the card into `out`; see the .cpp for when an
    // object counts as empty.
    bool LoadInfoboxData(const std::string& label, std::vector<unsigned char>& out);
    bool LoadInfobox();
    // Reads the token information and fills the list in the card's layout;
    // an empty list then asks for an identity link, or says the card could
    // not be read when that is why it is empty.
    void LoadObjectList();
    // An object that is there but cannot be read is no missing one.
    void ShowReadError();
    void ShowNotice(const wxString& text);
    // Waits for the writer (this dialog's controls off), shows how it ended
    // and reads the card again, showing the identity link when it is there.
    void AwaitWriter(WriterRun* run);
    void ShowIdentityLinkIfPresent();
    // Runs `work` (module calls only, no widget) on the card-work thread and
    // keeps this dialog's events flowing until it has ended.
    void AwaitCardWork(std::function<void()> work);
    void evt_Close(wxCloseEvent& event);
    void listbox(const wxString& text);
    void listboxInfoboxKonzept(const wxString& text);
    // Tag named by the first characters of a list item.
    static unsigned char TagFromItem(const wxString& text);
    static std::string DataObjectLabel(unsigned char tag);

    Korvex::acPKCS11* m_token = nullptr;
    // How the worker reaches the bound card.
    std::function<bool(Korvex::acPKCS11&, bool readWrite)> m_openSession;
    std::function<bool(Korvex::acPKCS11&, Korvex::TokenInfoStruct2&)> m_readTokenInfo;
    Korvex::TokenType m_type;
    std::unique_ptr<LibInfobox::InfoboxFS> m_infobox;
    bool m_infoboxFileMode = false;
    wxString m_lastSelection;
    std::vector<unsigned char> m_cachedContent;
    wxTimer m_startTimer;
    CardWork m_cardWork;

    wxListBox* m_list = nullptr;
    wxNotebook* m_notebook = nullptr;
    wxTextCtrl* m_binary = nullptr;
    wxTextCtrl* m_textPage = nullptr;
    wxButton* m_protect = nullptr;
    wxButton* m_close = nullptr;
    wxStaticText* m_notice = nullptr;
    // The last LoadInfoboxData failed on a present object, the search or the
    // session, or the infobox file did not parse.
    bool m_readFailed = false;
    bool m_writerRunning = false;

    wxDECLARE_EVENT_TABLE();
};
