// Card insertion and removal as the module reports them: one non-blocking
// look for a slot event, so the caller's thread is never held by the module.
#include "token/acPKCS11.h"

#include "token/acPKCS11Internal.h"

namespace Korvex {

SlotEventPoll acPKCS11::PollSlotEvent(CK_SLOT_ID& slot)
{
    if (Proc_C_WaitForSlotEvent == nullptr)
        return SLOT_EVENT_UNSUPPORTED;
    CK_SLOT_ID reported = 0;
    const CK_RV rv = tokenimpl::callModule(Proc_C_WaitForSlotEvent, CKF_DONT_BLOCK, &reported, nullptr);
    switch (rv) {
    case CKR_OK:
        slot = reported;
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

} // namespace Korvex
