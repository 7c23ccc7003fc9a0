// The module is loaded with dlopen as any other program loads it, so these
// commands exercise the same state sharing between processes.
#include "sim/CardSessionCommands.h"

#include "sim/SimControl.h"

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace VessaSim {

namespace {

// Where the module is looked for: VESSA_SIM_MODULE, the loader's search path,
// then the folder the packages install it to.
const char* const kInstalledModule = VSIM_INSTALLED_MODULE;

struct LoadedModule {
    void* library = nullptr;
    CK_FUNCTION_LIST_PTR p11 = nullptr;
    VSIM_C_CardTransmit transmit = nullptr;
};

int fail(const std::string& what, CK_RV rv) {
    std::fprintf(stderr, "vessa-sim: %s: 0x%lx\n", what.c_str(), rv);
    return 1;
}

bool loadModule(LoadedModule& module) {
    const char* chosen = std::getenv("VESSA_SIM_MODULE");
    for (const char* path : {chosen, "libVessaP11.so", kInstalledModule}) {
        if (path && *path && (module.library = dlopen(path, RTLD_NOW | RTLD_LOCAL))) break;
    }
    if (!module.library) return false;
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(module.library, "C_GetFunctionList"));
    module.transmit = reinterpret_cast<VSIM_C_CardTransmit>(dlsym(module.library, "C_CardTransmit"));
    return getList && module.transmit && getList(&module.p11) == CKR_OK &&
           module.p11->C_Initialize(nullptr) == CKR_OK;
}

CK_OBJECT_HANDLE findData(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, const std::string& label) {
    CK_OBJECT_CLASS dataClass = CKO_DATA;
    CK_ATTRIBUTE pattern[] = {{CKA_CLASS, &dataClass, sizeof dataClass},
                              {CKA_LABEL, const_cast<char*>(label.data()), label.size()}};
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    CK_ULONG count = 0;
    if (p11->C_FindObjectsInit(session, pattern, 2) != CKR_OK) return CK_INVALID_HANDLE;
    p11->C_FindObjects(session, &handle, 1, &count);
    p11->C_FindObjectsFinal(session);
    return count == 1 ? handle : CK_INVALID_HANDLE;
}

std::string readValue(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
    std::vector<char> buffer(2048);
    CK_ATTRIBUTE value = {CKA_VALUE, buffer.data(), buffer.size()};
    if (p11->C_GetAttributeValue(session, object, &value, 1) != CKR_OK) return "<unreadable>";
    return std::string(buffer.data(), value.ulValueLen);
}

// Logs in with the factory identity-link PIN and writes the object's value;
// with times > 1 the values "<text>-1" ... "<text>-<times>", each read back.
int writeData(CK_FUNCTION_LIST_PTR p11, CK_SLOT_ID slot, const std::string& label, const std::string& text,
              int times) {
    CK_SESSION_HANDLE session;
    CK_RV rv = p11->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session);
    if (rv != CKR_OK) return fail("C_OpenSession", rv);
    CK_UTF8CHAR pin[] = "4321";
    rv = p11->C_Login(session, CKU_USER, pin, 4);
    if (rv != CKR_OK) return fail("C_Login", rv);
    const CK_OBJECT_HANDLE object = findData(p11, session, label);
    if (object == CK_INVALID_HANDLE) return fail("no data object " + label, CKR_OBJECT_HANDLE_INVALID);
    for (int i = 1; i <= times; ++i) {
        const std::string value = times > 1 ? text + "-" + std::to_string(i) : text;
        CK_ATTRIBUTE attribute = {CKA_VALUE, const_cast<char*>(value.data()), value.size()};
        rv = p11->C_SetAttributeValue(session, object, &attribute, 1);
        if (rv != CKR_OK) return fail("C_SetAttributeValue " + value, rv);
        // Nobody else writes this object: anything else is a lost update.
        const std::string back = readValue(p11, session, object);
        if (back != value) return fail("wrote " + value + ", read back " + back, CKR_GENERAL_ERROR);
    }
    return 0;
}

// Sends VERIFY (00 20 00 <reference>) with the PIN, or without data, times
// times, and prints the last status word.
int verifyPin(const LoadedModule& module, CK_SLOT_ID slot, unsigned char reference, const std::string& pin,
              int times) {
    CK_SESSION_HANDLE session;
    CK_RV rv = module.p11->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
    if (rv != CKR_OK) return fail("C_OpenSession", rv);
    std::vector<unsigned char> command = {0x00, 0x20, 0x00, reference};
    if (!pin.empty()) {
        command.push_back(static_cast<unsigned char>(pin.size()));
        command.insert(command.end(), pin.begin(), pin.end());
    }
    unsigned char response[16];
    CK_ULONG length = 0;
    for (int i = 0; i < times; ++i) {
        length = sizeof response;
        rv = module.transmit(session, command.data(), command.size(), response, &length);
        if (rv != CKR_OK || length < 2) return fail("C_CardTransmit", rv);
    }
    std::printf("%02X%02X\n", response[length - 2], response[length - 1]);
    return 0;
}

int timesArgument(const std::vector<std::string>& args, size_t index) {
    return args.size() > index ? std::atoi(args[index].c_str()) : 1;
}

} // namespace

int runCardSessionCommand(const std::string& command, const std::vector<std::string>& args) {
    const bool isWrite = command == "write" && (args.size() == 3 || args.size() == 4);
    const bool isVerify = command == "verify" && args.size() >= 2 && args.size() <= 4;
    if (!isWrite && !isVerify) return 2;
    LoadedModule module;
    if (!loadModule(module)) return fail("cannot load libVessaP11.so", CKR_GENERAL_ERROR);
    const CK_SLOT_ID slot = std::strtoul(args[0].c_str(), nullptr, 10);
    const int status =
        isWrite ? writeData(module.p11, slot, args[1], args[2], timesArgument(args, 3))
                : verifyPin(module, slot, static_cast<unsigned char>(std::strtoul(args[1].c_str(), nullptr, 16)),
                            args.size() >= 3 ? args[2] : std::string(), timesArgument(args, 3));
    module.p11->C_Finalize(nullptr);
    return status;
}

} // namespace VessaSim
