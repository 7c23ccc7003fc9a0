// Entry points of a module that exports only its function table: PKCS#11
// lets a module publish C_GetFunctionList (and, from version 3.0,
// C_GetInterface) alone, as p11-kit's proxy does. Such a module gets every
// class-wide pointer from its table instead of symbol by symbol.
#include "token/acPKCS11.h"

#include "token/LoadFreeLib.h"
#include "token/acPKCS11Internal.h"


namespace Korvex {

namespace {

// PKCS#11 3.0's interface record; the installed header predates it. The
// "PKCS 11" interface's table begins with the version 2 table.
struct InterfaceRecord {
    CK_CHAR* name;
    void* functionList;
    CK_FLAGS flags;
};
typedef CK_RV (*GetInterfaceFn)(CK_UTF8CHAR* name, CK_VERSION* version, InterfaceRecord** found,
                                CK_FLAGS flags);

// The standard table of the module: from its default interface when it has
// one, else from C_GetFunctionList; null when it offers neither.
CK_FUNCTION_LIST* moduleFunctionTable(void* module)
{
    auto getInterface = reinterpret_cast<GetInterfaceFn>(ac_dlsym(module, "C_GetInterface"));
    if (getInterface != nullptr) {
        InterfaceRecord* found = nullptr;
        CK_UTF8CHAR name[] = "PKCS 11";
        if (getInterface(name, nullptr, &found, 0) == CKR_OK && found != nullptr &&
            found->functionList != nullptr)
            return static_cast<CK_FUNCTION_LIST*>(found->functionList);
    }
    auto getFunctionList = reinterpret_cast<CK_C_GetFunctionList>(ac_dlsym(module, "C_GetFunctionList"));
    CK_FUNCTION_LIST* table = nullptr;
    if (getFunctionList == nullptr || getFunctionList(&table) != CKR_OK)
        return nullptr;
    return table;
}

} // namespace

bool acPKCS11::exportsStandardSymbols(void* module)
{
    // Any standard entry point besides the table functions means the module
    // is resolved by name, and one lacking C_Initialize fails as it always did.
    static const char* const probes[] = {"C_Initialize", "C_Finalize", "C_GetInfo", "C_GetSlotList",
                                         "C_GetTokenInfo", "C_OpenSession", "C_Login", "C_Sign"};
    for (const char* name : probes)
        if (ac_dlsym(module, name) != nullptr)
            return true;
    return false;
}

bool acPKCS11::resolveFromFunctionTable(void* module)
{
    const CK_FUNCTION_LIST* table = moduleFunctionTable(module);
    if (table == nullptr || table->C_Initialize == nullptr)
        return false;
    Proc_C_Initialize = table->C_Initialize;
    Proc_C_GetSlotList = table->C_GetSlotList;
    Proc_C_WaitForSlotEvent = table->C_WaitForSlotEvent;
    Proc_C_GetTokenInfo = table->C_GetTokenInfo;
    Proc_C_GetSlotInfo = table->C_GetSlotInfo;
    Proc_C_OpenSession = table->C_OpenSession;
    Proc_C_CloseSession = table->C_CloseSession;
    Proc_C_DigestInit = table->C_DigestInit;
    Proc_C_DigestUpdate = table->C_DigestUpdate;
    Proc_C_DigestFinal = table->C_DigestFinal;
    Proc_C_Login = table->C_Login;
    Proc_C_Logout = table->C_Logout;
    Proc_C_FindObjectsInit = table->C_FindObjectsInit;
    Proc_C_FindObjects = table->C_FindObjects;
    Proc_C_FindObjectsFinal = table->C_FindObjectsFinal;
    Proc_C_SignInit = table->C_SignInit;
    Proc_C_Sign = table->C_Sign;
    Proc_C_VerifyInit = table->C_VerifyInit;
    Proc_C_Verify = table->C_Verify;
    Proc_C_GenerateKey = table->C_GenerateKey;
    Proc_C_EncryptInit = table->C_EncryptInit;
    Proc_C_EncryptUpdate = table->C_EncryptUpdate;
    Proc_C_Encrypt = table->C_Encrypt;
    Proc_C_EncryptFinal = table->C_EncryptFinal;
    Proc_C_WrapKey = table->C_WrapKey;
    Proc_C_UnwrapKey = table->C_UnwrapKey;
    Proc_C_DecryptInit = table->C_DecryptInit;
    Proc_C_DecryptUpdate = table->C_DecryptUpdate;
    Proc_C_Decrypt = table->C_Decrypt;
    Proc_C_DecryptFinal = table->C_DecryptFinal;
    Proc_C_GetAttributeValue = table->C_GetAttributeValue;
    Proc_C_DestroyObject = table->C_DestroyObject;
    Proc_C_CreateObject = table->C_CreateObject;
    Proc_C_SetPIN = table->C_SetPIN;
    Proc_C_InitPIN = table->C_InitPIN;
    Proc_C_SetAttributeValue = table->C_SetAttributeValue;
    Proc_C_GetInfo = table->C_GetInfo;
    Proc_C_Finalize = table->C_Finalize;
    Proc_C_SeedRandom = table->C_SeedRandom;
    Proc_C_GenerateRandom = table->C_GenerateRandom;
    Proc_C_GetMechanismList = table->C_GetMechanismList;
    Proc_C_GetMechanismInfo = table->C_GetMechanismInfo;
    // The vendor's extensions are never in the standard table.
    Proc_C_CardTransmit = reinterpret_cast<PFN_C_CardTransmit>(ac_dlsym(module, "C_CardTransmit"));
    Proc_C_CardAttribute = reinterpret_cast<PFN_C_CardAttribute>(ac_dlsym(module, "C_CardAttribute"));
    m_FromFunctionTable = true;
    return true;
}

} // namespace Korvex
