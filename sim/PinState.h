// A PIN of a card with its retry counter and PUK, and the checks a card
// makes when a PIN is verified, changed or unblocked. Pure logic: the
// dialogues that collect the entries live elsewhere.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

namespace VessaSim {

struct PinState {
    std::string value;
    int length = 4;  // digits a PIN of this kind has
    int tries = 3;
    int maxTries = 3;
    bool hasPuk = true;
    std::string puk;
    int pukTries = 10;
    int maxPukTries = 10;

    bool locked() const { return tries <= 0; }
    bool pukLocked() const { return !hasPuk || pukTries <= 0; }
};

// CKR_PIN_LEN_RANGE for a wrong format (counter untouched), CKR_PIN_LOCKED
// at 0 tries, CKR_PIN_INCORRECT (decremented) or CKR_OK (counter reset).
CK_RV verifyPin(PinState& pin, const std::string& entered);
// Format of both new entries first, then their equality (CKR_PIN_INVALID),
// then the current PIN.
CK_RV changePin(PinState& pin, const std::string& current, const std::string& fresh,
                const std::string& repeated);
// The same with the PUK; success resets both counters.
CK_RV unblockPin(PinState& pin, const std::string& puk, const std::string& fresh,
                 const std::string& repeated);

bool isPinFormat(const std::string& text, int length);

} // namespace VessaSim
