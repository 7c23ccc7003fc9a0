// The module's behaviour behind each PKCS#11 entry point, grouped by what it
// works on: module and slots, sessions and login, objects, cryptography, and
// the vendor's card extensions. The exported C functions only forward here.
#pragma once

#include <p11-kit/pkcs11.h>

namespace VessaSim {

// Module and slots (SlotCalls.cpp)
CK_RV initialize(CK_VOID_PTR args);
CK_RV finalize(CK_VOID_PTR reserved);
CK_RV getInfo(CK_INFO_PTR info);
CK_RV getSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count);
CK_RV getSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO_PTR info);
CK_RV getTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info);
CK_RV waitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR slot, CK_VOID_PTR reserved);
CK_RV getMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count);
CK_RV getMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR info);

// Sessions and login (SessionCalls.cpp)
CK_RV openSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                  CK_SESSION_HANDLE_PTR session);
CK_RV closeSession(CK_SESSION_HANDLE session);
CK_RV closeAllSessions(CK_SLOT_ID slot);
CK_RV getSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO_PTR info);
CK_RV login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG pinLength);
CK_RV logout(CK_SESSION_HANDLE session);
CK_RV setPin(CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR oldPin, CK_ULONG oldLength, CK_UTF8CHAR_PTR newPin,
             CK_ULONG newLength);

// Objects (ObjectCalls.cpp)
CK_RV findObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR pattern, CK_ULONG count);
CK_RV findObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG maxCount,
                  CK_ULONG_PTR count);
CK_RV findObjectsFinal(CK_SESSION_HANDLE session);
CK_RV getAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR pattern,
                        CK_ULONG count);
CK_RV setAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR pattern,
                        CK_ULONG count);
CK_RV getObjectSize(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ULONG_PTR size);

// Cryptography (CryptoCalls.cpp)
CK_RV digestInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism);
CK_RV digest(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
             CK_ULONG_PTR outLength);
CK_RV digestUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length);
CK_RV digestFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR out, CK_ULONG_PTR outLength);
CK_RV signInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key);
CK_RV sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
           CK_ULONG_PTR signatureLength);
CK_RV signUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length);
CK_RV signFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR signature, CK_ULONG_PTR signatureLength);
CK_RV verifyInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key);
CK_RV verify(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG signatureLength);
CK_RV verifyUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length);
CK_RV verifyFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR signature, CK_ULONG signatureLength);
CK_RV generateRandom(CK_SESSION_HANDLE session, CK_BYTE_PTR out, CK_ULONG length);
CK_RV seedRandom(CK_SESSION_HANDLE session, CK_BYTE_PTR seed, CK_ULONG length);

// Vendor extensions (CardCalls.cpp)
CK_RV cardTransmit(CK_SESSION_HANDLE session, CK_BYTE_PTR command, CK_ULONG commandLength,
                   CK_BYTE_PTR response, CK_ULONG_PTR responseLength);
CK_RV cardAttribute(CK_SESSION_HANDLE session, const char* name, CK_BYTE_PTR out, CK_ULONG_PTR outLength);

// Every entry point the module does not offer: CKR_CRYPTOKI_NOT_INITIALIZED
// before C_Initialize, else CKR_FUNCTION_NOT_SUPPORTED.
CK_RV notSupported();

} // namespace VessaSim
