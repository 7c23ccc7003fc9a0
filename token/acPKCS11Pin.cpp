// PIN change and unblock through the module's own dialogues (started by
// setting a vendor attribute on the protected object), and PIN retry status.
#include "token/acPKCS11.h"

#include "token/acPKCS11Internal.h"

namespace Korvex {

using tokenimpl::callModule;

namespace {

// Finds the object whose PIN an application uses, on the token's open session.
bool findProtectedObject(acPKCS11& token, ApplType appl, CK_OBJECT_HANDLE& object)
{
    switch (appl) {
    case APPL_SIGNATURE:
        return token.FindObject("SK.CH.SIG", CKO_PRIVATE_KEY, object);
    case APPL_ENCRYPTION:
        return token.FindObject("SK.CH.EKEY", CKO_PRIVATE_KEY, object);
    case APPL_IDENTITY_LINK:
        return token.FindObject("PERSONENBINDUNG", CKO_DATA, object);
    }
    return false;
}

} // namespace

PKCS11Return acPKCS11::ChangePIN(ApplType appl)
{
    LogMessage("ChangePIN");
    m_LastPinCommandRv = CKR_OK;  // no answer of the module yet
    if (!tokenimpl::sessionIsOpen(m_hSession))
        return PKCS11_ERROR;
    return GenericPINCommand(appl, CKA_VENDOR_CHANGE_PIN);
}

PKCS11Return acPKCS11::UnblockPIN(ApplType appl)
{
    LogMessage("UnblockPIN");
    m_LastPinCommandRv = CKR_OK;
    if (!tokenimpl::sessionIsOpen(m_hSession))
        return PKCS11_ERROR;
    return GenericPINCommand(appl, CKA_VENDOR_UNBLOCK_PIN);
}

PKCS11Return acPKCS11::InitPIN(ApplType appl)
{
    LogMessage("InitPIN");
    if (!tokenimpl::sessionIsOpen(m_hSession))
        return PKCS11_ERROR;
    // The card type code is taken as it stands; callers load it beforehand.
    bool force = appl == APPL_SIGNATURE && (m_CardType == 1 || m_CardType == 5 || m_CardType == 6);
    return GenericPINCommand(appl, CKA_VENDOR_CHANGE_PIN, force, force);
}

PKCS11Return acPKCS11::GenericPINCommand(ApplType appl, CK_ATTRIBUTE_TYPE command)
{
    m_LastPinCommandRv = CKR_OK;
    CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
    if (!findProtectedObject(*this, appl, object))
        return PKCS11_ERROR;

    // The module runs its whole PIN dialogue inside this call.
    CK_BBOOL value = CK_FALSE;
    CK_ATTRIBUTE attribute = {command, &value, 1};
    CK_RV rv = callModule(Proc_C_SetAttributeValue, m_hSession, object, &attribute, 1);
    m_LastPinCommandRv = rv;
    switch (rv) {
    case CKR_OK:
        return PKCS11_OK;
    case CKR_FUNCTION_CANCELED:
        LogError("Proc_C_SetAttributeValue returned CKR_FUNCTION_CANCELED");
        return PKCS11_CANCELED;
    case CKR_PIN_INCORRECT:
        LogError("Proc_C_SetAttributeValue returned CKR_PIN_INCORRECT");
        return PKCS11_PIN_INCORRECT;
    case CKR_PIN_LOCKED:
        LogError("Proc_C_SetAttributeValue returned CKR_PIN_LOCKED");
        return PKCS11_PIN_LOCKED;
    default:
        LogError("Proc_C_SetAttributeValue returned ", rv);
        // The module runs the dialogue: this is its answer when it could not
        // show one (no desktop session for its pinentry, say).
        if (rv == CKR_FUNCTION_FAILED)
            LogMessage(kPinDialogueNotShown);
        return PKCS11_ERROR;
    }
}

PKCS11Return acPKCS11::GenericPINCommand(ApplType appl, CK_ATTRIBUTE_TYPE command, bool value,
                                         bool forceSoftwarePin)
{
    CK_BBOOL byte = value ? CK_TRUE : CK_FALSE;
    CK_ATTRIBUTE attributes[2] = {
        {command, &byte, 1},
        {0, nullptr, 0},
    };
    CK_ULONG count = 1;
    CK_ULONG retryCount = 0;
    if (forceSoftwarePin && ClientSupportForceSofwarePin()) {
        LogMessage("acPKCS11::_GenericPINCommand: force Software Pin");
        byte = CK_TRUE;
        attributes[1] = {CKA_VENDOR_FORCE_SOFTWARE_PIN, &byte, 1};
        count = 2;
        retryCount = 1;
    }

    CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
    if (!findProtectedObject(*this, appl, object))
        return PKCS11_ERROR;

    CK_RV rv = callModule(Proc_C_SetAttributeValue, m_hSession, object, attributes, count);
    // A module that cannot force the software PIN entry fails the request as
    // a whole; ask again without the marker (older clients: without anything).
    if (rv == CKR_FUNCTION_FAILED && forceSoftwarePin)
        rv = callModule(Proc_C_SetAttributeValue, m_hSession, object, attributes, retryCount);

    // This form maps differently from the two-argument one on purpose: a
    // wrong PIN reads as locked and any other failure as a wrong PIN.
    switch (rv) {
    case CKR_OK:
        return PKCS11_OK;
    case CKR_FUNCTION_CANCELED:
        return PKCS11_CANCELED;
    case CKR_PIN_INCORRECT:
        return PKCS11_PIN_LOCKED;
    default:
        return PKCS11_PIN_INCORRECT;
    }
}

PKCS11Return acPKCS11::GetPINStatus(ApplType appl, PINState& state, int32_t& tries)
{
    LogMessage("GetPINStatus");
    if (!tokenimpl::sessionIsOpen(m_hSession))
        return PKCS11_ERROR;
    state = PIN_STATE_UNKNOWN;
    tries = -1;
    // Only these card generations report retry counters.
    if (m_CardType != 3 && m_CardType != 7 && m_CardType != 8)
        return PKCS11_ERROR;

    const char* name = nullptr;
    if (appl == APPL_SIGNATURE)
        name = "SicSig/PIN-Status";
    else if (appl == APPL_ENCRYPTION || appl == APPL_IDENTITY_LINK)
        name = "GewSig/PIN-Status";
    else
        return PKCS11_ERROR;

    unsigned char buffer[5] = {0, 0, 0, 0, 0};
    CK_ULONG length = sizeof(buffer);
    CK_RV rv = callModule(Proc_C_CardAttribute, m_hSession, name, buffer, &length);

    // The first byte is read whatever the call returned.
    if (buffer[0] == 0xFF) {
        state = PIN_STATE_UNKNOWN;
        tries = -1;
    } else if (buffer[0] != 0) {
        state = PIN_STATE_TRIES_LEFT;
        tries = buffer[0];
    } else {
        state = PIN_STATE_NO_TRIES;
        tries = 0;
    }
    if (rv == CKR_OK)
        return PKCS11_OK;
    if (rv == CKR_FUNCTION_NOT_SUPPORTED)
        return PKCS11_NOT_SUPPORTED;
    return PKCS11_ERROR;
}

} // namespace Korvex
