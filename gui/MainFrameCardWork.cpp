// Main window: a command's card work on the worker thread (PIN change and
// unblock, during which the module shows its own PIN dialogue, and reading a
// certificate for the viewer), with the window locked as a refresh locks it,
// and its result shown afterwards.
#include "gui/MainFrame.h"

#include "app/VessaCardsLogger.h"
#include "gui/CardList.h"
#include "gui/CardSession.h"
#include "gui/StandardPinCommand.h"
#include "gui/Translate.h"

#include <wx/stattext.h>
#include "token/CardPinStates.h"
#include "token/acPKCS11.h"

#include <memory>

void MainFrame::RunOnSelectedCard(std::function<void(Korvex::acPKCS11&)> work,
                                  std::function<void(const std::string&)> done, bool readWrite)
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
            *outcome = OpenCardSession(*p11, slot, slotKnown, number, readWrite);
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
        CK_RV rv = CKR_OK;
        Korvex::CardPinStates pins;
    };
    auto pinWork = std::make_shared<PinWork>();
    const CardRow* row = SelectedCardData();
    const bool standard = row != nullptr && !row->profile.vendor;
    const Korvex::TokenProfile profile = row != nullptr ? row->profile : Korvex::TokenProfile();
    const StandardPinTexts texts =
        standard ? MakeStandardPinTexts(unblock, profile, std::string(row->holder.utf8_str())) : StandardPinTexts();
    RunOnSelectedCard(
        [=](Korvex::acPKCS11& p11) {
            // The vendor's module runs its own PIN dialogue inside its calls;
            // for any other token the program asks.
            if (standard) {
                pinWork->result = RunStandardPinCommand(p11, unblock, profile, texts);
            } else {
                pinWork->result = unblock ? p11.UnblockPIN(appl) : p11.ChangePIN(appl);
                pinWork->rv = p11.LastPinCommandRv();
            }
            // The user sees at once what the attempt cost. The generation is
            // known from the listing; the token flags, which tell an ACOS
            // card's PIN state, may have changed and are read afresh.
            Korvex::TokenInfoStruct2 info;
            const CK_SLOT_ID slot = p11.GetSessionSlotId();
            if (p11.ListedTokenInfo(slot, info) || p11.GetTokenInfoForSlot(slot, info))
                pinWork->pins = Korvex::ReadCardPinStates(p11, info);
        },
        [=](const std::string& number) {
            ApplyPinStates(number, pinWork->pins);
            if (unblock)
                SetStatusPinUnblock(pinWork->result);
            else
                SetStatusPinChange(pinWork->result);
            // The module could not show its PIN dialogue (no desktop session,
            // no pinentry): the defined text stays, the reason follows it.
            if (pinWork->result == Korvex::PKCS11_ERROR && pinWork->rv == CKR_FUNCTION_FAILED) {
                AppLog()->LogMessage("PIN dialogue could not be shown (CKR_FUNCTION_FAILED)");
                SetStatus(GetStatusText()->GetLabel() + "\n" + Tr("Der PIN-Dialog konnte nicht angezeigt werden."),
                          true);
            }
        },
        standard);
}

bool MainFrame::StartCardWork(std::function<void()> work, std::function<void()> done)
{
    ++m_CommandDepth;
    RememberKeyboardFocus();
    MyEnable(false);
    // The card work starts before the wait dialog is put up, so the card's
    // first call does not wait for the dialog to be drawn. Should showing it
    // let the work's end through, the dialog goes again at once.
    auto finished = std::make_shared<bool>(false);
    const bool started = m_CardWork.Start(std::move(work), [this, finished, done = std::move(done)] {
        *finished = true;
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
    if (started) {
        m_Wait.Centre(wxBOTH);
        // The main window keeps the keyboard: it gets it back when unlocked.
        m_Wait.ShowWithoutActivating();
        if (*finished)
            m_Wait.Hide();
        return true;
    }
    AppLog()->LogError("cannot start card work thread");
    MyEnable(true);
    RestoreKeyboardFocus();
    --m_CommandDepth;
    return false;
}

void MainFrame::ApplyPinStates(const std::string& number, const Korvex::CardPinStates& pins)
{
    for (int item = 0; item < list_ctrl_cards->GetItemCount(); ++item) {
        if (list_ctrl_cards->RowText(item, 0) != wxString::FromUTF8(number.c_str()))
            continue;
        for (const std::shared_ptr<CardRow>& row : m_Rows)
            if (row->number == list_ctrl_cards->RowText(item, 0))
                row->pins = pins;
        list_ctrl_cards->SetRowImage(item, pins.NeedsAttention() ? kWarningChipImage : kChipImage);
    }
    ShowSelectedCardState();
    ApplySelectionRules();
}
