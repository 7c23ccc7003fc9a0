// Signing and verification on the card: finding the key, choosing the
// mechanism from key type and hash algorithm, hashing where the card does not.
#include "token/acPKCS11.h"

#include "crypto/Hash.h"
#include "token/acPKCS11Internal.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace Korvex {

using tokenimpl::callModule;

namespace {

constexpr CK_MECHANISM_TYPE kNoMechanism = ~static_cast<CK_MECHANISM_TYPE>(0);
constexpr unsigned long kMaxSignInput = 2048;
// Larger than any signature of the supported keys; guards the allocation a
// misbehaving module could ask for.
constexpr CK_ULONG kMaxSignatureLength = 16384;
constexpr CK_ULONG kLabelBufferSize = 256;

const char* signingKeyLabel(bool signatureKey)
{
    return signatureKey ? "SK.CH.SIG" : "SK.CH.EKEY";
}

// Whether alg names a digest this system can compute.
bool hasDigest(HashAlgorithm alg)
{
    unsigned long size = 0;
    return intern::GetHashAlgo(alg, size) != nullptr;
}

// Whether an RSA key can sign alg's digest as a PKCS #1 DigestInfo.
bool hasDigestInfo(HashAlgorithm alg)
{
    return alg == HashSha1 || alg == HashRipemd160 || alg == HashSha256 || alg == HashSha384 ||
           alg == HashSha512;
}

// The label and key type of an object, read in one call; false when the
// module does not deliver both in the buffers given.
CK_RV readLabelAndKeyType(CK_C_GetAttributeValue getAttributes, CK_SESSION_HANDLE session,
                          CK_OBJECT_HANDLE object, std::string& label, CK_KEY_TYPE& keyType)
{
    char labelBuffer[kLabelBufferSize];
    CK_KEY_TYPE type = ~static_cast<CK_KEY_TYPE>(0);
    CK_ATTRIBUTE attributes[] = {
        {CKA_LABEL, labelBuffer, sizeof(labelBuffer)},
        {CKA_KEY_TYPE, &type, sizeof(type)},
    };
    CK_RV rv = callModule(getAttributes, session, object, attributes, 2);
    if (rv != CKR_OK)
        return rv;
    if (!tokenimpl::lengthFits(attributes[0], sizeof(labelBuffer)) ||
        attributes[1].ulValueLen != sizeof(type))
        return CKR_ATTRIBUTE_VALUE_INVALID;
    label.assign(labelBuffer, attributes[0].ulValueLen);
    keyType = type;
    return CKR_OK;
}

} // namespace

CK_MECHANISM_TYPE acPKCS11::KeyAndHashAlgoToMechanism(CK_KEY_TYPE keyType, HashAlgorithm alg)
{
    const int hash = static_cast<int>(alg);
    if (keyType == CKK_RSA) {
        switch (hash) {
        case HashSha1: return CKM_SHA1_RSA_PKCS;
        case HashRipemd160: return CKM_RIPEMD160_RSA_PKCS;
        case HashSha256: return CKM_SHA256_RSA_PKCS;
        case HashSha384: return CKM_SHA384_RSA_PKCS;
        case HashSha512: return CKM_SHA512_RSA_PKCS;
        case 10: return CKM_RSA_PKCS;
        default: return kNoMechanism;
        }
    }
    if (keyType == CKK_EC) {
        if (hash == HashSha1)
            return CKM_ECDSA_SHA1;
        if (hash == 10)
            return CKM_ECDSA;
    }
    return kNoMechanism;
}

namespace {

// The kind of key for a PKCS#11 key type; other types leave key as it was.
bool signKeyOf(CK_KEY_TYPE keyType, SignKey& key)
{
    if (keyType == CKK_RSA)
        key = SIGN_KEY_RSA;
    else if (keyType == CKK_EC)
        key = SIGN_KEY_EC;
    else
        return false;
    return true;
}

// The mechanism for a key of keyType and alg; an unknown pair is logged.
bool mechanismFor(CK_KEY_TYPE keyType, HashAlgorithm alg, CK_MECHANISM& mechanism)
{
    mechanism = {acPKCS11::KeyAndHashAlgoToMechanism(keyType, alg), nullptr, 0};
    if (mechanism.mechanism != kNoMechanism)
        return true;
    LogError("PKCS11 Unbekannter Signaturalgorihtmus");
    return false;
}

} // namespace

bool acPKCS11::findSigningKey(bool signatureKey, CK_OBJECT_HANDLE& key, CK_KEY_TYPE& keyType,
                              bool& keyFound)
{
    keyFound = false;
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE search = {CKA_CLASS, &keyClass, sizeof(keyClass)};
    CK_OBJECT_HANDLE handles[10];
    CK_ULONG found = 0;

    CK_RV rv = callModule(Proc_C_FindObjectsInit, m_hSession, &search, 1);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_FindObjectsInit ERROR", rv);
        return false;
    }
    rv = callModule(Proc_C_FindObjects, m_hSession, handles, 10, &found);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_FindObjects ERROR", rv);
        return false;
    }
    found = std::min<CK_ULONG>(found, 10);
    rv = callModule(Proc_C_FindObjectsFinal, m_hSession);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_FindObjectsFinal ERROR", rv);
        return false;
    }

    const char* wanted = signingKeyLabel(signatureKey);
    for (CK_ULONG i = 0; i < found; ++i) {
        std::string label;
        CK_KEY_TYPE type = 0;
        rv = readLabelAndKeyType(Proc_C_GetAttributeValue, m_hSession, handles[i], label, type);
        if (rv != CKR_OK) {
            LogError("PKCS11 Proc_C_GetAttributeValue ERROR", rv);
            continue;
        }
        if (tokenimpl::startsWith(label, wanted)) {
            key = handles[i];
            keyType = type;
            keyFound = true;
            return true;
        }
    }
    return true;
}

bool acPKCS11::GetSignKeyType(SignKey& key, bool signatureKey)
{
    LogMessage("PKCS11 GetSignKeyType");
    if (!tokenimpl::sessionIsOpen(m_hSession))
        return false;
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    CK_KEY_TYPE keyType = 0;
    bool keyFound = false;
    if (!findSigningKey(signatureKey, handle, keyType, keyFound))
        return false;
    // No such key leaves the caller's value as it was.
    if (!keyFound)
        return true;

    LogMessage("PKCS11 Key Found");
    return signKeyOf(keyType, key);
}

HashAlgorithm acPKCS11::GetHashAlgorithm(SignKey key)
{
    if (m_CardType == 0)
        LoadCardType();
    if (key != SIGN_KEY_EC)
        return HashRipemd160;
    if (m_CardType >= 5 && m_CardType <= 8)
        return HashSha256;
    return HashRipemd160;
}

bool acPKCS11::findPrivateKeyFromID(const std::string& id, std::string& label)
{
    if (m_hSession == 0) {
        LogError("findPrivateKeyFromID, Session not initialized");
        return false;
    }
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE search[] = {
        {CKA_CLASS, &keyClass, sizeof(keyClass)},
        {CKA_ID, const_cast<char*>(id.data()), id.size()},
    };
    CK_OBJECT_HANDLE handles[10];
    CK_ULONG found = 0;
    if (!FindObjects(search, 2, handles, 10, found)) {
        LogError("PKCS11 FindObjects");
        return false;
    }
    if (found != 1)
        return false;

    char buffer[kLabelBufferSize];
    CK_ATTRIBUTE attribute = {CKA_LABEL, buffer, sizeof(buffer)};
    CK_RV rv = callModule(Proc_C_GetAttributeValue, m_hSession, handles[0], &attribute, 1);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_GetAttributeValue", rv);
        return false;
    }
    if (!tokenimpl::lengthFits(attribute, sizeof(buffer)))
        return false;
    label.assign(buffer, attribute.ulValueLen);
    return !label.empty();
}

bool acPKCS11::moduleHashesRipemd160() const
{
    // Leave RIPEMD-160 to the card when the module says it can sign with the
    // combined mechanism; otherwise this system hashes and the card signs the
    // DigestInfo.
    if (m_SlotIndex < 0 || static_cast<size_t>(m_SlotIndex) >= m_Slots.size())
        return false;
    CK_MECHANISM_INFO info;
    std::memset(&info, 0, sizeof(info));
    CK_RV rv = callModule(Proc_C_GetMechanismInfo, m_Slots[m_SlotIndex]->slotID,
                          static_cast<CK_MECHANISM_TYPE>(CKM_RIPEMD160_RSA_PKCS), &info);
    return rv == CKR_OK && (info.flags & CKF_SIGN) != 0;
}

bool acPKCS11::hashString(const unsigned char* input, unsigned long inputLength,
                          std::vector<unsigned char>& digest, HashAlgorithm alg, bool withDigestInfo)
{
    LogMessage("acPKCS11::hashString");
    // The vector form has no defined size for "no digest"; refuse it here.
    if (input == nullptr || !hasDigest(alg))
        return false;
    std::vector<unsigned char> data(input, input + inputLength);
    return Hash(data, digest, alg, withDigestInfo);
}

namespace {

// The first checks of signString, before any module call.
bool signArgumentsGiven(const unsigned char* input, unsigned long inputLength,
                        const unsigned char* output)
{
    if (inputLength == 0) {
        LogError("PKCS11 insize == 0");
        return false;
    }
    if (input == nullptr) {
        LogError("PKCS11 input == NULL");
        return false;
    }
    if (output == nullptr) {
        LogError("PKCS11 output == NULL");
        return false;
    }
    return true;
}

} // namespace

acPKCS11::SignPlan acPKCS11::signPlanFor(CK_KEY_TYPE keyType, HashAlgorithm alg) const
{
    // The card hashes SHA-1 itself, and RIPEMD-160 on an RSA key where the
    // module offers the combined mechanism; data already hashed goes as is.
    const bool cardHashes =
        alg == HashSha1 || static_cast<int>(alg) == 10 ||
        (keyType == CKK_RSA && alg == HashRipemd160 && moduleHashesRipemd160());
    if (cardHashes)
        return {KeyAndHashAlgoToMechanism(keyType, alg), false};
    // Otherwise this system hashes and the card signs the digest: bare for
    // ECDSA; for RSA inside its PKCS #1 DigestInfo, since a bare digest under
    // CKM_RSA_PKCS would not be a PKCS #1 signature.
    if (keyType == CKK_EC && hasDigest(alg))
        return {CKM_ECDSA, true};
    if (keyType == CKK_RSA && hasDigestInfo(alg) && hasDigest(alg))
        return {CKM_RSA_PKCS, true};
    return {kNoMechanism, false};
}

bool acPKCS11::signInit(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE mechanism, const char* errorText)
{
    CK_MECHANISM mech = {mechanism, nullptr, 0};
    CK_RV rv = callModule(Proc_C_SignInit, m_hSession, &mech, key);
    if (rv != CKR_OK) {
        LogError(errorText, rv);
        return false;
    }
    return true;
}

bool acPKCS11::signData(const unsigned char* data, unsigned long dataLength,
                        unsigned char* output, CK_ULONG& outputLength, const char* errorText)
{
    CK_RV rv = callModule(Proc_C_Sign, m_hSession, const_cast<CK_BYTE_PTR>(data), dataLength,
                          output, &outputLength);
    if (rv != CKR_OK) {
        LogError(errorText, rv);
        return false;
    }
    return true;
}

bool acPKCS11::signString(const unsigned char* input, unsigned long inputLength,
                          unsigned char* output, unsigned long& outputLength, SignKey& key,
                          bool signatureKey, HashAlgorithm alg)
{
    LogMessage("acPKCS11::signString with HashAlgorithm");
    if (!signArgumentsGiven(input, inputLength, output) ||
        !tokenimpl::sessionIsOpen(m_hSession))
        return false;

    CK_OBJECT_HANDLE keyHandle = CK_INVALID_HANDLE;
    CK_KEY_TYPE keyType = 0;
    bool keyFound = false;
    if (!findSigningKey(signatureKey, keyHandle, keyType, keyFound))
        return false;
    if (!keyFound) {
        LogMessage("PKCS11 Key NOT Found");
        return false;
    }
    LogMessage("PKCS11 Key Found");
    signKeyOf(keyType, key);

    const SignPlan plan = signPlanFor(keyType, alg);
    if (plan.mechanism == kNoMechanism) {
        LogError("PKCS11 Unbekannter Signaturalgorihtmus");
        return false;
    }
    if (inputLength > kMaxSignInput) {
        LogError("Data size too long: " + std::to_string(inputLength) + " bytes");
        return false;
    }

    std::vector<unsigned char> digest;
    const unsigned char* toSign = input;
    CK_ULONG toSignLength = inputLength;
    if (plan.systemHashes) {
        if (!hashString(input, inputLength, digest, alg, keyType == CKK_RSA)) {
            LogError("PKCS11 ERROR hashing data");
            return false;
        }
        if (digest.size() > kMaxSignInput) {
            LogError("PKCS11 buffer size error");
            return false;
        }
        toSign = digest.data();
        toSignLength = digest.size();
    }

    if (!signInit(keyHandle, plan.mechanism, "PKCS11 Proc_C_SignInit ERROR"))
        return false;
    LogMessage("PKCS11 Anzeige: Bitte PIN eingeben");
    CK_ULONG signatureLength = outputLength;
    if (!signData(toSign, toSignLength, output, signatureLength, "PKCS11 Proc_C_Sign ERROR"))
        return false;
    if (signatureLength > outputLength) {
        LogError("PKCS11 buffer size error");
        return false;
    }
    outputLength = signatureLength;
    return true;
}

bool acPKCS11::signString(const unsigned char* input, unsigned long inputLength,
                          unsigned char* output, unsigned long& outputLength, SignKey& key,
                          bool signatureKey)
{
    // The hash algorithm follows from the card and the kind of key.
    SignKey keyKind = SIGN_KEY_RSA;
    if (!GetSignKeyType(keyKind, signatureKey))
        return false;
    return signString(input, inputLength, output, outputLength, key, signatureKey,
                      GetHashAlgorithm(keyKind));
}

bool acPKCS11::signString(const char* text, unsigned char* output, unsigned long& outputLength)
{
    LogMessage("acPKCS11::signString(char*)");
    if (text == nullptr) {
        LogError("PKCS11 input == NULL");
        return false;
    }
    SignKey key = SIGN_KEY_RSA;
    return signString(reinterpret_cast<const unsigned char*>(text), std::strlen(text), output,
                      outputLength, key, true);
}

bool acPKCS11::Sign(const std::string& label, const std::vector<unsigned char>& data,
                    std::vector<unsigned char>& signature, HashAlgorithm alg)
{
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE search = {CKA_CLASS, &keyClass, sizeof(keyClass)};
    CK_OBJECT_HANDLE handles[10];
    CK_ULONG found = 0;
    if (!FindObjects(&search, 1, handles, 10, found)) {
        LogError("PKCS11 FindObjects");
        return false;
    }

    for (CK_ULONG i = 0; i < found; ++i) {
        std::string keyLabel;
        CK_KEY_TYPE keyType = 0;
        CK_RV rv = readLabelAndKeyType(Proc_C_GetAttributeValue, m_hSession, handles[i], keyLabel,
                                       keyType);
        if (rv != CKR_OK) {
            LogError("PKCS11 Proc_C_GetAttributeValue", rv);
            continue;
        }
        if (keyLabel.compare(0, label.size(), label) != 0 || keyLabel.size() < label.size())
            continue;

        CK_MECHANISM mech;
        if (!mechanismFor(keyType, alg, mech) ||
            !signInit(handles[i], mech.mechanism, "PKCS11 Proc_C_SignInit"))
            return false;
        CK_ULONG length = 0;
        if (!signData(data.data(), data.size(), nullptr, length, "PKCS11 Proc_C_Sign"))
            return false;
        if (length == 0 || length > kMaxSignatureLength)
            return false;
        std::vector<unsigned char> buffer(length);
        CK_ULONG written = length;
        if (!signData(data.data(), data.size(), buffer.data(), written, "PKCS11 Proc_C_Sign"))
            return false;
        if (written == 0 || written > buffer.size())
            return false;
        signature.insert(signature.end(), buffer.begin(), buffer.begin() + written);
        return true;
    }
    return false;
}

bool acPKCS11::Verify(const std::string& label, const std::vector<unsigned char>& data,
                      const std::vector<unsigned char>& signature, HashAlgorithm alg)
{
    CK_OBJECT_CLASS keyClass = CKO_PUBLIC_KEY;
    CK_ATTRIBUTE search[] = {
        {CKA_CLASS, &keyClass, sizeof(keyClass)},
        {CKA_LABEL, const_cast<char*>(label.data()), label.size()},
    };
    CK_OBJECT_HANDLE handles[10];
    CK_ULONG found = 0;
    if (!FindObjects(search, 2, handles, 10, found)) {
        LogError("PKCS11 FindObjects");
        return false;
    }
    if (found == 0)
        return false;

    CK_KEY_TYPE keyType = ~static_cast<CK_KEY_TYPE>(0);
    CK_ATTRIBUTE attribute = {CKA_KEY_TYPE, &keyType, sizeof(keyType)};
    CK_RV rv = callModule(Proc_C_GetAttributeValue, m_hSession, handles[0], &attribute, 1);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_GetAttributeValue", rv);
        return false;
    }
    if (attribute.ulValueLen != sizeof(keyType))
        return false;

    CK_MECHANISM mech;
    if (!mechanismFor(keyType, alg, mech))
        return false;
    rv = callModule(Proc_C_VerifyInit, m_hSession, &mech, handles[0]);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_VerifyInit", rv);
        return false;
    }
    rv = callModule(Proc_C_Verify, m_hSession, const_cast<CK_BYTE_PTR>(data.data()), data.size(),
                    const_cast<CK_BYTE_PTR>(signature.data()), signature.size());
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_Verify ERROR", rv);
        return false;
    }
    return true;
}

bool acPKCS11::Verify(const std::string& label, const std::vector<unsigned char>& data,
                      const std::vector<unsigned char>& signature)
{
    return Verify(label, data, signature, HashSha1);
}

} // namespace Korvex
