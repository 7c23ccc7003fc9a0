// A second program using the simulated module at the same time as a test
// (the way a companion program shares the cards with the card manager). It
// loads the module itself and changes one card, with the environment the
// test gives it (state directory, card set).
//
//   sim_other_process write <slot> <label> <text> [<times>]
//       logs in with the factory identity-link PIN and writes CKA_VALUE of
//       the data object; with <times>, writes "<text>-1" ... "<text>-<times>"
//       and reads each back, failing if anything else was there
//   sim_other_process verify <slot> <p2> [<pin>] [<times>]
//       sends VERIFY (00 20 00 <p2>) with the PIN, or without data, and
//       prints the last status word (four hex digits)
//   sim_other_process reset <serial>
//       factory state of a card, as the control function does it
#include "sim/SimControl.h"

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

CK_FUNCTION_LIST_PTR p11 = nullptr;
VSIM_C_CardTransmit transmit = nullptr;

int fail(const std::string& what, CK_RV rv) {
    std::fprintf(stderr, "sim_other_process: %s: 0x%lx\n", what.c_str(), rv);
    return 1;
}

CK_OBJECT_HANDLE findData(CK_SESSION_HANDLE session, const std::string& label) {
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

std::string readValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
    std::vector<char> buffer(2048);
    CK_ATTRIBUTE value = {CKA_VALUE, buffer.data(), buffer.size()};
    if (p11->C_GetAttributeValue(session, object, &value, 1) != CKR_OK) return "<unreadable>";
    return std::string(buffer.data(), value.ulValueLen);
}

int write(CK_SLOT_ID slot, const std::string& label, const std::string& text, int times) {
    CK_SESSION_HANDLE session;
    CK_RV rv = p11->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session);
    if (rv != CKR_OK) return fail("C_OpenSession", rv);
    CK_UTF8CHAR pin[] = "4321";
    rv = p11->C_Login(session, CKU_USER, pin, 4);
    if (rv != CKR_OK) return fail("C_Login", rv);
    const CK_OBJECT_HANDLE object = findData(session, label);
    if (object == CK_INVALID_HANDLE) return fail("no data object " + label, CKR_OBJECT_HANDLE_INVALID);
    for (int i = 1; i <= times; ++i) {
        const std::string value = times > 1 ? text + "-" + std::to_string(i) : text;
        CK_ATTRIBUTE attribute = {CKA_VALUE, const_cast<char*>(value.data()), value.size()};
        rv = p11->C_SetAttributeValue(session, object, &attribute, 1);
        if (rv != CKR_OK) return fail("C_SetAttributeValue " + value, rv);
        // Nobody else writes this object: anything else is a lost update.
        const std::string back = readValue(session, object);
        if (back != value) return fail("wrote " + value + ", read back " + back, CKR_GENERAL_ERROR);
    }
    return 0;
}

int verify(CK_SLOT_ID slot, unsigned char reference, const std::string& pin, int times) {
    CK_SESSION_HANDLE session;
    CK_RV rv = p11->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
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
        rv = transmit(session, command.data(), command.size(), response, &length);
        if (rv != CKR_OK || length < 2) return fail("C_CardTransmit", rv);
    }
    std::printf("%02X%02X\n", response[length - 2], response[length - 1]);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() < 2) return fail("usage: write|verify|reset ...", CKR_ARGUMENTS_BAD);
    void* module = dlopen(VSIM_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!module) return fail(dlerror(), CKR_GENERAL_ERROR);
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"));
    transmit = reinterpret_cast<VSIM_C_CardTransmit>(dlsym(module, "C_CardTransmit"));
    if (!getList || !transmit || getList(&p11) != CKR_OK) return fail("C_GetFunctionList", CKR_GENERAL_ERROR);
    CK_RV rv = p11->C_Initialize(nullptr);
    if (rv != CKR_OK) return fail("C_Initialize", rv);

    int status = 1;
    const std::string& command = args[0];
    const CK_SLOT_ID slot = std::strtoul(args[1].c_str(), nullptr, 10);
    if (command == "write" && (args.size() == 4 || args.size() == 5)) {
        status = write(slot, args[2], args[3], args.size() == 5 ? std::atoi(args[4].c_str()) : 1);
    } else if (command == "verify" && args.size() >= 3 && args.size() <= 5) {
        status = verify(slot, static_cast<unsigned char>(std::strtoul(args[2].c_str(), nullptr, 16)),
                        args.size() >= 4 ? args[3] : std::string(),
                        args.size() == 5 ? std::atoi(args[4].c_str()) : 1);
    } else if (command == "reset") {
        auto reset = reinterpret_cast<decltype(&vsim_reset_state)>(dlsym(module, "vsim_reset_state"));
        rv = reset ? reset(args[1].c_str()) : CKR_GENERAL_ERROR;
        status = rv == CKR_OK ? 0 : fail("vsim_reset_state", rv);
    } else {
        status = fail("unknown command " + command, CKR_ARGUMENTS_BAD);
    }
    p11->C_Finalize(nullptr);
    return status;
}
