// What a card tells about its three PINs: exact tries left where the module
// reports them (GetPINStatus) or the card answers a VERIFY without a PIN,
// otherwise the standard token flags, otherwise nothing. Read by the card-list refresh and again after a PIN command.
#pragma once

#include "token/acPKCS11Types.h"

namespace Korvex {

class acPKCS11;

struct PinStatus {
    bool known = false;    // false: the card did not say; show nothing
    int triesLeft = -1;    // exact count; -1 when only the flags are known
    bool locked = false;
    bool finalTry = false;
    bool countLow = false; // a wrong entry since the last right one
    bool unreadable = false; // the card was asked, but its answer could not be read
};

struct CardPinStates {
    PinStatus pins[3];     // indexed by ApplType
    // Some PIN is locked or on its last try: the row gets a warning mark.
    bool NeedsAttention() const;
};

// Reads the states through the open session of `token` on the card that
// `info` describes. The token flags are `known` where the caller has just read
// them (a refresh's listing), else they are read from the session's slot.
CardPinStates ReadCardPinStates(acPKCS11& token, const TokenInfoStruct2& info,
                                const TokenState* known = nullptr);

} // namespace Korvex
