// Slot events, or slot lists compared, between refreshes.
#include "gui/CardWatch.h"

#include "token/acPKCS11.h"

namespace {

// More events than readers cannot be pending; the bound only guards
// against a module that never says "no event".
const int kMostEventsPerLook = 256;

} // namespace

bool CardWatch::Changed(Korvex::acPKCS11& token)
{
    if (m_UseEvents) {
        bool changed = false;
        for (int i = 0; i < kMostEventsPerLook; ++i) {
            CK_SLOT_ID slot = 0;
            const Korvex::SlotEventPoll result = token.PollSlotEvent(slot);
            if (result == Korvex::SLOT_EVENT_SEEN) {
                changed = true;
                continue;
            }
            if (result == Korvex::SLOT_EVENT_UNSUPPORTED) {
                m_UseEvents = false;
                return SlotListChanged(token) || changed;
            }
            break;
        }
        return changed;
    }
    return SlotListChanged(token);
}

bool CardWatch::SlotListChanged(Korvex::acPKCS11& token)
{
    std::vector<CK_SLOT_ID> present;
    if (!token.GetPresentSlotIds(present))
        return false;
    const bool changed = m_Known && present != m_Present;
    m_Present.swap(present);
    m_Known = true;
    return changed;
}
