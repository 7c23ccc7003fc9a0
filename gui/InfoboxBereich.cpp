// Infobox viewer dialog: reading the card's data objects, the object list in
// its two layouts, the content pages and the protection switch.
#include "gui/InfoboxBereich.h"

#include "base/ByteArray.h"
#include "gui/Accessibility.h"
#include "formats/InfoboxFS.h"
#include "formats/Personenbindung.h"
#include "gui/CardSession.h"
#include "gui/NoPersB.h"
#include "gui/HiDpiArt.h"
#include "gui/Images.h"
#include "gui/Translate.h"
#include "gui/WriterRun.h"
#include "token/acPKCS11.h"

#include <wx/app.h>
#include <wx/button.h>
#include <wx/listbox.h>
#include <wx/notebook.h>
#include <wx/sizer.h>
#include <wx/statbox.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/utils.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>


namespace {

// An object whose first bytes are all zero was never written.
constexpr std::size_t kEmptyProbeBytes = 128;

// Type byte of an infobox entry: bit 0 marks PIN-protected storage.
constexpr unsigned char kProtectedBit = 0x01;
constexpr unsigned char kIdentityLinkTag = 1;

const char kFixedIdentityLink[] = "Personenbindung";
const char kFixedRfu1[] = "RFU1";
const char kFixedRfu2[] = "RFU2";

wxString U8(const std::string& text) { return wxString::FromUTF8(text.data(), text.size()); }

bool AllZero(const std::vector<unsigned char>& bytes, std::size_t count) {
    const std::size_t n = std::min(bytes.size(), count);
    return std::all_of(bytes.begin(), bytes.begin() + static_cast<long>(n),
                       [](unsigned char b) { return b == 0; });
}

// Text page of data that is not an identity link: UTF-8 where the bytes are
// valid UTF-8, else one character per byte; control characters other than
// line ends and tabs show as dots.
wxString BytesAsText(const std::vector<unsigned char>& bytes) {
    wxString text = wxString::FromUTF8(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.empty() && !bytes.empty())
        text = wxString(reinterpret_cast<const char*>(bytes.data()), wxConvISO8859_1, bytes.size());
    wxString shown;
    shown.reserve(text.length());
    for (wxUniChar c : text) {
        const wxUint32 code = c.GetValue();
        const bool control = code < 0x20 || (code >= 0x7F && code < 0xA0);
        shown += (control && c != '\n' && c != '\r' && c != '\t') ? wxUniChar('.') : c;
    }
    return shown;
}

wxString IdentityLinkSummary(const std::vector<unsigned char>& bytes) {
    // parse() wants a writable buffer.
    std::vector<unsigned char> copy(bytes);
    Korvex::Personenbindung link;
    link.parse(copy.data(), static_cast<int>(copy.size()));
    return Tr("Vorname: ") + U8(link.getGivenName()) + wxT("\r\n") + Tr("Nachname: ") +
           U8(link.getFamilyName()) + wxT("\r\n") + Tr("Geburtsdatum: ") + U8(link.getDateOfBirth()) +
           wxT("\r\n\r\nIssuerTemplate: ") + U8(link.getIssuerTemplate()) +
           wxT("\r\nIssueInstant: ") + U8(link.getIssueInstant());
}

} // namespace

wxBEGIN_EVENT_TABLE(InfoboxBereich, wxDialog)
    EVT_TIMER(InfoboxBereich::ID_START_TIMER, InfoboxBereich::evt_OnTimer)
    EVT_LISTBOX(InfoboxBereich::ID_LISTBOX, InfoboxBereich::evt_listbox)
    EVT_BUTTON(InfoboxBereich::ID_PROTECT, InfoboxBereich::evt_encrypt)
    EVT_BUTTON(InfoboxBereich::ID_CLOSE, InfoboxBereich::evt_button_close)
    EVT_CLOSE(InfoboxBereich::evt_Close)
wxEND_EVENT_TABLE()

InfoboxBereich::InfoboxBereich(wxWindow* parent, Korvex::TokenType type)
    : wxDialog(parent, wxID_ANY, Tr("Infoboxbereich"), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      m_type(type),
      m_infobox(new LibInfobox::InfoboxFS()),
      m_startTimer(this, ID_START_TIMER) {
    m_list = new wxListBox(this, ID_LISTBOX, wxDefaultPosition, wxDefaultSize, 0, nullptr,
                           wxLB_SINGLE);
    m_notebook = new wxNotebook(this, wxID_ANY);
    m_binary = new wxTextCtrl(m_notebook, wxID_ANY, wxEmptyString, wxDefaultPosition,
                              wxDefaultSize, wxTE_MULTILINE | wxTE_READONLY);
    m_textPage = new wxTextCtrl(m_notebook, wxID_ANY, wxEmptyString, wxDefaultPosition,
                                wxDefaultSize, wxTE_MULTILINE | wxTE_READONLY);
    m_protect = new wxButton(this, ID_PROTECT, Tr("unverschlüsselt speichern"));
    m_close = new wxButton(this, ID_CLOSE, Tr("Schließen"));
    m_notice = new wxStaticText(this, wxID_ANY, wxEmptyString);
    SetIcons(ProgramIcons(GetContentScaleFactor()));
    set_properties();
    do_layout();
}

InfoboxBereich::~InfoboxBereich() { m_startTimer.Stop(); }

void InfoboxBereich::set_properties() {
    const wxFont fixed(10, wxFONTFAMILY_TELETYPE, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL, false,
                       wxT("Courier New"));
    m_binary->SetFont(fixed);
    m_textPage->SetFont(fixed);
    m_list->SetMinSize(wxSize(220, 260));
    m_notebook->SetMinSize(wxSize(520, 260));
    m_protect->Disable();
    SetEscapeId(ID_CLOSE);
    Accessibility::SetName(m_list, Tr("Objekte des Infoboxbereichs"));
    Accessibility::SetName(m_binary, Tr("Binary"));
    Accessibility::SetName(m_textPage, Tr("Text"));
    Accessibility::MarkAsNotification(m_notice);
    m_notice->Hide();
}

void InfoboxBereich::do_layout() {
    m_notebook->AddPage(m_binary, Tr("Binary"));
    m_notebook->AddPage(m_textPage, Tr("Text"));

    wxStaticBoxSizer* content = new wxStaticBoxSizer(wxVERTICAL, this, Tr("Inhalt"));
    content->Add(m_notebook, 1, wxEXPAND | wxALL, 4);

    wxBoxSizer* body = new wxBoxSizer(wxHORIZONTAL);
    body->Add(m_list, 0, wxEXPAND | wxALL, 8);
    body->Add(content, 1, wxEXPAND | wxTOP | wxRIGHT | wxBOTTOM, 8);

    wxBoxSizer* buttons = new wxBoxSizer(wxHORIZONTAL);
    buttons->Add(m_protect, 0, wxRIGHT, 8);
    buttons->AddStretchSpacer();
    buttons->Add(m_close, 0);

    wxBoxSizer* top = new wxBoxSizer(wxVERTICAL);
    top->Add(body, 1, wxEXPAND);
    top->Add(m_notice, 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 8);
    top->Add(buttons, 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 8);
    SetSizer(top);
    top->Fit(this);
    Layout();
}

void InfoboxBereich::SetP11(Korvex::acPKCS11* token, int slotIndex) {
    m_token = token;
    m_openSession = [slotIndex](Korvex::acPKCS11& p11, bool readWrite) {
        return p11.OpenSession(slotIndex, readWrite);
    };
    m_readTokenInfo = [slotIndex](Korvex::acPKCS11& p11, Korvex::TokenInfoStruct2& info) {
        return p11.GetTokenInfo(static_cast<unsigned long>(slotIndex), info);
    };
}

void InfoboxBereich::SetCard(Korvex::acPKCS11* token, CK_SLOT_ID slotId, const std::string& number) {
    m_token = token;
    m_openSession = [slotId, number](Korvex::acPKCS11& p11, bool readWrite) {
        return OpenCardSession(p11, slotId, true, number, readWrite) == CardSession::OPEN;
    };
    m_readTokenInfo = [slotId, number](Korvex::acPKCS11& p11, Korvex::TokenInfoStruct2& info) {
        if (p11.GetTokenInfoForSlot(slotId, info) && info.serial == number) return true;
        const int32_t position = p11.findSlotForCin(number);
        return position >= 0 && p11.GetTokenInfo(static_cast<unsigned long>(position), info);
    };
}

int InfoboxBereich::ShowModal() {
    m_startTimer.StartOnce(2);
    const int result = wxDialog::ShowModal();
    // Closed before the first load ran: the owner destroys the dialog next,
    // and a late tick must not start loading (and yielding) in a dialog that
    // the toolkit is about to delete.
    m_startTimer.Stop();
    return result;
}

void InfoboxBereich::MyEnable(bool enable) {
    m_list->Enable(enable);
    m_notebook->Enable(enable);
    m_close->Enable(enable);
    // The protect button follows the selection, never the dialog as a whole.
    if (!enable) m_protect->Disable();
}

void InfoboxBereich::ShowNoPersB() {
    NoPersB dialog(this, wxID_ANY, Tr("Keine Personenbindung"));
    dialog.ShowModal();
    if (WriterRun* run = dialog.TakeWriterRun()) AwaitWriter(run);
}

void InfoboxBereich::AwaitCardWork(std::function<void()> work) {
    const bool wasEnabled = m_list->IsEnabled();
    // The controls go off meanwhile and take the keyboard focus with them.
    wxWindow* focus = FindFocus();
    MyEnable(false);
    m_cardWork.RunAndWait(std::move(work));
    if (wasEnabled) MyEnable(true);
    if (focus == nullptr || wxGetTopLevelParent(focus) != this || !focus->IsEnabled()) focus = m_list;
    if (m_list->IsEnabled()) focus->SetFocus();
}

void InfoboxBereich::evt_Close(wxCloseEvent& event) {
    if ((m_cardWork.Running() || m_writerRunning) && event.CanVeto()) {
        event.Veto();
        return;
    }
    event.Skip();
}

bool InfoboxBereich::LoadInfoboxData(const std::string& label, std::vector<unsigned char>& out) {
    m_cachedContent.clear();
    if (m_token == nullptr) return false;
    bool read = false;
    bool failed = false;
    std::vector<unsigned char> value;
    Korvex::acPKCS11* token = m_token;
    AwaitCardWork([&] {
        const bool open = m_openSession(*token, false);
        read = open && token->ReadDataObject(label, value);
        if (!read) {
            // Absent is the one failure that means "not on the card".
            CK_OBJECT_CLASS dataClass = CKO_DATA;
            CK_ATTRIBUTE search[] = {
                {CKA_CLASS, &dataClass, sizeof(dataClass)},
                {CKA_LABEL, const_cast<char*>(label.data()), label.size()},
            };
            CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
            CK_ULONG found = 0;
            failed = !open || !token->FindObjects(search, 2, &handle, 1, found) || found > 0;
        }
        token->CloseSession();
    });
    m_readFailed = failed;
    if (read) {
        out.swap(value);
        if (AllZero(out, kEmptyProbeBytes))
            out.clear();
        else
            m_cachedContent = out;
        return true;
    }
    if (!out.empty()) m_cachedContent = out;
    return false;
}

void InfoboxBereich::evt_OnTimer(wxTimerEvent&) {
    if (wxTheApp != nullptr && wxTheApp->IsScheduledForDestruction(this)) return;
    LoadObjectList();
}

void InfoboxBereich::LoadObjectList() {
    m_list->Clear();
    m_lastSelection.clear();
    m_readFailed = false;
    MyEnable(false);
    wxYieldIfNeeded();
    Korvex::TokenInfoStruct2 info;
    bool haveInfo = false;
    if (m_token != nullptr) {
        Korvex::acPKCS11* token = m_token;
        AwaitCardWork([&] { haveInfo = m_readTokenInfo(*token, info); });
    }
    m_protect->Disable();

    if (haveInfo && info.extended) {
        m_infoboxFileMode = true;
        LoadInfobox();
    } else {
        m_list->Append(Tr(kFixedIdentityLink));
        m_list->Append(Tr(kFixedRfu1));
        m_list->Append(Tr(kFixedRfu2));
    }

    MyEnable(true);
    // The controls were off while the card was read, so nothing in the
    // dialog holds the keyboard; without a focus its keys (Escape) go nowhere.
    // The close button takes it: the list would choose its first object on
    // taking the focus, which is no choice of the user's.
    m_close->SetFocus();
    if (m_list->IsEmpty()) {
        if (m_readFailed)
            ShowReadError();
        else
            ShowNoPersB();
    }
}

void InfoboxBereich::ShowNotice(const wxString& text) {
    m_notice->SetLabel(text);
    Accessibility::Announce(m_notice, text);
    Layout();
}

void InfoboxBereich::ShowReadError() {
    ShowNotice(Tr("Die Karte konnte nicht gelesen werden."));
}

void InfoboxBereich::AwaitWriter(WriterRun* run) {
    MyEnable(false);
    ShowNotice(Tr("Die Personenbindung wird geschrieben …"));
    // The writer runs its own module session and PIN dialogue; this window
    // keeps repainting and refuses to close until it has ended.
    m_writerRunning = true;
    while (!run->Finished()) {
        wxTheApp->SafeYieldFor(nullptr, wxEVT_CATEGORY_ALL);
        wxMilliSleep(20);
    }
    m_writerRunning = false;
    const wxString output = run->Output();
    const bool written = run->ExitStatus() == 0;
    delete run;
    wxString result = written ? Tr("Die Personenbindung wurde auf die Karte geschrieben.")
                              : Tr("Die Personenbindung konnte nicht geschrieben werden.");
    if (!output.empty()) result += "\n" + output;
    MyEnable(true);
    LoadObjectList();
    ShowIdentityLinkIfPresent();
    ShowNotice(result);
}

void InfoboxBereich::ShowIdentityLinkIfPresent() {
    for (unsigned i = 0; i < m_list->GetCount(); ++i) {
        const wxString item = m_list->GetString(i);
        const bool identityLink = m_infoboxFileMode ? TagFromItem(item) == kIdentityLinkTag
                                                    : item.IsSameAs(Tr(kFixedIdentityLink), false);
        if (!identityLink) continue;
        std::vector<unsigned char> content;
        LoadInfoboxData(m_infoboxFileMode ? DataObjectLabel(kIdentityLinkTag) : "PERSONENBINDUNG", content);
        if (content.empty()) return;
        m_list->SetSelection(static_cast<int>(i));
        m_lastSelection = item;
        SetContent(content, CONTENT_IDENTITY_LINK);
        return;
    }
}

bool InfoboxBereich::LoadInfobox() {
    m_list->Clear();
    std::vector<unsigned char> file;
    if (!LoadInfoboxData("INFOBOX", file)) return false;
    m_infobox->Clear();
    if (!m_infobox->ParseInfoboxData(Korvex::ByteArray(file))) {
        // Garbage where the file should be is a read error, not a card
        // without an identity link.
        m_readFailed = !file.empty();
        return false;
    }

    for (unsigned char tag : m_infobox->GetTagList()) {
        const std::string label = LibInfobox::InfoboxFS::TagToLabel(tag);
        m_list->Append(wxString::Format(wxT("%02x "), static_cast<unsigned>(tag)) +
                       (label.empty() ? Tr("Unbekannt") : U8(label)));
    }
    m_list->SetSelection(wxNOT_FOUND);
    m_protect->Disable();
    return true;
}

void InfoboxBereich::evt_listbox(wxCommandEvent& event) {
    const wxString text = event.GetString();
    if (text == m_lastSelection) return;
    m_lastSelection = text;
    m_notice->Hide();
    SetContent({}, CONTENT_CLEAR);
    if (m_infoboxFileMode)
        listboxInfoboxKonzept(text);
    else
        listbox(text);
}

void InfoboxBereich::listbox(const wxString& text) {
    std::string label;
    if (text.IsSameAs(Tr(kFixedIdentityLink), false))
        label = "PERSONENBINDUNG";
    else if (text.IsSameAs(Tr(kFixedRfu1), false))
        label = "RFU1";
    else if (text.IsSameAs(Tr(kFixedRfu2), false))
        label = "RFU2";
    else
        return;
    const bool identityLink = label == "PERSONENBINDUNG";

    std::vector<unsigned char> content;
    LoadInfoboxData(label, content);
    if (!content.empty())
        SetContent(content, identityLink ? CONTENT_IDENTITY_LINK : CONTENT_OTHER);
    else if (identityLink && m_readFailed)
        ShowReadError();
    else if (identityLink)
        ShowNoPersB();
}

unsigned char InfoboxBereich::TagFromItem(const wxString& text) {
    const std::string head = text.Left(3).ToStdString();
    return static_cast<unsigned char>(std::strtol(head.c_str(), nullptr, 16) & 0xFF);
}

std::string InfoboxBereich::DataObjectLabel(unsigned char tag) {
    char label[8];
    std::snprintf(label, sizeof label, "0x%02x", static_cast<unsigned>(tag));
    return label;
}

void InfoboxBereich::listboxInfoboxKonzept(const wxString& text) {
    const unsigned char tag = TagFromItem(text);
    unsigned char type = 0;
    Korvex::ByteArray entryData;
    if (!m_infobox->GetEntry(tag, type, entryData)) return;

    if (type == 0)
        m_protect->SetLabel(Tr("verschlüsselt speichern"));
    else if (type & kProtectedBit)
        m_protect->SetLabel(Tr("unverschlüsselt speichern"));

    std::vector<unsigned char> content;
    LoadInfoboxData(DataObjectLabel(tag), content);
    if (!content.empty()) {
        SetContent(content, tag == kIdentityLinkTag ? CONTENT_IDENTITY_LINK : CONTENT_OTHER);
        m_protect->Enable();
    } else if (tag == kIdentityLinkTag && m_readFailed) {
        ShowReadError();
    } else if (tag == kIdentityLinkTag) {
        ShowNoPersB();
    }
}

void InfoboxBereich::evt_encrypt(wxCommandEvent&) {
    if (m_token == nullptr) return;
    const int selected = m_list->GetSelection();
    if (selected == wxNOT_FOUND) return;
    const unsigned char tag = TagFromItem(m_list->GetString(static_cast<unsigned>(selected)));
    unsigned char type = 0;
    Korvex::ByteArray entryData;
    if (!m_infobox->GetEntry(tag, type, entryData)) return;

    const std::string label = DataObjectLabel(tag);
    // What was shown last is what goes back; only an unread object is read.
    std::vector<unsigned char> content = m_cachedContent;
    const bool protect = (type & kProtectedBit) == 0;
    bool written = false;
    Korvex::acPKCS11* token = m_token;
    AwaitCardWork([&] {
        if (!m_openSession(*token, true)) return;
        bool isPrivate = false;
        if (!content.empty() || token->ReadDataObject(label, content, isPrivate))
            written = token->WriteDataObject(label, content, protect);
        token->CloseSession();
    });

    if (written) {
        SetContent({}, CONTENT_CLEAR);
        m_lastSelection.clear();
        LoadInfobox();
    }
}

void InfoboxBereich::evt_button_close(wxCommandEvent&) {
    if (IsModal())
        EndModal(0);
    else
        Hide();
}

void InfoboxBereich::SetContent(const std::vector<unsigned char>& bytes, ContentType type) {
    if (type == CONTENT_CLEAR || bytes.empty()) {
        m_binary->Clear();
        m_textPage->Clear();
        return;
    }
    m_binary->SetValue(U8(Korvex::ByteArray(bytes).ToHexString(1)));
    m_textPage->SetValue(type == CONTENT_IDENTITY_LINK ? IdentityLinkSummary(bytes)
                                                       : BytesAsText(bytes));
}
