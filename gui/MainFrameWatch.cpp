// Main window: cards noticed as they come and go (the watch timer), commands
// kept apart from it, and the selected card's PIN states and certificate
// details.
#include "gui/MainFrame.h"

#include "base/wxHelper.h"
#include "gui/CardList.h"
#include "gui/CardStatusText.h"
#include "gui/Translate.h"
#include "token/acPKCS11.h"

#include <wx/panel.h>
#include <wx/stattext.h>
#include <wx/time.h>

MainFrame::CommandScope::CommandScope(MainFrame* frame) : m_Frame(frame)
{
    ++m_Frame->m_CommandDepth;
}

MainFrame::CommandScope::~CommandScope()
{
    --m_Frame->m_CommandDepth;
}

void MainFrame::evt_OnWatchTimer(wxTimerEvent& /*event*/)
{
    // Nothing may call into the module beside a refresh or a command (the
    // modal dialogs of a command run this timer in their own event loop).
    if (IsClosing() || IsRefreshRunning() || IsCommandRunning() || !list_ctrl_cards->IsEnabled())
        return;
    bool refresh = m_RefreshWanted;
    if (m_RetryAtMs != 0 && wxGetLocalTimeMillis().GetValue() >= m_RetryAtMs) {
        m_RetryAtMs = 0;
        refresh = true;
    }
    if (m_AutoRefresh && m_Watch.Changed(*m_P11))
        refresh = true;
    if (refresh) {
        m_RefreshWanted = false;
        wxCommandEvent reload;
        evt_reload(reload);
    }
}

const CardRow* MainFrame::SelectedCardData() const
{
    const int item = list_ctrl_cards->GetSelectedRow();
    if (item == wxNOT_FOUND)
        return nullptr;
    const wxString number = list_ctrl_cards->RowText(item, 0);
    for (const std::shared_ptr<CardRow>& row : m_Rows)
        if (row->number == number)
            return row.get();
    return nullptr;
}

bool MainFrame::SelectedCardReader(std::string& number, Korvex::TokenType& type, CK_SLOT_ID& slotId)
{
    GetSelectedItem(number, type);
    const CardRow* row = SelectedCardData();
    if (row == nullptr || number.empty() || number == EMPTY_CARD)
        return false;
    slotId = row->slotId;
    return true;
}

void MainFrame::ShowSelectedCardState()
{
    const CardRow* row = SelectedCardData();
    for (int appl = Korvex::APPL_SIGNATURE; appl <= Korvex::APPL_IDENTITY_LINK; ++appl) {
        const Korvex::PinStatus* pin = row != nullptr ? &row->pins.pins[appl] : nullptr;
        const PinActions actions = row != nullptr ? PinActionsFor(row->type, static_cast<Korvex::ApplType>(appl))
                                                  : PinActions();
        label_pin_state[appl]->SetLabel(pin != nullptr ? PinStatusText(*pin, actions) : wxString());
        // Locked or one try left: the line must catch the eye before a try.
        const bool warn = pin != nullptr && pin->known && (pin->locked || pin->finalTry);
        label_pin_state[appl]->SetForegroundColour(warn ? wxColour(176, 0, 0) : wxNullColour);
    }
    panel_main->Layout();
}
