// Main window: a command's card work on the worker thread (PIN change and
// unblock, during which the module shows its own PIN dialogue, and reading a
// certificate for the viewer), with the window locked as a refresh locks it,
// and its result shown afterwards.
#include "gui/MainFrame.h"

#include "app/VessaCardsLogger.h"
#include "gui/CardSession.h"
#include "gui/Translate.h"
#include "token/CardPinStates.h"
#include "token/acPKCS11.h"

#include <memory>

void MainFrame::RunOnSelectedCard(std::function<void(Korvex::acPKCS11&)> work,
                                  std::function<void(const std::string&)> done)
{
    // One command at a time: a second click while one runs does nothing.
    if (IsCardWorkRunning() || IsRefreshRunning() || IsClosing())
        return;
    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_ACOS_A03;
    CK_SLOT_ID slot = 0;
    const bool slotKnown = SelectedCardReader(number, type, slot);
    if (number == EMPTY_CARD) {
        SetStatus(Tr("Dieser Befehl ist mit einer leeren Karte nicht erlaubt!"), true);
        return;
    }
    if (number.empty()) {
        AppLog()->LogError("cannot load card list");
        return;
    }

    auto outcome = std::make_shared<CardSession>(CardSession::OPEN);
    Korvex::acPKCS11* p11 = m_P11;
    StartCardWork(
        [=] {
            *outcome = OpenCardSession(*p11, slot, slotKnown, number);
            if (*outcome != CardSession::OPEN)
                return;
            work(*p11);
            p11->CloseSession();
        },
        [=] {
            switch (*outcome) {
            case CardSession::CARD_GONE: ReportCardUnreachable(CARD_GONE); return;
            case CardSession::LIST_UNREADABLE: ReportCardUnreachable(CARD_LIST_UNREADABLE); return;
            case CardSession::SESSION_FAILED: ReportCardUnreachable(CARD_UNREADABLE); return;
            case CardSession::OPEN: done(number); return;
            }
        });
}

void MainFrame::RunPinCommand(Korvex::ApplType appl, bool unblock)
{
    struct PinWork {
        Korvex::PKCS11Return result = Korvex::PKCS11_ERROR;
        Korvex::CardPinStates pins;
    };
    auto pinWork = std::make_shared<PinWork>();
    RunOnSelectedCard(
        [=](Korvex::acPKCS11& p11) {
            // The module runs its own PIN dialogue inside these calls.
            pinWork->result = unblock ? p11.UnblockPIN(appl) : p11.ChangePIN(appl);
            // The user sees at once what the attempt cost.
            Korvex::TokenInfoStruct2 info;
            if (p11.GetTokenInfoForSlot(p11.GetSessionSlotId(), info))
                pinWork->pins = Korvex::ReadCardPinStates(p11, info);
        },
        [=](const std::string& number) {
            ApplyPinStates(number, pinWork->pins);
            if (unblock)
                SetStatusPinUnblock(pinWork->result);
            else
                SetStatusPinChange(pinWork->result);
        });
}

bool MainFrame::StartCardWork(std::function<void()> work, std::function<void()> done)
{
    ++m_CommandDepth;
    RememberKeyboardFocus();
    MyEnable(false);
    m_Wait.Centre(wxBOTH);
    // The main window keeps the keyboard: it gets it back when unlocked.
    m_Wait.ShowWithoutActivating();
    const bool started = m_CardWork.Start(std::move(work), [this, done = std::move(done)] {
        if (!IsClosing()) {
            m_Wait.Hide();
            MyEnable(true);
            RestoreKeyboardFocus();
            // Showing the result yields to the event loop: the watch must not
            // start a refresh before the result is in place.
            if (done)
                done();
        }
        --m_CommandDepth;
    });
    if (started)
        return true;
    AppLog()->LogError("cannot start card work thread");
    m_Wait.Hide();
    MyEnable(true);
    RestoreKeyboardFocus();
    --m_CommandDepth;
    return false;
}

void MainFrame::ApplyPinStates(const std::string& number, const Korvex::CardPinStates& pins)
{
    for (long item = 0; item < list_ctrl_cards->GetItemCount(); ++item) {
        if (list_ctrl_cards->GetItemText(item, 0) != wxString::FromUTF8(number.c_str()))
            continue;
        for (const std::shared_ptr<ListEntryData>& row : m_Rows)
            if (row->number == list_ctrl_cards->GetItemText(item, 0))
                row->pins = pins;
        list_ctrl_cards->SetItemImage(item, pins.NeedsAttention() ? m_WarningImageIndex : m_ChipImageIndex);
    }
    ShowSelectedCardState();
    ApplySelectionRules();
}
