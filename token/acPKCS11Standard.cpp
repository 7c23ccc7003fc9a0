// What the program does with a token that is not one of the vendor's cards,
// through standard calls only: its raw token information, the certificates
// on it with the one a private key belongs to, and the user PIN changed or
// unblocked with PINs the program asked for itself (or on the reader's pad).
#include "token/acPKCS11.h"

#include "token/acPKCS11Internal.h"

#include <algorithm>
#include <cstring>

namespace Korvex {

using tokenimpl::callModule;

namespace {

constexpr CK_ULONG kMaxObjects = 64;
// Bound for one attribute a module reports; a certificate is far smaller.
constexpr CK_ULONG kMaxAttributeLength = 64 * 1024;

PKCS11Return pinResult(CK_RV rv)
{
    switch (rv) {
    case CKR_OK: return PKCS11_OK;
    case CKR_FUNCTION_CANCELED: return PKCS11_CANCELED;
    case CKR_PIN_INCORRECT: return PKCS11_PIN_INCORRECT;
    case CKR_PIN_LOCKED: return PKCS11_PIN_LOCKED;
    case CKR_FUNCTION_NOT_SUPPORTED: return PKCS11_NOT_SUPPORTED;
    default: return PKCS11_ERROR;
    }
}

// A PIN for the module: its bytes, or none on a reader that asks itself.
CK_UTF8CHAR_PTR pinBytes(const std::string* pin)
{
    return pin != nullptr ? reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin->data())) : nullptr;
}

CK_ULONG pinLength(const std::string* pin)
{
    return pin != nullptr ? pin->size() : 0;
}

} // namespace

bool acPKCS11::GetStandardTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO& info)
{
    std::memset(&info, 0, sizeof(info));
    CK_RV rv = callModule(Proc_C_GetTokenInfo, slot, &info);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_GetTokenInfo ERROR", rv);
        return false;
    }
    return true;
}

bool acPKCS11::GetStandardSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO& info)
{
    std::memset(&info, 0, sizeof(info));
    return callModule(Proc_C_GetSlotInfo, slot, &info) == CKR_OK;
}

bool acPKCS11::readAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, std::vector<unsigned char>& value)
{
    value.clear();
    CK_ATTRIBUTE attribute = {type, nullptr, 0};
    if (callModule(Proc_C_GetAttributeValue, m_hSession, object, &attribute, 1) != CKR_OK ||
        attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION || attribute.ulValueLen > kMaxAttributeLength)
        return false;
    value.assign(attribute.ulValueLen, 0);
    attribute.pValue = value.data();
    if (callModule(Proc_C_GetAttributeValue, m_hSession, object, &attribute, 1) != CKR_OK ||
        !tokenimpl::lengthFits(attribute, value.size()))
        return false;
    value.resize(attribute.ulValueLen);
    return true;
}

bool acPKCS11::findByClass(CK_OBJECT_CLASS objectClass, std::vector<CK_OBJECT_HANDLE>& handles)
{
    CK_ATTRIBUTE search = {CKA_CLASS, &objectClass, sizeof(objectClass)};
    handles.assign(kMaxObjects, 0);
    CK_ULONG found = 0;
    if (!FindObjects(&search, 1, handles.data(), kMaxObjects, found))
        return false;
    handles.resize(found);
    return true;
}

bool acPKCS11::ListTokenCertificates(std::vector<TokenObject>& certificates)
{
    certificates.clear();
    std::vector<CK_OBJECT_HANDLE> handles;
    if (!sessionIsOpenHere() || !findByClass(CKO_CERTIFICATE, handles))
        return false;
    // Private keys are hidden until a login; the public half of a key pair
    // is not and carries the same identifier.
    std::vector<std::vector<unsigned char>> keyIds;
    for (CK_OBJECT_CLASS keyClass : {CKO_PRIVATE_KEY, CKO_PUBLIC_KEY}) {
        std::vector<CK_OBJECT_HANDLE> keys;
        if (findByClass(keyClass, keys))
            for (CK_OBJECT_HANDLE key : keys) {
                std::vector<unsigned char> id;
                if (readAttribute(key, CKA_ID, id) && !id.empty())
                    keyIds.push_back(id);
            }
    }
    for (CK_OBJECT_HANDLE handle : handles) {
        TokenObject certificate;
        certificate.handle = handle;
        std::vector<unsigned char> label;
        if (!readAttribute(handle, CKA_VALUE, certificate.value) || certificate.value.empty())
            continue;
        if (readAttribute(handle, CKA_LABEL, label))
            certificate.label.assign(label.begin(), label.end());
        readAttribute(handle, CKA_ID, certificate.id);
        for (const std::vector<unsigned char>& id : keyIds)
            certificate.hasPrivateKey = certificate.hasPrivateKey || id == certificate.id;
        certificates.push_back(certificate);
    }
    // Modules list objects in no set order; the holder's certificate (the
    // first with a key pair) must not change from one refresh to the next.
    std::stable_sort(certificates.begin(), certificates.end(),
                     [](const TokenObject& a, const TokenObject& b) { return a.id < b.id; });
    return true;
}

bool acPKCS11::ListSigningKeys(std::vector<TokenObject>& keys)
{
    keys.clear();
    std::vector<CK_OBJECT_HANDLE> handles;
    if (!sessionIsOpenHere() || !findByClass(CKO_PRIVATE_KEY, handles))
        return false;
    for (CK_OBJECT_HANDLE handle : handles) {
        std::vector<unsigned char> flag, type, label;
        if (readAttribute(handle, CKA_SIGN, flag) && (flag.size() != 1 || flag[0] == CK_FALSE))
            continue;
        TokenObject key;
        key.handle = handle;
        if (readAttribute(handle, CKA_KEY_TYPE, type) && type.size() == sizeof(CK_KEY_TYPE))
            std::memcpy(&key.keyType, type.data(), sizeof(CK_KEY_TYPE));
        if (readAttribute(handle, CKA_LABEL, label))
            key.label.assign(label.begin(), label.end());
        readAttribute(handle, CKA_ID, key.id);
        keys.push_back(key);
    }
    return true;
}

bool acPKCS11::sessionIsOpenHere() const
{
    return tokenimpl::sessionIsOpen(m_hSession);
}

PKCS11Return acPKCS11::SetUserPin(const std::string* oldPin, const std::string* newPin)
{
    LogMessage("PKCS11 SetUserPin");
    if (!sessionIsOpenHere())
        return PKCS11_ERROR;
    const CK_RV rv = callModule(Proc_C_SetPIN, m_hSession, pinBytes(oldPin), pinLength(oldPin), pinBytes(newPin),
                                pinLength(newPin));
    if (rv != CKR_OK)
        LogError("PKCS11 Proc_C_SetPIN ERROR", rv);
    return pinResult(rv);
}

PKCS11Return acPKCS11::UnblockUserPin(const std::string* puk, const std::string* newPin)
{
    LogMessage("PKCS11 UnblockUserPin");
    if (!sessionIsOpenHere())
        return PKCS11_ERROR;
    CK_RV rv = callModule(Proc_C_Login, m_hSession, CKU_SO, pinBytes(puk), pinLength(puk));
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_Login ERROR", rv);
        return pinResult(rv);
    }
    rv = callModule(Proc_C_InitPIN, m_hSession, pinBytes(newPin), pinLength(newPin));
    if (rv != CKR_OK)
        LogError("PKCS11 Proc_C_InitPIN ERROR", rv);
    callModule(Proc_C_Logout, m_hSession);
    return pinResult(rv);
}

PKCS11Return acPKCS11::LoginUser(const std::string* pin)
{
    if (!sessionIsOpenHere())
        return PKCS11_ERROR;
    const CK_RV rv = callModule(Proc_C_Login, m_hSession, CKU_USER, pinBytes(pin), pinLength(pin));
    if (rv != CKR_OK && rv != CKR_USER_ALREADY_LOGGED_IN) {
        LogError("PKCS11 Proc_C_Login ERROR", rv);
        return pinResult(rv);
    }
    return PKCS11_OK;
}

void acPKCS11::LogoutUser()
{
    if (m_hSession != 0)
        callModule(Proc_C_Logout, m_hSession);
}

bool acPKCS11::SignWithKey(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE mechanism, const std::vector<unsigned char>& data,
                           std::vector<unsigned char>& signature)
{
    signature.clear();
    CK_RSA_PKCS_PSS_PARAMS pss = {CKM_SHA256, CKG_MGF1_SHA256, 32};
    CK_MECHANISM chosen = {mechanism, nullptr, 0};
    if (mechanism == CKM_SHA256_RSA_PKCS_PSS) {
        chosen.pParameter = &pss;
        chosen.ulParameterLen = sizeof(pss);
    }
    CK_RV rv = callModule(Proc_C_SignInit, m_hSession, &chosen, key);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_SignInit ERROR", rv);
        return false;
    }
    CK_BYTE_PTR input = const_cast<CK_BYTE_PTR>(data.data());
    CK_ULONG length = 0;
    rv = callModule(Proc_C_Sign, m_hSession, input, data.size(), nullptr, &length);
    if (rv == CKR_OK && length <= kMaxAttributeLength) {
        signature.assign(length, 0);
        rv = callModule(Proc_C_Sign, m_hSession, input, data.size(), signature.data(), &length);
    }
    if (rv != CKR_OK || length > signature.size()) {
        LogError("PKCS11 Proc_C_Sign ERROR", rv);
        signature.clear();
        return false;
    }
    signature.resize(length);
    return true;
}

bool acPKCS11::GetMechanisms(CK_SLOT_ID slot, std::vector<CK_MECHANISM_TYPE>& mechanisms)
{
    mechanisms.clear();
    CK_ULONG count = 0;
    if (callModule(Proc_C_GetMechanismList, slot, nullptr, &count) != CKR_OK)
        return false;
    if (count > tokenimpl::kMaxSlotCount)
        count = tokenimpl::kMaxSlotCount;
    mechanisms.assign(count, 0);
    if (callModule(Proc_C_GetMechanismList, slot, mechanisms.data(), &count) != CKR_OK)
        return false;
    if (count < mechanisms.size())
        mechanisms.resize(count);
    return true;
}

} // namespace Korvex
