// Module start and end, module information, readers (slots), tokens, slot
// events and the mechanisms a token offers.
#include "sim/Calls.h"
#include "sim/CryptoBackend.h"
#include "sim/Module.h"

#include <chrono>
#include <cstring>

namespace VessaSim {

namespace {

// What a caller's array of `capacity` entries is told when a test asks for
// malformed answers: more than fits.
constexpr CK_ULONG kMalformedExcess = 7;

} // namespace

CK_RV initialize(CK_VOID_PTR args) {
    Call call("C_Initialize", false);
    CK_RV rv = call.module.initialize(args);
    if (rv != CKR_OK) return rv;
    CK_RV injected;
    if (call.module.fault("C_Initialize", nullptr, 0, injected)) {
        call.module.finalize();
        return injected;
    }
    return CKR_OK;
}

CK_RV finalize(CK_VOID_PTR reserved) {
    Call call("C_Finalize", false);
    if (call.initialized() != CKR_OK) return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (reserved) return CKR_ARGUMENTS_BAD;
    return call.module.finalize();
}

CK_RV getInfo(CK_INFO_PTR info) {
    Call call("C_GetInfo", false);
    CK_RV rv = call.begin();
    if (rv != CKR_OK) return rv;
    if (!info) return CKR_ARGUMENTS_BAD;
    std::memset(info, 0, sizeof *info);
    info->cryptokiVersion.major = 2;
    info->cryptokiVersion.minor = 40;
    padCopy(info->manufacturerID, sizeof info->manufacturerID, "vessa");
    info->flags = 0;
    padCopy(info->libraryDescription, sizeof info->libraryDescription, "vessa premium PKCS#11 Simulator");
    info->libraryVersion.major = 1;
    info->libraryVersion.minor = 0;
    return CKR_OK;
}

CK_RV getSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count) {
    Call call("C_GetSlotList", false);
    if (call.initialized() != CKR_OK) return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (!count) return CKR_ARGUMENTS_BAD;
    Module& module = call.module;
    module.pollControl(true);
    CK_RV rv;
    if (module.fault(call.function, nullptr, 0, rv)) return rv;
    CK_ULONG found = 0;
    for (const auto& slot : module.slots) {
        if (!tokenPresent || slot.card) ++found;
    }
    if (!list) {
        *count = found;
        return CKR_OK;
    }
    if (*count < found) {
        *count = found;
        return CKR_BUFFER_TOO_SMALL;
    }
    const CK_ULONG capacity = *count;
    CK_ULONG index = 0;
    for (const auto& slot : module.slots) {
        if (!tokenPresent || slot.card) list[index++] = slot.id;
    }
    *count = found;
    if (module.malformed(call.function, nullptr, 0)) *count = capacity + kMalformedExcess;
    return CKR_OK;
}

CK_RV getSlotInfo(CK_SLOT_ID slotId, CK_SLOT_INFO_PTR info) {
    Call call("C_GetSlotInfo", false);
    if (call.initialized() != CKR_OK) return CKR_CRYPTOKI_NOT_INITIALIZED;
    call.module.pollControl(true);
    SlotState* slot = nullptr;
    CK_RV rv = call.beginSlot(slotId, slot, false);
    if (rv != CKR_OK) return rv;
    if (!info) return CKR_ARGUMENTS_BAD;
    std::memset(info, 0, sizeof *info);
    padCopy(info->slotDescription, sizeof info->slotDescription, slot->readerName);
    padCopy(info->manufacturerID, sizeof info->manufacturerID, "vessa Simulation");
    info->flags = CKF_HW_SLOT | (slot->removable ? CKF_REMOVABLE_DEVICE : 0) | (slot->card ? CKF_TOKEN_PRESENT : 0);
    info->hardwareVersion.major = 1;
    info->firmwareVersion.major = 1;
    return CKR_OK;
}

CK_RV getTokenInfo(CK_SLOT_ID slotId, CK_TOKEN_INFO_PTR info) {
    Call call("C_GetTokenInfo", true);
    SlotState* slot = nullptr;
    CK_RV rv = call.beginSlot(slotId, slot, true);
    if (rv != CKR_OK) return rv;
    if (!info) return CKR_ARGUMENTS_BAD;
    Card& card = *slot->card;
    card.refreshFromDisk();  // PIN counters used by another process
    const CardSpec& description = card.description();
    const GenerationProfile& profile = card.profile();
    std::memset(info, 0, sizeof *info);
    padCopy(info->label, sizeof info->label, description.tokenLabel());
    padCopy(info->manufacturerID, sizeof info->manufacturerID, "vessa");
    padCopy(info->model, sizeof info->model, profile.model);
    padCopy(info->serialNumber, sizeof info->serialNumber, description.serial);
    CK_FLAGS flags = CKF_RNG | CKF_PROTECTED_AUTHENTICATION_PATH | CKF_USER_PIN_INITIALIZED;
    // An unpersonalised card is an uninitialised token; the internal token
    // is always ready and needs no login.
    if (description.personalised || !profile.isCard) flags |= CKF_TOKEN_INITIALIZED;
    if (description.personalised) flags |= CKF_LOGIN_REQUIRED;
    const PinState& pin = card.pin(PinIdentityLink);
    if (pin.tries < pin.maxTries) flags |= CKF_USER_PIN_COUNT_LOW;
    if (pin.tries == 1) flags |= CKF_USER_PIN_FINAL_TRY;
    if (pin.locked()) flags |= CKF_USER_PIN_LOCKED;
    // The PUK that unblocks it stands in for the security officer's PIN.
    if (pin.hasPuk) {
        if (pin.pukTries < pin.maxPukTries) flags |= CKF_SO_PIN_COUNT_LOW;
        if (pin.pukTries == 1) flags |= CKF_SO_PIN_FINAL_TRY;
        if (pin.pukLocked()) flags |= CKF_SO_PIN_LOCKED;
    }
    info->flags = flags;
    info->ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
    info->ulSessionCount = call.module.sessionCount(slotId, false);
    info->ulMaxRwSessionCount = CK_EFFECTIVELY_INFINITE;
    info->ulRwSessionCount = call.module.sessionCount(slotId, true);
    // C_Login as the user checks the identity-link PIN, which has exactly
    // this many digits; announcing more would promise logins that fail.
    info->ulMaxPinLen = static_cast<CK_ULONG>(pin.length);
    info->ulMinPinLen = static_cast<CK_ULONG>(pin.length);
    info->ulTotalPublicMemory = CK_UNAVAILABLE_INFORMATION;
    info->ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
    info->ulTotalPrivateMemory = CK_UNAVAILABLE_INFORMATION;
    info->ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
    info->hardwareVersion.major = 1;
    info->firmwareVersion.major = static_cast<CK_BYTE>(static_cast<int>(profile.generation) + 1);
    std::memset(info->utcTime, ' ', sizeof info->utcTime);
    return CKR_OK;
}

CK_RV waitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR slot, CK_VOID_PTR reserved) {
    Call call("C_WaitForSlotEvent", false);
    if (call.initialized() != CKR_OK) return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (!slot || reserved) return CKR_ARGUMENTS_BAD;
    Module& module = call.module;
    CK_RV rv;
    if (module.fault(call.function, nullptr, 0, rv)) return rv;
    const unsigned long generation = module.generation;
    module.pollControl(true);
    for (;;) {
        if (!module.pendingEvents.empty()) {
            *slot = module.pendingEvents.front();
            module.pendingEvents.pop_front();
            return CKR_OK;
        }
        if (flags & CKF_DONT_BLOCK) return CKR_NO_EVENT;
        // Control-file changes raise no notification, so look now and then.
        module.slotEvent.wait_for(call.lock, std::chrono::milliseconds(100));
        if (!module.initialized || module.generation != generation) return CKR_CRYPTOKI_NOT_INITIALIZED;
        module.pollControl(true);
    }
}

CK_RV getMechanismList(CK_SLOT_ID slotId, CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count) {
    Call call("C_GetMechanismList", false);
    SlotState* slot = nullptr;
    CK_RV rv = call.beginSlot(slotId, slot, true);
    if (rv != CKR_OK) return rv;
    if (!count) return CKR_ARGUMENTS_BAD;
    const GenerationProfile& profile = slot->card->profile();
    const bool personalised = slot->card->description().personalised;
    auto hasKey = [&](KeyAlgorithm algorithm) {
        return personalised &&
               (profile.signatureKey.algorithm == algorithm || profile.encryptionKey.algorithm == algorithm);
    };
    const std::vector<CK_MECHANISM_TYPE> types = mechanismsFor(hasKey(KeyAlgorithm::Rsa), hasKey(KeyAlgorithm::Ec));
    if (!list) {
        *count = types.size();
        return CKR_OK;
    }
    if (*count < types.size()) {
        *count = types.size();
        return CKR_BUFFER_TOO_SMALL;
    }
    const CK_ULONG capacity = *count;
    std::copy(types.begin(), types.end(), list);
    *count = types.size();
    if (call.module.malformed(call.function, slot->card.get(), slotId)) *count = capacity + kMalformedExcess;
    return CKR_OK;
}

CK_RV getMechanismInfo(CK_SLOT_ID slotId, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR info) {
    Call call("C_GetMechanismInfo", false);
    SlotState* slot = nullptr;
    CK_RV rv = call.beginSlot(slotId, slot, true);
    if (rv != CKR_OK) return rv;
    if (!info) return CKR_ARGUMENTS_BAD;
    const GenerationProfile& profile = slot->card->profile();
    const MechanismEntry* entry = findMechanism(type);
    if (!entry) return CKR_MECHANISM_INVALID;
    if (!entry->digestOnly && (!slot->card->description().personalised ||
                               (profile.signatureKey.algorithm != entry->keyAlgorithm &&
                                profile.encryptionKey.algorithm != entry->keyAlgorithm))) {
        return CKR_MECHANISM_INVALID;
    }
    mechanismInfo(type, *info);
    return CKR_OK;
}

CK_RV notSupported() {
    Call call("", false);
    return call.initialized() != CKR_OK ? CKR_CRYPTOKI_NOT_INITIALIZED : CKR_FUNCTION_NOT_SUPPORTED;
}

} // namespace VessaSim
