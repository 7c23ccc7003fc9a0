// Digesting, signing (with the key's PIN asked on the protected path),
// verifying and random numbers.
#include "sim/Calls.h"
#include "sim/Module.h"
#include "sim/PinFlow.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstring>

namespace VessaSim {

namespace {

// Raw-mechanism input gathered by C_SignUpdate / C_VerifyUpdate; a card
// could never take more.
constexpr size_t kMaxRawInput = 64 * 1024;

bool badData(CK_BYTE_PTR data, CK_ULONG length) { return !data && length > 0; }

CK_RV startKeyOperation(Session& session, KeyOperation& operation, CK_MECHANISM_PTR mechanism,
                        CK_OBJECT_HANDLE keyHandle, bool signing) {
    if (!mechanism) return CKR_ARGUMENTS_BAD;
    if (operation.active) return CKR_OPERATION_ACTIVE;
    const MechanismEntry* entry = findMechanism(mechanism->mechanism);
    if (!entry || entry->digestOnly) return CKR_MECHANISM_INVALID;
    if (mechanism->pParameter || mechanism->ulParameterLen) return CKR_MECHANISM_PARAM_INVALID;
    SimObject* key = session.card->object(keyHandle);
    if (!key || (key->role != ObjectRole::PrivateKey && key->role != ObjectRole::PublicKey)) {
        return CKR_KEY_HANDLE_INVALID;
    }
    const ObjectRole wanted = signing ? ObjectRole::PrivateKey : ObjectRole::PublicKey;
    if (key->role != wanted || !key->getBool(signing ? CKA_SIGN : CKA_VERIFY)) return CKR_KEY_FUNCTION_NOT_PERMITTED;
    if (keyAlgorithmOf(key->key.get()) != entry->keyAlgorithm) return CKR_KEY_TYPE_INCONSISTENT;
    operation.reset();
    if (entry->hash != Korvex::HashNone && !operation.digest.init(entry->hash)) return CKR_DEVICE_ERROR;
    operation.mechanism = entry;
    operation.keyHandle = keyHandle;
    operation.key = key->key;
    operation.pin = key->pin;
    operation.active = true;
    return CKR_OK;
}

CK_RV feed(KeyOperation& operation, CK_BYTE_PTR data, CK_ULONG length) {
    if (operation.mechanism->hash != Korvex::HashNone) {
        return operation.digest.update(data, length) ? CKR_OK : CKR_DEVICE_ERROR;
    }
    if (operation.input.size() + length > kMaxRawInput) return CKR_DATA_LEN_RANGE;
    if (length) operation.input.insert(operation.input.end(), data, data + length);
    return CKR_OK;
}

// What the key actually processes: the raw input, the digest (ECDSA), or
// DigestInfo and digest (RSA).
CK_RV finishInput(KeyOperation& operation, Bytes& out) {
    const MechanismEntry& mechanism = *operation.mechanism;
    if (mechanism.hash == Korvex::HashNone) {
        out = operation.input;
    } else {
        Bytes digest;
        if (!operation.digest.final(digest)) return CKR_DEVICE_ERROR;
        out = mechanism.keyAlgorithm == KeyAlgorithm::Rsa ? digestInfoPrefix(mechanism.hash) : Bytes();
        out.insert(out.end(), digest.begin(), digest.end());
    }
    if (mechanism.keyAlgorithm == KeyAlgorithm::Rsa && out.size() > maxRawRsaInput(operation.key.get())) {
        return CKR_DATA_LEN_RANGE;
    }
    return CKR_OK;
}

// Common end of C_Sign and C_SignFinal once the input is complete: size
// query, buffer check, the key's PIN, the signature.
CK_RV completeSignature(Call& call, CK_SESSION_HANDLE handle, Session* session, CK_BYTE_PTR data,
                        CK_ULONG length, bool single, CK_BYTE_PTR signature, CK_ULONG_PTR signatureLength) {
    KeyOperation& operation = session->sign;
    const size_t needed = VessaSim::signatureLength(operation.key.get());
    if (!signature) {
        *signatureLength = needed;
        return CKR_OK;
    }
    if (*signatureLength < needed) {
        *signatureLength = needed;
        return CKR_BUFFER_TOO_SMALL;
    }
    const CK_ULONG capacity = *signatureLength;
    CK_RV rv = single ? feed(operation, data, length) : CKR_OK;
    Bytes input;
    if (rv == CKR_OK) rv = finishInput(operation, input);
    if (rv != CKR_OK) {
        operation.reset();
        return rv;
    }
    if (!operation.authenticated) {
        rv = authenticate(call, handle, operation.pin, nullptr);
        Session* again = nullptr;
        if (call.module.session(handle, again) != CKR_OK) return rv == CKR_OK ? CKR_SESSION_CLOSED : rv;
        session = again;
        if (rv != CKR_OK || !session->sign.active) {
            session->sign.reset();
            return rv == CKR_OK ? CKR_OPERATION_NOT_INITIALIZED : rv;
        }
    }
    Bytes result;
    rv = signInput(session->sign.key.get(), input, result);
    session->sign.reset();
    if (rv != CKR_OK) return rv;
    std::memcpy(signature, result.data(), result.size());
    *signatureLength = result.size();
    if (call.module.malformed(call.function, session->card.get(), session->slot)) *signatureLength = capacity + 16;
    return CKR_OK;
}

CK_RV completeVerification(KeyOperation& operation, CK_BYTE_PTR signature, CK_ULONG length) {
    Bytes input;
    CK_RV rv = finishInput(operation, input);
    if (rv == CKR_OK) rv = verifyInput(operation.key.get(), input, Bytes(signature, signature + length));
    operation.reset();
    return rv;
}

CK_RV digestOut(Call& call, Session* session, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    Bytes result;
    const CK_ULONG capacity = *outLength;
    const bool ok = session->digest.digest.final(result);
    session->digest.reset();
    if (!ok) return CKR_DEVICE_ERROR;
    std::memcpy(out, result.data(), result.size());
    *outLength = result.size();
    if (call.module.malformed(call.function, session->card.get(), session->slot)) *outLength = capacity + 16;
    return CKR_OK;
}

// Size query and buffer check shared by C_Digest and C_DigestFinal.
bool digestSizeAnswered(Session* session, CK_BYTE_PTR out, CK_ULONG_PTR outLength, CK_RV& rv) {
    const size_t needed = session->digest.digest.length();
    if (!out) {
        *outLength = needed;
        rv = CKR_OK;
        return true;
    }
    if (*outLength < needed) {
        *outLength = needed;
        rv = CKR_BUFFER_TOO_SMALL;
        return true;
    }
    return false;
}

} // namespace

CK_RV digestInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism) {
    Call call("C_DigestInit", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!mechanism) return CKR_ARGUMENTS_BAD;
    if (session->digest.active) return CKR_OPERATION_ACTIVE;
    const MechanismEntry* entry = findMechanism(mechanism->mechanism);
    if (!entry || !entry->digestOnly) return CKR_MECHANISM_INVALID;
    if (mechanism->pParameter || mechanism->ulParameterLen) return CKR_MECHANISM_PARAM_INVALID;
    session->digest.reset();
    if (!session->digest.digest.init(entry->hash)) return CKR_MECHANISM_INVALID;
    session->digest.active = true;
    return CKR_OK;
}

CK_RV digest(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    Call call("C_Digest", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->digest.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (badData(data, length) || !outLength) {
        session->digest.reset();
        return CKR_ARGUMENTS_BAD;
    }
    if (session->digest.multipart) return CKR_OPERATION_ACTIVE;
    if (digestSizeAnswered(session, out, outLength, rv)) return rv;
    if (!session->digest.digest.update(data, length)) {
        session->digest.reset();
        return CKR_DEVICE_ERROR;
    }
    return digestOut(call, session, out, outLength);
}

CK_RV digestUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length) {
    Call call("C_DigestUpdate", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->digest.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (badData(data, length)) {
        session->digest.reset();
        return CKR_ARGUMENTS_BAD;
    }
    session->digest.multipart = true;
    if (!session->digest.digest.update(data, length)) {
        session->digest.reset();
        return CKR_DEVICE_ERROR;
    }
    return CKR_OK;
}

CK_RV digestFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    Call call("C_DigestFinal", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->digest.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (!outLength) {
        session->digest.reset();
        return CKR_ARGUMENTS_BAD;
    }
    if (digestSizeAnswered(session, out, outLength, rv)) return rv;
    return digestOut(call, session, out, outLength);
}

CK_RV signInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    Call call("C_SignInit", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    return startKeyOperation(*session, session->sign, mechanism, key, true);
}

CK_RV sign(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
           CK_ULONG_PTR signatureLength) {
    // The size query is answered from the key length the module knows: it
    // reaches no card, as on a real reader.
    Call call("C_Sign", signature != nullptr, signature != nullptr ? 2 : 0);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->sign.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (badData(data, length) || !signatureLength) {
        session->sign.reset();
        return CKR_ARGUMENTS_BAD;
    }
    if (session->sign.multipart) return CKR_OPERATION_ACTIVE;
    return completeSignature(call, handle, session, data, length, true, signature, signatureLength);
}

CK_RV signUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length) {
    Call call("C_SignUpdate", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->sign.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (badData(data, length)) {
        session->sign.reset();
        return CKR_ARGUMENTS_BAD;
    }
    session->sign.multipart = true;
    rv = feed(session->sign, data, length);
    if (rv != CKR_OK) session->sign.reset();
    return rv;
}

CK_RV signFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR signature, CK_ULONG_PTR signatureLength) {
    Call call("C_SignFinal", signature != nullptr, signature != nullptr ? 2 : 0);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->sign.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (!signatureLength) {
        session->sign.reset();
        return CKR_ARGUMENTS_BAD;
    }
    return completeSignature(call, handle, session, nullptr, 0, false, signature, signatureLength);
}

CK_RV verifyInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    Call call("C_VerifyInit", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    return startKeyOperation(*session, session->verify, mechanism, key, false);
}

CK_RV verify(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG signatureLength) {
    Call call("C_Verify", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->verify.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (badData(data, length) || badData(signature, signatureLength)) {
        session->verify.reset();
        return CKR_ARGUMENTS_BAD;
    }
    if (session->verify.multipart) return CKR_OPERATION_ACTIVE;
    rv = feed(session->verify, data, length);
    if (rv != CKR_OK) {
        session->verify.reset();
        return rv;
    }
    return completeVerification(session->verify, signature, signatureLength);
}

CK_RV verifyUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length) {
    Call call("C_VerifyUpdate", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->verify.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (badData(data, length)) {
        session->verify.reset();
        return CKR_ARGUMENTS_BAD;
    }
    session->verify.multipart = true;
    rv = feed(session->verify, data, length);
    if (rv != CKR_OK) session->verify.reset();
    return rv;
}

CK_RV verifyFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR signature, CK_ULONG signatureLength) {
    Call call("C_VerifyFinal", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->verify.active) return CKR_OPERATION_NOT_INITIALIZED;
    if (badData(signature, signatureLength)) {
        session->verify.reset();
        return CKR_ARGUMENTS_BAD;
    }
    return completeVerification(session->verify, signature, signatureLength);
}

CK_RV generateRandom(CK_SESSION_HANDLE handle, CK_BYTE_PTR out, CK_ULONG length) {
    Call call("C_GenerateRandom", true);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (badData(out, length)) return CKR_ARGUMENTS_BAD;
    for (CK_ULONG done = 0; done < length;) {
        const CK_ULONG chunk = std::min<CK_ULONG>(length - done, 1 << 16);
        if (RAND_bytes(out + done, static_cast<int>(chunk)) != 1) return CKR_DEVICE_ERROR;
        done += chunk;
    }
    return CKR_OK;
}

CK_RV seedRandom(CK_SESSION_HANDLE handle, CK_BYTE_PTR seed, CK_ULONG length) {
    Call call("C_SeedRandom", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (badData(seed, length)) return CKR_ARGUMENTS_BAD;
    return CKR_RANDOM_SEED_NOT_SUPPORTED;
}

} // namespace VessaSim
