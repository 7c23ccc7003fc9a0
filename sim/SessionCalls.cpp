// Opening and closing sessions, session information, login and logout, and
// C_SetPIN.
#include "sim/Calls.h"
#include "sim/Module.h"
#include "sim/PinFlow.h"

#include <cstring>

namespace VessaSim {

namespace {

bool badPinArgument(CK_UTF8CHAR_PTR pin, CK_ULONG length) { return !pin && length > 0; }

std::string pinText(CK_UTF8CHAR_PTR pin, CK_ULONG length) {
    return pin ? std::string(reinterpret_cast<const char*>(pin), length) : std::string();
}

} // namespace

CK_RV openSession(CK_SLOT_ID slotId, CK_FLAGS flags, CK_VOID_PTR, CK_NOTIFY, CK_SESSION_HANDLE_PTR handle) {
    Call call("C_OpenSession", true);
    SlotState* slot = nullptr;
    CK_RV rv = call.beginSlot(slotId, slot, true);
    if (rv != CKR_OK) return rv;
    if (!handle) return CKR_ARGUMENTS_BAD;
    if (!(flags & CKF_SERIAL_SESSION)) return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
    Module& module = call.module;
    const std::shared_ptr<Card> card = slot->card;
    const unsigned long generation = module.generation;
    // The first session on a card loads (or makes) its keys; the lock is
    // released meanwhile, so look at the slot again afterwards.
    const bool ready = module.ensureObjects(call.lock, card);
    if (!module.initialized || module.generation != generation) return CKR_CRYPTOKI_NOT_INITIALIZED;
    slot = module.slot(slotId);
    if (!slot || slot->card != card) return CKR_DEVICE_REMOVED;
    if (!ready) return CKR_DEVICE_ERROR;
    // Another process (a companion program) may have written to the card.
    card->refreshFromDisk();
    *handle = module.openSession(*slot, flags);
    return CKR_OK;
}

CK_RV closeSession(CK_SESSION_HANDLE handle) {
    Call call("C_CloseSession", false);
    if (call.initialized() != CKR_OK) return CKR_CRYPTOKI_NOT_INITIALIZED;
    std::shared_ptr<Session> session = call.module.sharedSession(handle);
    if (!session) return CKR_SESSION_HANDLE_INVALID;
    CK_RV rv;
    if (!session->removed && call.module.fault(call.function, session->card.get(), session->slot, rv)) return rv;
    call.module.closeSession(handle);
    return CKR_OK;
}

CK_RV closeAllSessions(CK_SLOT_ID slotId) {
    Call call("C_CloseAllSessions", false);
    SlotState* slot = nullptr;
    CK_RV rv = call.beginSlot(slotId, slot, false);
    if (rv != CKR_OK) return rv;
    std::vector<CK_SESSION_HANDLE> handles;
    for (const auto& entry : call.module.sessions) {
        if (entry.second->slot == slotId) handles.push_back(entry.first);
    }
    for (CK_SESSION_HANDLE handle : handles) call.module.closeSession(handle);
    return CKR_OK;
}

CK_RV getSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO_PTR info) {
    Call call("C_GetSessionInfo", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!info) return CKR_ARGUMENTS_BAD;
    std::memset(info, 0, sizeof *info);
    info->slotID = session->slot;
    const bool user = session->card->loggedIn;
    if (session->readWrite()) {
        info->state = user ? CKS_RW_USER_FUNCTIONS : CKS_RW_PUBLIC_SESSION;
    } else {
        info->state = user ? CKS_RO_USER_FUNCTIONS : CKS_RO_PUBLIC_SESSION;
    }
    info->flags = session->flags;
    info->ulDeviceError = 0;
    return CKR_OK;
}

CK_RV login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
    Call call("C_Login", true);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (badPinArgument(pin, length)) return CKR_ARGUMENTS_BAD;
    // An empty PIN means: ask on the protected authentication path.
    const std::string given = pinText(pin, length);
    const std::string* entered = length > 0 ? &given : nullptr;
    if (user == CKU_CONTEXT_SPECIFIC) {
        if (!session->sign.active) return CKR_OPERATION_NOT_INITIALIZED;
        rv = authenticate(call, handle, session->sign.pin, entered);
        std::shared_ptr<Session> again = call.module.sharedSession(handle);
        if (rv == CKR_OK && again && again->sign.active) again->sign.authenticated = true;
        return rv;
    }
    if (user != CKU_USER) return CKR_USER_TYPE_INVALID;
    if (session->card->loggedIn) return CKR_USER_ALREADY_LOGGED_IN;
    rv = authenticate(call, handle, PinIdentityLink, entered);
    if (rv != CKR_OK) return rv;
    std::shared_ptr<Session> again = call.module.sharedSession(handle);
    if (again) again->card->loggedIn = true;
    return CKR_OK;
}

CK_RV logout(CK_SESSION_HANDLE handle) {
    Call call("C_Logout", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->card->loggedIn) return CKR_USER_NOT_LOGGED_IN;
    session->card->loggedIn = false;
    return CKR_OK;
}

CK_RV setPin(CK_SESSION_HANDLE handle, CK_UTF8CHAR_PTR oldPin, CK_ULONG oldLength, CK_UTF8CHAR_PTR newPin,
             CK_ULONG newLength) {
    Call call("C_SetPIN", true);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (badPinArgument(oldPin, oldLength) || badPinArgument(newPin, newLength)) return CKR_ARGUMENTS_BAD;
    if (!session->readWrite()) return CKR_SESSION_READ_ONLY;
    if (oldLength == 0 && newLength == 0) return runPinCommand(call, handle, PinIdentityLink, DialogKind::Change);
    return changeGivenPin(*session->card, PinIdentityLink, pinText(oldPin, oldLength), pinText(newPin, newLength));
}

} // namespace VessaSim
