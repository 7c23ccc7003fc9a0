// PIN verification, change and unblock as the card's chip decides them.
#include "sim/PinState.h"

#include "sim/CardSet.h"

namespace VessaSim {

bool isPinFormat(const std::string& text, int length) {
    if (text.size() != static_cast<size_t>(length)) return false;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

CK_RV verifyPin(PinState& pin, const std::string& entered) {
    if (pin.locked()) return CKR_PIN_LOCKED;
    if (!isPinFormat(entered, pin.length)) return CKR_PIN_LEN_RANGE;
    if (entered != pin.value) {
        --pin.tries;
        return CKR_PIN_INCORRECT;
    }
    pin.tries = pin.maxTries;
    return CKR_OK;
}

CK_RV changePin(PinState& pin, const std::string& current, const std::string& fresh,
                const std::string& repeated) {
    if (pin.locked()) return CKR_PIN_LOCKED;
    if (!isPinFormat(current, pin.length) || !isPinFormat(fresh, pin.length) ||
        !isPinFormat(repeated, pin.length)) {
        return CKR_PIN_LEN_RANGE;
    }
    if (fresh != repeated) return CKR_PIN_INVALID;
    CK_RV rv = verifyPin(pin, current);
    if (rv == CKR_OK) pin.value = fresh;
    return rv;
}

CK_RV unblockPin(PinState& pin, const std::string& puk, const std::string& fresh,
                 const std::string& repeated) {
    if (!pin.hasPuk) return CKR_FUNCTION_NOT_SUPPORTED;
    if (pin.pukLocked()) return CKR_PIN_LOCKED;
    if (!isPinFormat(puk, kPukLength) || !isPinFormat(fresh, pin.length) ||
        !isPinFormat(repeated, pin.length)) {
        return CKR_PIN_LEN_RANGE;
    }
    if (fresh != repeated) return CKR_PIN_INVALID;
    if (puk != pin.puk) {
        --pin.pukTries;
        return CKR_PIN_INCORRECT;
    }
    pin.pukTries = pin.maxPukTries;
    pin.tries = pin.maxTries;
    pin.value = fresh;
    return CKR_OK;
}

} // namespace VessaSim
