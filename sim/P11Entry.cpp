// The exported PKCS#11 entry points. Each only forwards to the module and
// makes sure no C++ exception ever crosses into the calling program.
#include "sim/Calls.h"
#include "sim/Guarded.h"

#include <new>

using namespace VessaSim;

namespace {

CK_RV notParallel() {
    CK_RV rv = guarded([] { return notSupported(); });
    return rv == CKR_FUNCTION_NOT_SUPPORTED ? CKR_FUNCTION_NOT_PARALLEL : rv;
}

} // namespace

#define VSIM_FORWARD(call) return guarded([&] { return call; })
#define VSIM_UNSUPPORTED return guarded([] { return notSupported(); })

extern "C" {

CK_RV C_Initialize(CK_VOID_PTR args) { VSIM_FORWARD(initialize(args)); }
CK_RV C_Finalize(CK_VOID_PTR reserved) { VSIM_FORWARD(finalize(reserved)); }
CK_RV C_GetInfo(CK_INFO_PTR info) { VSIM_FORWARD(getInfo(info)); }
CK_RV C_GetSlotList(CK_BBOOL present, CK_SLOT_ID_PTR list, CK_ULONG_PTR count) {
    VSIM_FORWARD(getSlotList(present, list, count));
}
CK_RV C_GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO_PTR info) { VSIM_FORWARD(getSlotInfo(slot, info)); }
CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info) { VSIM_FORWARD(getTokenInfo(slot, info)); }
CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR slot, CK_VOID_PTR reserved) {
    VSIM_FORWARD(waitForSlotEvent(flags, slot, reserved));
}
CK_RV C_GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count) {
    VSIM_FORWARD(getMechanismList(slot, list, count));
}
CK_RV C_GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR info) {
    VSIM_FORWARD(getMechanismInfo(slot, type, info));
}
CK_RV C_InitToken(CK_SLOT_ID, CK_UTF8CHAR_PTR, CK_ULONG, CK_UTF8CHAR_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_InitPIN(CK_SESSION_HANDLE, CK_UTF8CHAR_PTR, CK_ULONG) { VSIM_UNSUPPORTED; }
CK_RV C_SetPIN(CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR oldPin, CK_ULONG oldLength, CK_UTF8CHAR_PTR newPin,
               CK_ULONG newLength) {
    VSIM_FORWARD(setPin(session, oldPin, oldLength, newPin, newLength));
}
CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE_PTR session) {
    VSIM_FORWARD(openSession(slot, flags, application, notify, session));
}
CK_RV C_CloseSession(CK_SESSION_HANDLE session) { VSIM_FORWARD(closeSession(session)); }
CK_RV C_CloseAllSessions(CK_SLOT_ID slot) { VSIM_FORWARD(closeAllSessions(slot)); }
CK_RV C_GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO_PTR info) {
    VSIM_FORWARD(getSessionInfo(session, info));
}
CK_RV C_GetOperationState(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_SetOperationState(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_OBJECT_HANDLE, CK_OBJECT_HANDLE) {
    VSIM_UNSUPPORTED;
}
CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
    VSIM_FORWARD(login(session, user, pin, length));
}
CK_RV C_Logout(CK_SESSION_HANDLE session) { VSIM_FORWARD(logout(session)); }
CK_RV C_CreateObject(CK_SESSION_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG, CK_OBJECT_HANDLE_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_CopyObject(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG, CK_OBJECT_HANDLE_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_DestroyObject(CK_SESSION_HANDLE, CK_OBJECT_HANDLE) { VSIM_UNSUPPORTED; }
CK_RV C_GetObjectSize(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ULONG_PTR size) {
    VSIM_FORWARD(getObjectSize(session, object, size));
}
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR pattern,
                          CK_ULONG count) {
    VSIM_FORWARD(getAttributeValue(session, object, pattern, count));
}
CK_RV C_SetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR pattern,
                          CK_ULONG count) {
    VSIM_FORWARD(setAttributeValue(session, object, pattern, count));
}
CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR pattern, CK_ULONG count) {
    VSIM_FORWARD(findObjectsInit(session, pattern, count));
}
CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG maxCount,
                    CK_ULONG_PTR count) {
    VSIM_FORWARD(findObjects(session, objects, maxCount, count));
}
CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) { VSIM_FORWARD(findObjectsFinal(session)); }
CK_RV C_EncryptInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) { VSIM_UNSUPPORTED; }
CK_RV C_Encrypt(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_EncryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_EncryptFinal(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_DecryptInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) { VSIM_UNSUPPORTED; }
CK_RV C_Decrypt(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_DecryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_DecryptFinal(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_DigestInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism) {
    VSIM_FORWARD(digestInit(session, mechanism));
}
CK_RV C_Digest(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
               CK_ULONG_PTR outLength) {
    VSIM_FORWARD(digest(session, data, length, out, outLength));
}
CK_RV C_DigestUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length) {
    VSIM_FORWARD(digestUpdate(session, data, length));
}
CK_RV C_DigestKey(CK_SESSION_HANDLE, CK_OBJECT_HANDLE) { VSIM_UNSUPPORTED; }
CK_RV C_DigestFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    VSIM_FORWARD(digestFinal(session, out, outLength));
}
CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    VSIM_FORWARD(signInit(session, mechanism, key));
}
CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG_PTR signatureLength) {
    VSIM_FORWARD(sign(session, data, length, signature, signatureLength));
}
CK_RV C_SignUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length) {
    VSIM_FORWARD(signUpdate(session, data, length));
}
CK_RV C_SignFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR signature, CK_ULONG_PTR signatureLength) {
    VSIM_FORWARD(signFinal(session, signature, signatureLength));
}
CK_RV C_SignRecoverInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) { VSIM_UNSUPPORTED; }
CK_RV C_SignRecover(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_VerifyInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    VSIM_FORWARD(verifyInit(session, mechanism, key));
}
CK_RV C_Verify(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
               CK_ULONG signatureLength) {
    VSIM_FORWARD(verify(session, data, length, signature, signatureLength));
}
CK_RV C_VerifyUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length) {
    VSIM_FORWARD(verifyUpdate(session, data, length));
}
CK_RV C_VerifyFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR signature, CK_ULONG signatureLength) {
    VSIM_FORWARD(verifyFinal(session, signature, signatureLength));
}
CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) { VSIM_UNSUPPORTED; }
CK_RV C_VerifyRecover(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) { VSIM_UNSUPPORTED; }
CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_GenerateKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_ATTRIBUTE_PTR, CK_ULONG, CK_OBJECT_HANDLE_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_ATTRIBUTE_PTR, CK_ULONG, CK_ATTRIBUTE_PTR,
                        CK_ULONG, CK_OBJECT_HANDLE_PTR, CK_OBJECT_HANDLE_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_WrapKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE, CK_OBJECT_HANDLE, CK_BYTE_PTR,
                CK_ULONG_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_UnwrapKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_ATTRIBUTE_PTR,
                  CK_ULONG, CK_OBJECT_HANDLE_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_DeriveKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG,
                  CK_OBJECT_HANDLE_PTR) {
    VSIM_UNSUPPORTED;
}
CK_RV C_SeedRandom(CK_SESSION_HANDLE session, CK_BYTE_PTR seed, CK_ULONG length) {
    VSIM_FORWARD(seedRandom(session, seed, length));
}
CK_RV C_GenerateRandom(CK_SESSION_HANDLE session, CK_BYTE_PTR out, CK_ULONG length) {
    VSIM_FORWARD(generateRandom(session, out, length));
}
CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE) { return notParallel(); }
CK_RV C_CancelFunction(CK_SESSION_HANDLE) { return notParallel(); }

// Vendor extensions.
CK_RV C_CardTransmit(CK_SESSION_HANDLE session, CK_BYTE_PTR command, CK_ULONG commandLength, CK_BYTE_PTR response,
                     CK_ULONG_PTR responseLength) {
    VSIM_FORWARD(cardTransmit(session, command, commandLength, response, responseLength));
}
CK_RV C_CardAttribute(CK_SESSION_HANDLE session, const char* name, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    VSIM_FORWARD(cardAttribute(session, name, out, outLength));
}

static CK_FUNCTION_LIST g_functionList = {
    {2, 40},
    C_Initialize, C_Finalize, C_GetInfo, C_GetFunctionList, C_GetSlotList, C_GetSlotInfo, C_GetTokenInfo,
    C_GetMechanismList, C_GetMechanismInfo, C_InitToken, C_InitPIN, C_SetPIN, C_OpenSession, C_CloseSession,
    C_CloseAllSessions, C_GetSessionInfo, C_GetOperationState, C_SetOperationState, C_Login, C_Logout,
    C_CreateObject, C_CopyObject, C_DestroyObject, C_GetObjectSize, C_GetAttributeValue, C_SetAttributeValue,
    C_FindObjectsInit, C_FindObjects, C_FindObjectsFinal, C_EncryptInit, C_Encrypt, C_EncryptUpdate,
    C_EncryptFinal, C_DecryptInit, C_Decrypt, C_DecryptUpdate, C_DecryptFinal, C_DigestInit, C_Digest,
    C_DigestUpdate, C_DigestKey, C_DigestFinal, C_SignInit, C_Sign, C_SignUpdate, C_SignFinal,
    C_SignRecoverInit, C_SignRecover, C_VerifyInit, C_Verify, C_VerifyUpdate, C_VerifyFinal,
    C_VerifyRecoverInit, C_VerifyRecover, C_DigestEncryptUpdate, C_DecryptDigestUpdate, C_SignEncryptUpdate,
    C_DecryptVerifyUpdate, C_GenerateKey, C_GenerateKeyPair, C_WrapKey, C_UnwrapKey, C_DeriveKey,
    C_SeedRandom, C_GenerateRandom, C_GetFunctionStatus, C_CancelFunction, C_WaitForSlotEvent,
};

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
    if (!list) return CKR_ARGUMENTS_BAD;
    *list = &g_functionList;
    return CKR_OK;
}

} // extern "C"
