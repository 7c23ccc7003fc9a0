// Main window: the card list, its selection rules, popup menu, keyboard copy
// and the background refresh that fills it.
#include "gui/MainFrame.h"

#include "app/VessaCardsLogger.h"
#include "base/wxHelper.h"
#include "gui/CardList.h"
#include "gui/CardStatusText.h"
#include "gui/RefreshCardThread.h"
#include "gui/Translate.h"
#include "token/LoadFreeLib.h"
#include "token/TokenProfile.h"
#include "token/acPKCS11.h"

#include <wx/app.h>
#include <wx/bmpbuttn.h>
#include <wx/button.h>
#include <wx/clipbrd.h>
#include <wx/dataobj.h>
#include <wx/menu.h>
#include <wx/panel.h>
#include <wx/stattext.h>
#include <wx/statbox.h>
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
    int item = list_ctrl_cards->GetSelectedRow();
    if (item == wxNOT_FOUND) {
        if (list_ctrl_cards->GetItemCount() == 0)
            return;
        item = 0;
        list_ctrl_cards->SelectRow(item);
        wxYieldIfNeeded();
        // The yield may have run a handler that emptied the list.
        if (item >= list_ctrl_cards->GetItemCount())
            return;
    }
    number = Korvex::WxStr2MB(list_ctrl_cards->RowText(item, 0));
    type = static_cast<Korvex::TokenType>(list_ctrl_cards->RowData(item));
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

void MainFrame::evt_ItemSelected(wxDataViewEvent& /*event*/)
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
    const CardRow* selected = SelectedCardData();
    // A standard token's one user PIN lives in the signature group.
    const bool standard = selected != nullptr && !selected->profile.vendor;
    sizer_sig_staticbox->SetLabel(standard ? Tr("PIN") : Tr("Signaturzertifikat"));
    button_sig_change_pin->SetLabel(standard ? Tr("PIN ändern") : Tr("6 stellige PIN ändern"));
    button_sig_puk->SetLabel(standard ? Tr("PIN entsperren") : Tr("6 stellige PIN entsperren"));
    if (number.empty() && Korvex::IsNamedModule()) {
        // Nothing listed: nothing to act on.
        for (wxButton* button : commands)
            button->Enable(false);
        return;
    }
    if (selected != nullptr && !selected->profile.vendor) {
        // A standard token: one user PIN, its certificates, the signature test.
        for (wxButton* button : commands)
            button->Enable(false);
        button_sig_change_pin->Enable(selected->profile.change[Korvex::APPL_SIGNATURE]);
        button_sig_puk->Enable(selected->profile.unblock[Korvex::APPL_SIGNATURE]);
        button_sig_show_cert->Enable(true);
        button_sig_test->Enable(selected->profile.change[Korvex::APPL_SIGNATURE]);
    } else if (const Korvex::CardGeneration* generation = number.empty() ? nullptr : Korvex::FindGeneration(type)) {
        // What the generation table says the card has.
        button_pers_change->Enable(generation->identityLinkPin);
        button_pers_puk->Enable(generation->identityLinkPin);
        button_enc_puk->Enable(generation->unblock);
        button_sig_puk->Enable(generation->unblock);
    }
    // A locked PIN can only be unblocked, not changed.
    if (const CardRow* row = SelectedCardData()) {
        wxButton* change[] = {button_sig_change_pin, button_enc_change_pin, button_pers_change};
        for (int appl = Korvex::APPL_SIGNATURE; appl <= Korvex::APPL_IDENTITY_LINK; ++appl)
            if (row->pins.pins[appl].known && row->pins.pins[appl].locked)
                change[appl]->Enable(false);
    }
}

wxMenu* MainFrame::CreatePopupMenu(Korvex::TokenType type)
{
    const Korvex::CardGeneration* generation = Korvex::FindGeneration(type);
    const bool identityLink = generation != nullptr && generation->identityLinkPin;

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

wxMenu* MainFrame::CreateStandardPopupMenu(const CardRow& row)
{
    wxMenu* menu = new wxMenu();
    if (row.profile.change[Korvex::APPL_SIGNATURE]) {
        menu->Append(ID_POPUP_SIG_CHANGE_PIN, Tr("PIN ändern"));
        menu->Append(ID_POPUP_SIG_PUK, Tr("PIN entsperren"));
        menu->AppendSeparator();
    }
    wxMenu* certificates = new wxMenu();
    for (size_t i = 0; i < row.certificates.size() && ID_POPUP_CERTIFICATE + i <= ID_POPUP_CERTIFICATE_LAST; ++i)
        certificates->Append(ID_POPUP_CERTIFICATE + static_cast<int>(i), row.certificates[i]);
    menu->AppendSubMenu(certificates, Tr("Zertifikat anzeigen"));
    if (row.profile.change[Korvex::APPL_SIGNATURE]) {
        menu->AppendSeparator();
        menu->Append(ID_POPUP_SIG_TEST, Tr("Signatur testen"));
    }
    return menu;
}

void MainFrame::evt_ItemRightClick(wxDataViewEvent& event)
{
    // The tree view leaves the selection alone on a right click; the menu is
    // for the row clicked, as in a list.
    const int clicked = list_ctrl_cards->ItemToRow(event.GetItem());
    if (clicked != wxNOT_FOUND && clicked != list_ctrl_cards->GetSelectedRow())
        list_ctrl_cards->ChooseRow(clicked);
    wxMenu* menu = CreateSelectedCardMenu();
    menu->Bind(wxEVT_MENU, &MainFrame::evt_OnPopupClick, this);
    PopupMenu(menu);
    delete menu;
}

wxMenu* MainFrame::CreateSelectedCardMenu()
{
    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_ACOS_A03;
    GetSelectedItem(number, type);
    const CardRow* row = SelectedCardData();
    return row != nullptr && !row->profile.vendor ? CreateStandardPopupMenu(*row) : CreatePopupMenu(type);
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
    default:
        if (event.GetId() >= ID_POPUP_CERTIFICATE && event.GetId() <= ID_POPUP_CERTIFICATE_LAST)
            ShowStandardCertificate(event.GetId() - ID_POPUP_CERTIFICATE);
        else
            RunSupportCommand(event.GetId());
        break;
    }
}

void MainFrame::evt_ItemDoubleClick(wxDataViewEvent& /*event*/)
{
    // The encryption certificate, else the signature certificate.
    ShowCertificate({false, true});
}

void MainFrame::OnCharHook(wxKeyEvent& event)
{
    m_ControlWithLastKey = event.ControlDown();
    event.Skip();
}

void MainFrame::evt_ListKeyDown(wxKeyEvent& event)
{
    const int key = event.GetKeyCode();
    const bool control = event.ControlDown() || m_ControlWithLastKey || wxGetKeyState(WXK_CONTROL);
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
    m_SelectedBeforeRefresh.clear();
    if (list_ctrl_cards->GetSelectedRow() != wxNOT_FOUND)
        GetSelectedItem(m_SelectedBeforeRefresh, type);
    RememberKeyboardFocus();
    MyEnable(false);
    m_Wait.Centre(wxBOTH);
    m_Wait.ShowWithoutActivating();
    list_ctrl_cards->DeleteAllRows();
    // No row, no PIN lines: what they said belonged to the list just emptied.
    m_Rows.clear();
    ShowSelectedCardState();
    ShowEmptyListHint(-1);
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

    const wxString dataUnread = MarkCardsWithUnreadData(rows);
    ShowRows(rows, m_SelectedBeforeRefresh);
    ShowEmptyListHint(thread->SlotListFailed() ? -1 : thread->ReaderCount());
    const bool cardUnread = thread->UnreadableCards() > 0 || m_P11->UnreadSlotCount() > 0;
    if (thread->SlotListFailed() || cardUnread || !dataUnread.empty()) {
        SetStatus(thread->SlotListFailed() ? Tr("Die Kartenliste konnte nicht gelesen werden.")
                  : cardUnread             ? Tr("Eine Karte konnte nicht gelesen werden.")
                                           : wxString::Format(Tr("Die Daten der Karte %s konnten nicht gelesen werden."),
                                                              dataUnread),
                  true);
        // A one-off failure goes away with the next try.
        m_RetryDelayMs = m_RetryDelayMs == 0 ? kFirstRetryMs : std::min(2 * m_RetryDelayMs, kLongestRetryMs);
        m_RetryAtMs = wxGetLocalTimeMillis().GetValue() + m_RetryDelayMs;
    } else {
        m_RetryDelayMs = 0;
        m_RetryAtMs = 0;
        // A module the user named may have nothing to list: the status line
        // says which, too, as a reason and not only a hint.
        if (rows.empty() && Korvex::IsNamedModule() && label_list_hint->IsShown())
            SetStatus(label_list_hint->GetLabel(), true);
    }
    thread.reset();

    MyEnable(true);
    m_Wait.Hide();
    FocusSelectedCard();
}

wxString MainFrame::MarkCardsWithUnreadData(const ListEntryVector& rows)
{
    // A personalised card always carries its certificates: without one its
    // objects could not be read, and what it said of its PINs is not vouched
    // for either.
    wxString numbers;
    for (const std::shared_ptr<CardRow>& row : rows) {
        if (row->holder != wxString::FromUTF8("unbekannt") || row->number == wxString::FromUTF8(EMPTY_CARD.c_str()))
            continue;
        for (Korvex::PinStatus& pin : row->pins.pins) {
            pin = Korvex::PinStatus();
            pin.unreadable = true;
        }
        numbers += (numbers.empty() ? "" : ", ") + row->number;
    }
    return numbers;
}

void MainFrame::ShowEmptyListHint(int readers)
{
    wxString hint;
    if (readers >= 0 && list_ctrl_cards->GetItemCount() == 0)
        hint = readers == 0 ? Tr("Kein Kartenleser gefunden. Bitte schließen Sie einen Kartenleser an.")
                            : Tr("Keine Karte gefunden. Bitte stecken Sie Ihre Karte in den Kartenleser.");
    label_list_hint->SetLabel(hint);
    label_list_hint->Show(!hint.empty());
    panel_main->Layout();
}

void MainFrame::ShowRows(const ListEntryVector& rows, const std::string& keepSelected)
{
    m_Rows = rows;
    const std::time_t now = std::time(nullptr);
    // Every row goes in at the position of the one before, so the last card
    // read ends up on top.
    int index = 0;
    for (const std::shared_ptr<CardRow>& row : rows) {
        CardList::Row contents;
        // The placeholder is the only holder text of the program's own.
        const wxString holder = row->holder == wxString::FromUTF8("unbekannt") ? Tr("unbekannt") : row->holder;
        contents.texts = {row->number, holder, row->typeName, ValidUntilText(*row, now)};
        contents.image = row->pins.NeedsAttention() ? kWarningChipImage : kChipImage;
        contents.data = row->type;
        const ValidityMark mark = CertificateValidity(*row, now);
        if (mark == VALIDITY_NOT_VALID)
            contents.background = kNotValidBackground;
        else if (mark == VALIDITY_EXPIRES_SOON)
            contents.background = kExpiresSoonBackground;
        contents.toolTip = CertificateDetails(*row);
        // Through p11-kit's proxy rows come from several modules.
        if (!row->module.empty())
            contents.toolTip += (contents.toolTip.empty() ? "" : "\n") + wxString::Format(Tr("Modul: %s"), row->module);
        index = list_ctrl_cards->InsertRow(index, contents);
    }
    // The card selected before stays selected while it is there.
    int selected = 0;
    for (int row = 0; row < list_ctrl_cards->GetItemCount(); ++row)
        if (!keepSelected.empty() && Korvex::WxStr2MB(list_ctrl_cards->RowText(row, 0)) == keepSelected)
            selected = row;
    if (list_ctrl_cards->GetItemCount() > 0)
        list_ctrl_cards->ChooseRow(selected);
    else
        ShowSelectedCardState();
}
