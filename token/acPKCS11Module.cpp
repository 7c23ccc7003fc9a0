// Loading, initialising and unloading the vendor module; the class-wide table
// of resolved entry points; client version and log hook setters.
#include "token/acPKCS11.h"

#include "base/Config.h"
#include "crypto/slCertificate.h"
#include "formats/PublicKey.h"
#include "token/ClientVersion.h"
#include "token/LoadFreeLib.h"
#include "token/ReturnCodeNames.h"
#include "token/acPKCS11Internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace Korvex {

using tokenimpl::callModule;

bool acPKCS11::m_bInitialized = false;
ModuleLoadReport acPKCS11::m_LoadReport;

CK_C_Initialize acPKCS11::Proc_C_Initialize = nullptr;
CK_C_GetSlotList acPKCS11::Proc_C_GetSlotList = nullptr;
CK_C_WaitForSlotEvent acPKCS11::Proc_C_WaitForSlotEvent = nullptr;
CK_C_GetTokenInfo acPKCS11::Proc_C_GetTokenInfo = nullptr;
CK_C_GetSlotInfo acPKCS11::Proc_C_GetSlotInfo = nullptr;
CK_C_OpenSession acPKCS11::Proc_C_OpenSession = nullptr;
CK_C_CloseSession acPKCS11::Proc_C_CloseSession = nullptr;
CK_C_DigestInit acPKCS11::Proc_C_DigestInit = nullptr;
CK_C_DigestUpdate acPKCS11::Proc_C_DigestUpdate = nullptr;
CK_C_DigestFinal acPKCS11::Proc_C_DigestFinal = nullptr;
CK_C_Login acPKCS11::Proc_C_Login = nullptr;
CK_C_Logout acPKCS11::Proc_C_Logout = nullptr;
CK_C_FindObjectsInit acPKCS11::Proc_C_FindObjectsInit = nullptr;
CK_C_FindObjects acPKCS11::Proc_C_FindObjects = nullptr;
CK_C_FindObjectsFinal acPKCS11::Proc_C_FindObjectsFinal = nullptr;
CK_C_SignInit acPKCS11::Proc_C_SignInit = nullptr;
CK_C_Sign acPKCS11::Proc_C_Sign = nullptr;
CK_C_VerifyInit acPKCS11::Proc_C_VerifyInit = nullptr;
CK_C_Verify acPKCS11::Proc_C_Verify = nullptr;
CK_C_GenerateKey acPKCS11::Proc_C_GenerateKey = nullptr;
CK_C_EncryptInit acPKCS11::Proc_C_EncryptInit = nullptr;
CK_C_EncryptUpdate acPKCS11::Proc_C_EncryptUpdate = nullptr;
CK_C_Encrypt acPKCS11::Proc_C_Encrypt = nullptr;
CK_C_EncryptFinal acPKCS11::Proc_C_EncryptFinal = nullptr;
CK_C_WrapKey acPKCS11::Proc_C_WrapKey = nullptr;
CK_C_UnwrapKey acPKCS11::Proc_C_UnwrapKey = nullptr;
CK_C_DecryptInit acPKCS11::Proc_C_DecryptInit = nullptr;
CK_C_DecryptUpdate acPKCS11::Proc_C_DecryptUpdate = nullptr;
CK_C_Decrypt acPKCS11::Proc_C_Decrypt = nullptr;
CK_C_DecryptFinal acPKCS11::Proc_C_DecryptFinal = nullptr;
CK_C_GetAttributeValue acPKCS11::Proc_C_GetAttributeValue = nullptr;
CK_C_DestroyObject acPKCS11::Proc_C_DestroyObject = nullptr;
CK_C_CreateObject acPKCS11::Proc_C_CreateObject = nullptr;
CK_C_SetPIN acPKCS11::Proc_C_SetPIN = nullptr;
CK_C_SetAttributeValue acPKCS11::Proc_C_SetAttributeValue = nullptr;
CK_C_GetInfo acPKCS11::Proc_C_GetInfo = nullptr;
CK_C_Finalize acPKCS11::Proc_C_Finalize = nullptr;
CK_C_SeedRandom acPKCS11::Proc_C_SeedRandom = nullptr;
CK_C_GenerateRandom acPKCS11::Proc_C_GenerateRandom = nullptr;
CK_C_GetMechanismList acPKCS11::Proc_C_GetMechanismList = nullptr;
CK_C_GetMechanismInfo acPKCS11::Proc_C_GetMechanismInfo = nullptr;
PFN_C_CardTransmit acPKCS11::Proc_C_CardTransmit = nullptr;
PFN_C_CardAttribute acPKCS11::Proc_C_CardAttribute = nullptr;
CK_C_InitPIN acPKCS11::Proc_C_InitPIN = nullptr;
bool acPKCS11::m_FromFunctionTable = false;

namespace {

template <typename Fn>
void resolve(void* module, const char* name, Fn& pointer)
{
    pointer = reinterpret_cast<Fn>(ac_dlsym(module, name));
}

} // namespace

acPKCS11::acPKCS11()
{
    init();
}

acPKCS11::~acPKCS11()
{
    DeleteSlots();
    ClearCertVector();
}

void acPKCS11::resolveSymbols(void* module)
{
    // Order as the module's table lists them; a missing symbol stays null and
    // the operations that need it check before calling.
    resolve(module, "C_GetSlotList", Proc_C_GetSlotList);
    resolve(module, "C_WaitForSlotEvent", Proc_C_WaitForSlotEvent);
    resolve(module, "C_GetTokenInfo", Proc_C_GetTokenInfo);
    resolve(module, "C_GetSlotInfo", Proc_C_GetSlotInfo);
    resolve(module, "C_OpenSession", Proc_C_OpenSession);
    resolve(module, "C_CloseSession", Proc_C_CloseSession);
    resolve(module, "C_DigestInit", Proc_C_DigestInit);
    resolve(module, "C_DigestUpdate", Proc_C_DigestUpdate);
    resolve(module, "C_DigestFinal", Proc_C_DigestFinal);
    resolve(module, "C_Login", Proc_C_Login);
    resolve(module, "C_Logout", Proc_C_Logout);
    resolve(module, "C_FindObjectsInit", Proc_C_FindObjectsInit);
    resolve(module, "C_FindObjects", Proc_C_FindObjects);
    resolve(module, "C_FindObjectsFinal", Proc_C_FindObjectsFinal);
    resolve(module, "C_SignInit", Proc_C_SignInit);
    resolve(module, "C_Sign", Proc_C_Sign);
    resolve(module, "C_VerifyInit", Proc_C_VerifyInit);
    resolve(module, "C_Verify", Proc_C_Verify);
    resolve(module, "C_GenerateKey", Proc_C_GenerateKey);
    resolve(module, "C_EncryptInit", Proc_C_EncryptInit);
    resolve(module, "C_EncryptUpdate", Proc_C_EncryptUpdate);
    resolve(module, "C_Encrypt", Proc_C_Encrypt);
    resolve(module, "C_EncryptFinal", Proc_C_EncryptFinal);
    resolve(module, "C_WrapKey", Proc_C_WrapKey);
    resolve(module, "C_UnwrapKey", Proc_C_UnwrapKey);
    resolve(module, "C_DecryptInit", Proc_C_DecryptInit);
    resolve(module, "C_DecryptUpdate", Proc_C_DecryptUpdate);
    resolve(module, "C_Decrypt", Proc_C_Decrypt);
    resolve(module, "C_DecryptFinal", Proc_C_DecryptFinal);
    resolve(module, "C_GetAttributeValue", Proc_C_GetAttributeValue);
    resolve(module, "C_DestroyObject", Proc_C_DestroyObject);
    resolve(module, "C_CreateObject", Proc_C_CreateObject);
    resolve(module, "C_SetPIN", Proc_C_SetPIN);
    resolve(module, "C_SetAttributeValue", Proc_C_SetAttributeValue);
    resolve(module, "C_GetInfo", Proc_C_GetInfo);
    resolve(module, "C_Finalize", Proc_C_Finalize);
    resolve(module, "C_SeedRandom", Proc_C_SeedRandom);
    resolve(module, "C_GenerateRandom", Proc_C_GenerateRandom);
    resolve(module, "C_GetMechanismList", Proc_C_GetMechanismList);
    resolve(module, "C_GetMechanismInfo", Proc_C_GetMechanismInfo);
    resolve(module, "C_CardTransmit", Proc_C_CardTransmit);
    resolve(module, "C_CardAttribute", Proc_C_CardAttribute);
    resolve(module, "C_InitPIN", Proc_C_InitPIN);
}

void acPKCS11::forgetSymbols()
{
    // After the module is closed its addresses are gone; null pointers make
    // any later call fail cleanly instead of jumping into unmapped code.
    Proc_C_Initialize = nullptr;
    Proc_C_GetSlotList = nullptr;
    Proc_C_WaitForSlotEvent = nullptr;
    Proc_C_GetTokenInfo = nullptr;
    Proc_C_GetSlotInfo = nullptr;
    Proc_C_OpenSession = nullptr;
    Proc_C_CloseSession = nullptr;
    Proc_C_DigestInit = nullptr;
    Proc_C_DigestUpdate = nullptr;
    Proc_C_DigestFinal = nullptr;
    Proc_C_Login = nullptr;
    Proc_C_Logout = nullptr;
    Proc_C_FindObjectsInit = nullptr;
    Proc_C_FindObjects = nullptr;
    Proc_C_FindObjectsFinal = nullptr;
    Proc_C_SignInit = nullptr;
    Proc_C_Sign = nullptr;
    Proc_C_VerifyInit = nullptr;
    Proc_C_Verify = nullptr;
    Proc_C_GenerateKey = nullptr;
    Proc_C_EncryptInit = nullptr;
    Proc_C_EncryptUpdate = nullptr;
    Proc_C_Encrypt = nullptr;
    Proc_C_EncryptFinal = nullptr;
    Proc_C_WrapKey = nullptr;
    Proc_C_UnwrapKey = nullptr;
    Proc_C_DecryptInit = nullptr;
    Proc_C_DecryptUpdate = nullptr;
    Proc_C_Decrypt = nullptr;
    Proc_C_DecryptFinal = nullptr;
    Proc_C_GetAttributeValue = nullptr;
    Proc_C_DestroyObject = nullptr;
    Proc_C_CreateObject = nullptr;
    Proc_C_SetPIN = nullptr;
    Proc_C_SetAttributeValue = nullptr;
    Proc_C_GetInfo = nullptr;
    Proc_C_Finalize = nullptr;
    Proc_C_SeedRandom = nullptr;
    Proc_C_GenerateRandom = nullptr;
    Proc_C_GetMechanismList = nullptr;
    Proc_C_GetMechanismInfo = nullptr;
    Proc_C_CardTransmit = nullptr;
    Proc_C_CardAttribute = nullptr;
    Proc_C_InitPIN = nullptr;
    m_FromFunctionTable = false;
}

bool acPKCS11::init()
{
    // The window calls init again after construction; the module is loaded
    // once per process.
    if (m_bInitialized)
        return true;

    LogMessage("PKCS11 INIT");
    LogMessage("PKCS11 LoadLibrary");
    m_LoadReport = ModuleLoadReport();
    m_LoadReport.library = PKCS11_LIB_NAME;
    const char* searchPath = std::getenv("LD_LIBRARY_PATH");
    m_LoadReport.searchPath = searchPath != nullptr ? searchPath : "";
    m_hModule = ac_dlopen();
    if (m_hModule == nullptr) {
        const std::string loaderText = ac_dlerror();
        std::cerr << loaderText;
        LogError("PKCS11 LoadLibrary ERROR");
        // The loader names the file it could not open: the module itself
        // (not on the search path) or one of its dependencies.
        const bool notFound = loaderText.rfind(m_LoadReport.library + ": cannot open shared object file", 0) == 0;
        m_LoadReport.failure = notFound ? MODULE_NOT_FOUND : MODULE_NOT_LOADABLE;
        m_LoadReport.loaderText = loaderText;
        // The reason is a message: each load failure has its one error line.
        LogMessage(notFound ? "module not found on the library path: " + m_LoadReport.library +
                                  ", LD_LIBRARY_PATH=" + m_LoadReport.searchPath
                            : "module not loadable: " + loaderText);
        m_hModule = nullptr;
        return false;
    }
    m_LoadReport.path = ac_dlpath(m_hModule);
    LogMessage("module file: " + m_LoadReport.path);

    LogMessage("PKCS11 Proc_C_Initialize");
    resolve(m_hModule, "C_Initialize", Proc_C_Initialize);
    m_FromFunctionTable = false;
    if (Proc_C_Initialize == nullptr && !exportsStandardSymbols(m_hModule) &&
        resolveFromFunctionTable(m_hModule))
        LogMessage("entry points from the module's function table");
    if (Proc_C_Initialize == nullptr) {
        LogError("PKCS11 Proc_C_Initialize ERROR");
        m_LoadReport.failure = MODULE_ENTRY_MISSING;
        m_LoadReport.entryPoint = "C_Initialize";
        LogMessage("entry point C_Initialize missing in " + m_LoadReport.path);
        return false;
    }
    if (!m_FromFunctionTable)
        resolveSymbols(m_hModule);

    // No locking callbacks: the two threads never call in at the same time.
    CK_RV rv = Proc_C_Initialize(nullptr);
    if (rv != CKR_OK) {
        LogError("PKCS11 Aufruf Proc_C_Initialize() ERROR", rv);
        m_LoadReport.failure = MODULE_INIT_FAILED;
        m_LoadReport.rv = rv;
        LogMessage("C_Initialize of " + m_LoadReport.path + " failed: " + ReturnCodeName(rv));
        return false;
    }

    CK_INFO info;
    std::memset(&info, 0, sizeof(info));
    rv = callModule(Proc_C_GetInfo, &info);
    if (rv != CKR_OK) {
        LogError("PKCS11 Aufruf Proc_C_GetInfo(&info) ERROR", rv);
        return false;
    }

    char text[128];
    std::snprintf(text, sizeof(text), "%.*s", 32, reinterpret_cast<const char*>(info.manufacturerID));
    m_Manufacturer = text;
    std::snprintf(text, sizeof(text), "%.*s", 32, reinterpret_cast<const char*>(info.libraryDescription));
    m_Description = text;
    std::snprintf(text, sizeof(text), "%d.%d", info.libraryVersion.major, info.libraryVersion.minor);
    m_Version = text;
    LogMessage("m_Manufacturer:", m_Manufacturer);
    LogMessage("m_Description:", m_Description);
    LogMessage("m_Version:", m_Version);

    LoadVessaClientVersion(m_ClientVersion);
    m_bInitialized = true;
    return true;
}

bool acPKCS11::destroy()
{
    LogMessage("PKCS11 Destroy");
    if (m_hModule == nullptr)
        return true;
    callModule(Proc_C_Finalize, nullptr);
    ac_dlclose(m_hModule);
    // Forget the handle too: closing the same handle twice would be undefined
    // in the loader, and a second destroy should be harmless.
    m_hModule = nullptr;
    forgetSymbols();
    m_bInitialized = false;
    return true;
}

void acPKCS11::LoadVessaClientVersion(int32_t* version)
{
    if (version == nullptr)
        return;
    for (int i = 0; i < 4; ++i)
        version[i] = 0;
    Config* config = ClientVersionConfig();
    if (config == nullptr)
        return;
    std::string text;
    if (config->GetString(kClientVersionEntry, text))
        ParseClientVersion(text, version);
}

std::string acPKCS11::GetVessaClientVersion()
{
    int32_t version[4];
    LoadVessaClientVersion(version);
    char text[64];
    std::snprintf(text, sizeof(text), "%d.%d.%d.%d", version[0], version[1], version[2], version[3]);
    return text;
}

bool acPKCS11::ClientSupportForceSofwarePin() const
{
    // Field by field on purpose, not an ordered version comparison.
    return m_ClientVersion[0] >= 2 || m_ClientVersion[1] > 3 || m_ClientVersion[2] > 2 ||
           m_ClientVersion[3] > 10;
}

void acPKCS11::SetErrorLoggingFunc(void (*fn)(const char*))
{
    ::acPKCS11::pt2LogError = fn;
}

void acPKCS11::SetMessageLoggingFunc(void (*fn)(const char*))
{
    ::acPKCS11::pt2LogMessage = fn;
}

} // namespace Korvex
