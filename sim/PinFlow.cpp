// PIN dialogues around the module lock.
#include "sim/PinFlow.h"

#include <functional>

namespace VessaSim {

namespace {

DialogTarget targetFor(Card& card, PinIndex pin) {
    DialogTarget target;
    PinState& state = card.pin(pin);
    target.cardLabel = card.description().tokenLabel();
    target.serial = card.serial();
    target.pin = pin;
    target.pinLength = state.length;
    target.triesLeft = state.tries;
    target.maxTries = state.maxTries;
    target.pukTriesLeft = state.pukTries;
    target.maxPukTries = state.maxPukTries;
    return target;
}

// Applies the entries to the card's current PIN state (another process may
// have used the PIN meanwhile) and saves it if counters or value moved.
CK_RV applyAndSave(Card& card, PinIndex pin, const std::function<CK_RV(PinState&)>& apply) {
    CK_RV rv = CKR_OK;
    card.updateState([&] {
        PinState& state = card.pin(pin);
        const PinState before = state;
        rv = apply(state);
        return state.tries != before.tries || state.pukTries != before.pukTries || state.value != before.value;
    });
    return rv;
}

// Runs the dialogue without the lock. Afterwards the lock is held and the
// result says whether the session survived the wait.
CK_RV dialogueUnlocked(Call& call, CK_SESSION_HANDLE handle, DialogKind kind, PinIndex pin,
                       DialogOutcome& outcome, std::shared_ptr<Card>& card) {
    Module& module = call.module;
    std::shared_ptr<Session> session = module.sharedSession(handle);
    if (!session) return CKR_SESSION_HANDLE_INVALID;
    if (session->busy) return CKR_OPERATION_ACTIVE;
    card = session->card;
    const DialogTarget target = targetFor(*card, pin);
    const unsigned long generation = module.generation;
    session->busy = true;
    call.lock.unlock();
    outcome = runPinDialog(kind, target);
    call.lock.lock();
    session->busy = false;
    // The card may have been pulled out meanwhile by another process (the
    // control file): look now, not at the next call.
    module.pollControl(true);
    if (!module.initialized || module.generation != generation) return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (!module.sharedSession(handle)) return CKR_SESSION_CLOSED;
    if (session->removed) {
        module.sessions.erase(handle);
        return CKR_DEVICE_REMOVED;
    }
    switch (outcome.result) {
    case PinEntry::Result::Ok: return CKR_OK;
    case PinEntry::Result::Cancelled: return CKR_FUNCTION_CANCELED;
    default: return CKR_FUNCTION_FAILED;
    }
}

} // namespace

CK_RV authenticate(Call& call, CK_SESSION_HANDLE handle, PinIndex pin, const std::string* given) {
    std::shared_ptr<Session> session = call.module.sharedSession(handle);
    if (!session) return CKR_SESSION_HANDLE_INVALID;
    if (session->card->pin(pin).locked()) return CKR_PIN_LOCKED;
    if (given) {
        return applyAndSave(*session->card, pin, [&](PinState& state) { return verifyPin(state, *given); });
    }
    DialogOutcome outcome;
    std::shared_ptr<Card> card;
    CK_RV rv = dialogueUnlocked(call, handle, DialogKind::Verify, pin, outcome, card);
    if (rv != CKR_OK) return rv;
    return applyAndSave(*card, pin, [&](PinState& state) { return verifyPin(state, outcome.first); });
}

CK_RV runPinCommand(Call& call, CK_SESSION_HANDLE handle, PinIndex pin, DialogKind kind) {
    std::shared_ptr<Session> session = call.module.sharedSession(handle);
    if (!session) return CKR_SESSION_HANDLE_INVALID;
    PinState& state = session->card->pin(pin);
    if (kind == DialogKind::Unblock) {
        if (!state.hasPuk) return CKR_FUNCTION_NOT_SUPPORTED;
        if (state.pukLocked()) return CKR_PIN_LOCKED;
    } else if (state.locked()) {
        return CKR_PIN_LOCKED;
    }
    DialogOutcome outcome;
    std::shared_ptr<Card> card;
    CK_RV rv = dialogueUnlocked(call, handle, kind, pin, outcome, card);
    if (rv != CKR_OK) return rv;
    return applyAndSave(*card, pin, [&](PinState& current) {
        return kind == DialogKind::Unblock ? unblockPin(current, outcome.first, outcome.second, outcome.third)
                                           : changePin(current, outcome.first, outcome.second, outcome.third);
    });
}

CK_RV changeGivenPin(Card& card, PinIndex pin, const std::string& current, const std::string& fresh) {
    return applyAndSave(card, pin, [&](PinState& state) { return changePin(state, current, fresh, fresh); });
}

} // namespace VessaSim
