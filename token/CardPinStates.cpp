// PIN states from the vendor's status attribute or the token flags.
#include "token/CardPinStates.h"

#include "token/TokenProfile.h"
#include "token/acPKCS11.h"

#include <vector>

namespace Korvex {

namespace {

const unsigned char kSignaturePinReference = 0x81;
const unsigned char kEncryptionPinReference = 0x82;

PinStatus Unreadable()
{
    PinStatus status;
    status.unreadable = true;
    return status;
}

PinStatus FromStatusAttribute(acPKCS11& token, ApplType appl)
{
    PinStatus status;
    PINState state = PIN_STATE_UNKNOWN;
    int32_t tries = -1;
    if (token.GetPINStatus(appl, state, tries) != PKCS11_OK || state == PIN_STATE_UNKNOWN)
        return Unreadable();
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

// A VERIFY without PIN data costs no try: the card answers with the tries
// left (63Cx), locked (6983) or, when verified already, 9000.
PinStatus FromVerifyStatus(acPKCS11& token, unsigned char reference)
{
    std::vector<unsigned char> answer;
    if (!token.SendAPDU({0x00, 0x20, 0x00, reference}, answer) || answer.size() < 2)
        return Unreadable();
    const unsigned char sw1 = answer[answer.size() - 2];
    const unsigned char sw2 = answer[answer.size() - 1];
    PinStatus status;
    status.known = true;
    if (sw1 == 0x63 && (sw2 & 0xF0) == 0xC0)
        status.triesLeft = sw2 & 0x0F;
    else if (sw1 == 0x69 && sw2 == 0x83)
        status.triesLeft = 0;
    else if (!(sw1 == 0x90 && sw2 == 0x00))
        return Unreadable();
    status.locked = status.triesLeft == 0;
    status.finalTry = status.triesLeft == 1;
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

namespace {

// The token flags: those the caller read just now, else the session slot's.
bool FlagsOf(acPKCS11& token, const TokenState* known, TokenState& state)
{
    if (known != nullptr) {
        state = *known;
        return true;
    }
    return token.GetSessionHandle() != 0 && token.GetTokenState(token.GetSessionSlotId(), state);
}

} // namespace

CardPinStates ReadCardPinStates(acPKCS11& token, const TokenInfoStruct2& info, const TokenState* known)
{
    CardPinStates states;
    TokenState state;
    const CardGeneration* generation = FindGeneration(info.tokenType);
    if (generation == nullptr || !acPKCS11::HasCardAttribute()) {
        // Any other token: its one user PIN, when it has one to log in with.
        if (FlagsOf(token, known, state) && (state.flags & CKF_LOGIN_REQUIRED))
            states.pins[APPL_SIGNATURE] = FromTokenFlags(state.flags);
    } else if (generation->countsTries) {
        // These generations report their counters. The type code that
        // allows the query follows from the token information already read;
        // their answer-to-reset would only say the same at a card call.
        if (token.TakeCardTypeOf(info)) {
            states.pins[APPL_SIGNATURE] = FromStatusAttribute(token, APPL_SIGNATURE);
            states.pins[APPL_ENCRYPTION] = FromStatusAttribute(token, APPL_ENCRYPTION);
        } else {
            states.pins[APPL_SIGNATURE] = states.pins[APPL_ENCRYPTION] = Unreadable();
        }
    } else if (generation->loginPinIsIdentityLink) {
        // Their login PIN is the identity-link PIN, told by the token flags;
        // the key PINs answer a status query.
        if (FlagsOf(token, known, state) && (state.flags & CKF_TOKEN_INITIALIZED))
            states.pins[APPL_IDENTITY_LINK] = FromTokenFlags(state.flags);
        if (acPKCS11::HasCardTransmit()) {
            states.pins[APPL_SIGNATURE] = FromVerifyStatus(token, kSignaturePinReference);
            states.pins[APPL_ENCRYPTION] = FromVerifyStatus(token, kEncryptionPinReference);
        }
    }
    return states;
}

} // namespace Korvex
