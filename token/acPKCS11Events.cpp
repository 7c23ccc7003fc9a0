// Card insertion and removal as the module reports them: one non-blocking
// look for a slot event, so the caller's thread is never held by the module;
// and, from the same events, whether a listed slot still holds the card its
// listing read, which spares a command the token query before its session.
#include "token/acPKCS11.h"

#include "token/acPKCS11Internal.h"

#include <algorithm>

namespace Korvex {

namespace {

// More pending events than a reader row can make in a moment mean a module
// that keeps reporting; the check then gives up and asks the card.
constexpr int kMostEventsDrained = 64;

} // namespace

SlotEventPoll acPKCS11::askSlotEvent(CK_SLOT_ID& slot)
{
    if (Proc_C_WaitForSlotEvent == nullptr)
        return SLOT_EVENT_UNSUPPORTED;
    CK_SLOT_ID reported = 0;
    const CK_RV rv = tokenimpl::callModule(Proc_C_WaitForSlotEvent, CKF_DONT_BLOCK, &reported, nullptr);
    switch (rv) {
    case CKR_OK:
        slot = reported;
        m_ChangedSlots.push_back(reported);
        return SLOT_EVENT_SEEN;
    case CKR_NO_EVENT:
        return SLOT_EVENT_NONE;
    case CKR_FUNCTION_NOT_SUPPORTED:
        return SLOT_EVENT_UNSUPPORTED;
    default:
        LogError("PKCS11 Proc_C_WaitForSlotEvent ERROR", rv);
        return SLOT_EVENT_FAILED;
    }
}

SlotEventPoll acPKCS11::PollSlotEvent(CK_SLOT_ID& slot)
{
    // Events a session check took from the module are still the watch's news.
    if (!m_HeldSlotEvents.empty()) {
        slot = m_HeldSlotEvents.front();
        m_HeldSlotEvents.erase(m_HeldSlotEvents.begin());
        return SLOT_EVENT_SEEN;
    }
    return askSlotEvent(slot);
}

bool acPKCS11::slotUnchangedSinceListing(CK_SLOT_ID slot)
{
    for (int drained = 0; drained < kMostEventsDrained; ++drained) {
        CK_SLOT_ID reported = 0;
        const SlotEventPoll poll = askSlotEvent(reported);
        if (poll == SLOT_EVENT_NONE)
            return std::find(m_ChangedSlots.begin(), m_ChangedSlots.end(), slot) == m_ChangedSlots.end();
        if (poll != SLOT_EVENT_SEEN)
            return false;
        m_HeldSlotEvents.push_back(reported);
    }
    return false;
}

} // namespace Korvex
