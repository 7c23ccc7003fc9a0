// Main window: the card list, its selection rules, popup menu, keyboard copy
// and the background refresh that fills it.
#include "gui/MainFrame.h"

#include "app/VessaCardsLogger.h"
#include "base/wxHelper.h"
#include "gui/CardStatusText.h"
#include "gui/RefreshCardThread.h"
#include "gui/Translate.h"
#include "token/acPKCS11.h"

#include <wx/app.h>
#include <wx/bmpbuttn.h>
#include <wx/button.h>
#include <wx/clipbrd.h>
#include <wx/dataobj.h>
#include <wx/menu.h>
#include <wx/utils.h>

#include <algorithm>
#include <memory>

#include <ctime>
#include <vector>

namespace {

const wxColour kNotValidBackground(255, 205, 205);
const wxColour kExpiresSoonBackground(255, 228, 170);
// Waits before a failed refresh is tried again: doubled on each failure.
const int kFirstRetryMs = 2000;
const int kLongestRetryMs = 60000;

} // namespace

void MainFrame::GetSelectedItem(std::string& number, Korvex::TokenType& type)
{
    number.clear();
    long item = list_ctrl_cards->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED);
    if (item == -1) {
        item = list_ctrl_cards->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_DONTCARE);
        if (item == -1)
            return;
        list_ctrl_cards->SetItemState(item, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
        wxYieldIfNeeded();
        // The yield may have run a handler that emptied the list.
        if (item >= list_ctrl_cards->GetItemCount())
            return;
    }
    number = Korvex::WxStr2MB(list_ctrl_cards->GetItemText(item, 0));
    type = static_cast<Korvex::TokenType>(list_ctrl_cards->GetItemData(item));
}

bool MainFrame::GetSlotIdxForSelectedCard(int& slotIdx, Korvex::TokenType& type)
{
    std::string number;
    GetSelectedItem(number, type);
    if (number == EMPTY_CARD) {
        SetStatus(Tr("Dieser Befehl ist mit einer leeren Karte nicht erlaubt!"), true);
        return false;
    }

    std::vector<Korvex::SlotStruct*> slots;
    const bool listed = m_P11->GetSlots(slots, true);
    if (listed) {
        for (size_t i = 0; i < slots.size(); ++i) {
            if (slots[i]->serial == number) {
                slotIdx = static_cast<int>(i);
                return true;
            }
        }
    }
    AppLog()->LogError("cannot load card list");
    if (!number.empty())
        ReportCardUnreachable(listed ? CARD_GONE : CARD_LIST_UNREADABLE);
    return false;
}

void MainFrame::ReportCardUnreachable(CardUnreachable why)
{
    switch (why) {
    case CARD_GONE: SetStatus(Tr("Die Karte steckt nicht mehr im Leser."), true); break;
    case CARD_LIST_UNREADABLE: SetStatus(Tr("Die Kartenliste konnte nicht gelesen werden."), true); break;
    case CARD_UNREADABLE: SetStatus(Tr("Die Karte konnte nicht gelesen werden."), true); break;
    }
    RefreshWhenIdle();
}

void MainFrame::evt_ItemSelected(wxListEvent& /*event*/)
{
    ApplySelectionRules();
    ShowSelectedCardState();
    wxYieldIfNeeded();
}

void MainFrame::ApplySelectionRules()
{
    // A locked window stays locked; unlocking applies the rules again.
    if (!list_ctrl_cards->IsEnabled())
        return;
    wxButton* commands[] = {button_sig_change_pin, button_sig_puk,  button_sig_show_cert, button_sig_test,
                            button_enc_change_pin, button_enc_puk,  button_enc_show,      button_enc_test,
                            button_pers_change,    button_pers_puk, button_pers_show};
    for (wxButton* button : commands)
        button->Enable(true);

    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_UNKNOWN;
    GetSelectedItem(number, type);
    if (!number.empty() && type >= Korvex::TOKEN_ACOS_A03 && type <= Korvex::TOKEN_ECARD_G4) {
        switch (type) {
        case Korvex::TOKEN_ACOS_A03:
            break;
        case Korvex::TOKEN_ACOS_A04:
        case Korvex::TOKEN_ACOS_A05:
            button_pers_change->Enable(false);
            button_pers_puk->Enable(false);
            break;
        default:
            // The e-card generations have no identity-link PIN and no unblock.
            button_pers_change->Enable(false);
            button_pers_puk->Enable(false);
            button_enc_puk->Enable(false);
            button_sig_puk->Enable(false);
            break;
        }
    }
    // A locked PIN can only be unblocked, not changed.
    if (const ListEntryData* row = SelectedCardData()) {
        wxButton* change[] = {button_sig_change_pin, button_enc_change_pin, button_pers_change};
        for (int appl = Korvex::APPL_SIGNATURE; appl <= Korvex::APPL_IDENTITY_LINK; ++appl)
            if (row->pins.pins[appl].known && row->pins.pins[appl].locked)
                change[appl]->Enable(false);
    }
}

wxMenu* MainFrame::CreatePopupMenu(Korvex::TokenType type)
{
    const bool identityLink = type == Korvex::TOKEN_ACOS_A03;

    wxMenu* changePin = new wxMenu();
    changePin->Append(ID_POPUP_ENC_CHANGE_PIN, Tr("Geheimhaltungszertifikat"));
    changePin->Append(ID_POPUP_SIG_CHANGE_PIN, Tr("Signaturzertifikat"));
    if (identityLink)
        changePin->Append(ID_POPUP_PERS_CHANGE_PIN, Tr("Personenbindung"));

    wxMenu* unblockPin = new wxMenu();
    unblockPin->Append(ID_POPUP_ENC_PUK, Tr("Geheimhaltungszertifikat"));
    unblockPin->Append(ID_POPUP_SIG_PUK, Tr("Signaturzertifikat"));
    if (identityLink)
        unblockPin->Append(ID_POPUP_PERS_PUK, Tr("Personenbindung"));

    wxMenu* showCert = new wxMenu();
    showCert->Append(ID_POPUP_ENC_SHOW, Tr("Geheimhaltungszertifikat"));
    showCert->Append(ID_POPUP_SIG_SHOW, Tr("Signaturzertifikat"));

    wxMenu* signTest = new wxMenu();
    signTest->Append(ID_POPUP_ENC_TEST, Tr("Geheimhaltungszertifikat"));
    signTest->Append(ID_POPUP_SIG_TEST, Tr("Signaturzertifikat"));

    wxMenu* menu = new wxMenu();
    menu->AppendSubMenu(changePin, Tr("PIN ändern"));
    // The missing "t" is how the users know this menu; keep it.
    menu->AppendSubMenu(unblockPin, Tr("PIN ensperren"));
    menu->AppendSeparator();
    menu->AppendSubMenu(showCert, Tr("Zertifikat anzeigen"));
    menu->Append(ID_POPUP_PERS_SHOW, Tr("Infobox anzeigen"));
    menu->AppendSeparator();
    menu->AppendSubMenu(signTest, Tr("Signatur testen"));
    AppendSupportEntries(menu);
    return menu;
}

void MainFrame::evt_ItemRightClick(wxListEvent& /*event*/)
{
    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_ACOS_A03;
    GetSelectedItem(number, type);
    wxMenu* menu = CreatePopupMenu(type);
    menu->Bind(wxEVT_MENU, &MainFrame::evt_OnPopupClick, this);
    PopupMenu(menu);
    delete menu;
}

void MainFrame::evt_OnPopupClick(wxCommandEvent& event)
{
    wxCommandEvent command;
    switch (event.GetId()) {
    case ID_POPUP_ENC_CHANGE_PIN: evt_enc_change_pin(command); break;
    case ID_POPUP_SIG_CHANGE_PIN: evt_sig_change_pin(command); break;
    case ID_POPUP_PERS_CHANGE_PIN: evt_pers_change(command); break;
    case ID_POPUP_ENC_PUK: evt_enc_puk(command); break;
    case ID_POPUP_SIG_PUK: evt_sig_puk(command); break;
    case ID_POPUP_PERS_PUK: evt_pers_puk(command); break;
    case ID_POPUP_ENC_SHOW: evt_enc_show(command); break;
    case ID_POPUP_SIG_SHOW: evt_sig_show_cert(command); break;
    case ID_POPUP_PERS_SHOW: evt_pers_show(command); break;
    case ID_POPUP_ENC_TEST: evt_enc_test(command); break;
    case ID_POPUP_SIG_TEST: evt_sig_test(command); break;
    default: RunSupportCommand(event.GetId()); break;
    }
}

void MainFrame::evt_ItemDoubleClick(wxListEvent& /*event*/)
{
    // The encryption certificate, else the signature certificate.
    ShowCertificate({false, true});
}

void MainFrame::OnCharHook(wxKeyEvent& event)
{
    m_ControlWithLastKey = event.ControlDown();
    event.Skip();
}

void MainFrame::evt_ListKeyDown(wxListEvent& event)
{
    const int key = event.GetKeyCode();
    const bool control = m_ControlWithLastKey || wxGetKeyState(WXK_CONTROL);
    if ((key == 'C' || key == 'c') && control) {
        std::string number;
        Korvex::TokenType type = Korvex::TOKEN_ACOS_A03;
        GetSelectedItem(number, type);
        if (!number.empty() && wxTheClipboard->Open()) {
            wxTheClipboard->SetData(new wxTextDataObject(wxString::FromUTF8(number.c_str())));
            wxTheClipboard->Close();
        }
    }
    event.Skip();
}

bool MainFrame::IsClosing() const
{
    return IsBeingDeleted() ||
           (wxTheApp != nullptr && wxTheApp->IsScheduledForDestruction(const_cast<MainFrame*>(this)));
}

bool MainFrame::StartRefreshThread()
{
    m_Thread = new RefreshCardThread(this, m_P11);
    if (m_Thread->Create() == wxTHREAD_NO_ERROR) {
        m_Thread->SetPriority(50);
        if (m_Thread->Run() == wxTHREAD_NO_ERROR)
            return true;
    }
    delete m_Thread;
    m_Thread = nullptr;
    return false;
}

void MainFrame::evt_reload(wxCommandEvent& /*event*/)
{
    // The start timer may still fire for a window that is being closed, and
    // the watch may want a refresh while one runs; card work of a command
    // keeps the module to itself.
    if (IsClosing() || IsRefreshRunning() || IsCardWorkRunning())
        return;
    AppLog()->LogMessage("evt_reload");
    Korvex::TokenType type = Korvex::TOKEN_UNKNOWN;
    const long selected = list_ctrl_cards->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED);
    m_SelectedBeforeRefresh.clear();
    if (selected != -1)
        GetSelectedItem(m_SelectedBeforeRefresh, type);
    RememberKeyboardFocus();
    MyEnable(false);
    m_Wait.Centre(wxBOTH);
    m_Wait.ShowWithoutActivating();
    list_ctrl_cards->DeleteAllItems();
    // From here until the thread-finished event only the thread uses the
    // token object; the locked window keeps every command away from it.
    if (StartRefreshThread())
        return;

    AppLog()->LogError("cannot start card refresh thread");
    MyEnable(true);
    wxYieldIfNeeded();
}

void MainFrame::evt_ThreadFinished(wxCommandEvent& /*event*/)
{
    if (m_Thread == nullptr)
        return;
    m_Thread->Wait();
    std::unique_ptr<RefreshCardThread> thread(m_Thread);
    m_Thread = nullptr;
    const ListEntryVector rows = thread->GetList();
    // A window closed during the refresh has already given up its controls.
    if (IsClosing())
        return;

    ShowRows(rows, m_SelectedBeforeRefresh);
    if (thread->SlotListFailed() || thread->UnreadableCards() > 0) {
        SetStatus(thread->SlotListFailed() ? Tr("Die Kartenliste konnte nicht gelesen werden.")
                                           : Tr("Eine Karte konnte nicht gelesen werden."),
                  true);
        // A one-off failure goes away with the next try.
        m_RetryDelayMs = m_RetryDelayMs == 0 ? kFirstRetryMs : std::min(2 * m_RetryDelayMs, kLongestRetryMs);
        m_RetryAtMs = wxGetLocalTimeMillis().GetValue() + m_RetryDelayMs;
    } else {
        m_RetryDelayMs = 0;
        m_RetryAtMs = 0;
    }
    thread.reset();

    MyEnable(true);
    m_Wait.Hide();
    FocusSelectedCard();
}

void MainFrame::ShowRows(const ListEntryVector& rows, const std::string& keepSelected)
{
    m_Rows = rows;
    const std::time_t now = std::time(nullptr);
    // Every row goes in at the position of the one before, so the last card
    // read ends up on top.
    long index = 0;
    for (const std::shared_ptr<ListEntryData>& row : rows) {
        const int image = row->pins.NeedsAttention() ? m_WarningImageIndex : m_ChipImageIndex;
        index = list_ctrl_cards->InsertItem(index, row->number, image);
        // The placeholder is the only holder text of the program's own.
        list_ctrl_cards->SetItem(index, 1, row->holder == wxString::FromUTF8("unbekannt") ? Tr("unbekannt") : row->holder);
        list_ctrl_cards->SetItem(index, 2, row->typeName);
        list_ctrl_cards->SetItem(index, 3, ValidUntilText(*row, now));
        list_ctrl_cards->SetItemData(index, row->type);
        const ValidityMark mark = CertificateValidity(*row, now);
        if (mark == VALIDITY_NOT_VALID)
            list_ctrl_cards->SetItemBackgroundColour(index, kNotValidBackground);
        else if (mark == VALIDITY_EXPIRES_SOON)
            list_ctrl_cards->SetItemBackgroundColour(index, kExpiresSoonBackground);
    }
    // The card selected before stays selected while it is there.
    long selected = 0;
    for (long row = 0; row < list_ctrl_cards->GetItemCount(); ++row)
        if (!keepSelected.empty() && Korvex::WxStr2MB(list_ctrl_cards->GetItemText(row, 0)) == keepSelected)
            selected = row;
    if (list_ctrl_cards->GetItemCount() > 0)
        list_ctrl_cards->SetItemState(selected, wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED,
                                      wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED);
    else
        ShowSelectedCardState();
}
