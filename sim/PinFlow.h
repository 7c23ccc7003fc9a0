// The steps every PIN-guarded call shares: run the dialogue with the module
// lock released, take the lock again, make sure the session and its card
// are still there, and let the card decide on the entries.
#pragma once

#include "sim/CardSet.h"
#include "sim/Module.h"
#include "sim/PinDialog.h"

#include <string>

namespace VessaSim {

// Verifies `pin` of the session's card: the given PIN, or (null) one asked
// for in a dialogue. On return the lock is held; `session` is looked up
// again by the caller.
CK_RV authenticate(Call& call, CK_SESSION_HANDLE session, PinIndex pin, const std::string* given);

// Runs the change or unblock dialogue for `pin` and applies it on the card.
CK_RV runPinCommand(Call& call, CK_SESSION_HANDLE session, PinIndex pin, DialogKind kind);

// Applies a change with PINs given by the caller (C_SetPIN with PINs).
CK_RV changeGivenPin(Card& card, PinIndex pin, const std::string& current, const std::string& fresh);

} // namespace VessaSim
