// One PKCS#11 session: the card it was opened on and the state of the
// operations running in it (object search, signing, verifying, digesting).
#pragma once

#include "sim/Card.h"
#include "sim/CryptoBackend.h"

#include <p11-kit/pkcs11.h>

#include <memory>
#include <vector>

namespace VessaSim {

struct FindOperation {
    bool active = false;
    std::vector<CK_OBJECT_HANDLE> results;
    size_t next = 0;
};

// Signing and verifying share one shape: a key, a mechanism and the input
// gathered so far (digested on the fly for hash mechanisms).
struct KeyOperation {
    bool active = false;
    const MechanismEntry* mechanism = nullptr;
    CK_OBJECT_HANDLE keyHandle = CK_INVALID_HANDLE;
    SharedPkey key;
    PinIndex pin = PinSignature;
    Digest digest;
    Bytes input;             // raw mechanisms: the data itself
    bool multipart = false;
    bool authenticated = false;  // PIN given by a context-specific login

    void reset() { *this = KeyOperation(); }
};

struct DigestOperation {
    bool active = false;
    Digest digest;
    bool multipart = false;

    void reset() { *this = DigestOperation(); }
};

struct Session {
    CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
    CK_SLOT_ID slot = 0;
    std::shared_ptr<Card> card;
    CK_FLAGS flags = 0;
    bool removed = false;  // its card was pulled out
    bool busy = false;     // a PIN dialogue of this session is open

    FindOperation find;
    KeyOperation sign;
    KeyOperation verify;
    DigestOperation digest;

    bool readWrite() const { return (flags & CKF_RW_SESSION) != 0; }
};

} // namespace VessaSim
