// PIN states from the vendor's status attribute or the token flags.
#include "token/CardPinStates.h"

#include "token/TokenProfile.h"
#include "token/acPKCS11.h"

namespace Korvex {

namespace {

PinStatus FromStatusAttribute(acPKCS11& token, ApplType appl)
{
    PinStatus status;
    PINState state = PIN_STATE_UNKNOWN;
    int32_t tries = -1;
    if (token.GetPINStatus(appl, state, tries) != PKCS11_OK || state == PIN_STATE_UNKNOWN)
        return status;
    status.known = true;
    status.triesLeft = state == PIN_STATE_NO_TRIES ? 0 : tries;
    status.locked = status.triesLeft == 0;
    status.finalTry = status.triesLeft == 1;
    return status;
}

// The user PIN of the token flags: the PIN that C_Login checks.
PinStatus FromTokenFlags(CK_FLAGS flags)
{
    PinStatus status;
    status.known = true;
    status.locked = (flags & CKF_USER_PIN_LOCKED) != 0;
    status.finalTry = !status.locked && (flags & CKF_USER_PIN_FINAL_TRY) != 0;
    status.countLow = (flags & CKF_USER_PIN_COUNT_LOW) != 0;
    if (status.locked)
        status.triesLeft = 0;
    else if (status.finalTry)
        status.triesLeft = 1;
    return status;
}

} // namespace

bool CardPinStates::NeedsAttention() const
{
    for (const PinStatus& pin : pins)
        if (pin.known && (pin.locked || pin.finalTry))
            return true;
    return false;
}

CardPinStates ReadCardPinStates(acPKCS11& token, const TokenInfoStruct2& info)
{
    CardPinStates states;
    const CardGeneration* generation = FindGeneration(info.tokenType);
    if (generation == nullptr || !acPKCS11::HasCardAttribute()) {
        // Any other token: its one user PIN, when it has one to log in with.
        if (info.flags & CKF_LOGIN_REQUIRED)
            states.pins[APPL_SIGNATURE] = FromTokenFlags(info.flags);
    } else if (generation->countsTries) {
        // These generations report their counters; the type code that
        // allows the query comes from this card's own answer-to-reset.
        token.ReadATR(true);
        if (token.LoadCardType()) {
            states.pins[APPL_SIGNATURE] = FromStatusAttribute(token, APPL_SIGNATURE);
            states.pins[APPL_ENCRYPTION] = FromStatusAttribute(token, APPL_ENCRYPTION);
        }
    } else if (generation->loginPinIsIdentityLink) {
        // Their login PIN is the identity-link PIN.
        if (info.flags & CKF_TOKEN_INITIALIZED)
            states.pins[APPL_IDENTITY_LINK] = FromTokenFlags(info.flags);
    }
    return states;
}

} // namespace Korvex
