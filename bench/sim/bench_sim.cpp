// The simulated module's own cost per call, so that benchmarks of the layers
// above can subtract it. Prints microseconds per call; asserts nothing.
#include "sim/SimControl.h"

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

CK_FUNCTION_LIST_PTR p11 = nullptr;

void report(const char* what, int iterations, const std::function<void()>& body) {
    body();  // warm up
    const auto start = Clock::now();
    for (int i = 0; i < iterations; ++i) body();
    const double micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count() / iterations;
    std::printf("%-44s %10.2f us/call  (%d calls)\n", what, micros, iterations);
}

void check(CK_RV rv, const char* what) {
    if (rv != CKR_OK) {
        std::fprintf(stderr, "bench_sim: %s failed: 0x%lx\n", what, rv);
        std::exit(1);
    }
}

CK_OBJECT_HANDLE findByLabel(CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass, const char* label) {
    CK_ATTRIBUTE pattern[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                              {CKA_LABEL, const_cast<char*>(label), std::strlen(label)}};
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    CK_ULONG count = 0;
    check(p11->C_FindObjectsInit(session, pattern, 2), "C_FindObjectsInit");
    check(p11->C_FindObjects(session, &handle, 1, &count), "C_FindObjects");
    check(p11->C_FindObjectsFinal(session), "C_FindObjectsFinal");
    return handle;
}

} // namespace

int main() {
    const std::string scratch = VSIM_BENCH_SCRATCH;
    setenv("VESSA_SIM_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("VESSA_SIM_KEY_DIR", (scratch + "/sim-keys").c_str(), 1);
    setenv("VESSA_SIM_PINENTRY", VSIM_FAKE_PINENTRY, 1);
    setenv("FAKE_PINENTRY_SCRIPT", (scratch + "/pins").c_str(), 1);
    unsetenv("FAKE_PINENTRY_LOG");
    unsetenv("VESSA_SIM_FAULTS");
    unsetenv("VESSA_SIM_LATENCY_MS");
    unsetenv("VESSA_SIM_APDU_LATENCY_MS");
    std::system(("mkdir -p '" + scratch + "' && rm -rf '" + scratch + "/state'").c_str());

    // 64 cards, as the largest card list the program is tested with.
    std::string cardSet = scratch + "/cards64.xml";
    std::system((std::string("'") + VSIM_TOOL + "' cardset 64 > '" + cardSet + "'").c_str());
    setenv("VESSA_SIM_CARDS", cardSet.c_str(), 1);

    void* module = dlopen(VSIM_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        std::fprintf(stderr, "bench_sim: %s\n", dlerror());
        return 1;
    }
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"));
    auto transmit = reinterpret_cast<VSIM_C_CardTransmit>(dlsym(module, "C_CardTransmit"));
    check(getList(&p11), "C_GetFunctionList");

    auto start = Clock::now();
    check(p11->C_Initialize(nullptr), "C_Initialize");
    std::printf("%-44s %10.2f ms\n", "C_Initialize with 64 cards",
                std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    start = Clock::now();
    for (CK_SLOT_ID slot = 0; slot < 64; ++slot) {
        CK_SESSION_HANDLE session;
        check(p11->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session), "C_OpenSession");
        check(p11->C_CloseSession(session), "C_CloseSession");
    }
    std::printf("%-44s %10.2f ms  (keys made once, then loaded)\n", "first session on each of 64 cards",
                std::chrono::duration<double, std::milli>(Clock::now() - start).count());

    const int n = 20000;
    std::vector<CK_SLOT_ID> slots(64);
    report("C_GetSlotList (64 tokens)", n, [&] {
        CK_ULONG count = slots.size();
        check(p11->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
    });
    report("C_GetTokenInfo", n, [&] {
        CK_TOKEN_INFO info;
        check(p11->C_GetTokenInfo(5, &info), "C_GetTokenInfo");
    });
    report("C_GetSlotInfo", n, [&] {
        CK_SLOT_INFO info;
        check(p11->C_GetSlotInfo(5, &info), "C_GetSlotInfo");
    });
    report("C_OpenSession + C_CloseSession", n, [&] {
        CK_SESSION_HANDLE session;
        check(p11->C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session), "C_OpenSession");
        check(p11->C_CloseSession(session), "C_CloseSession");
    });

    CK_SESSION_HANDLE session;
    check(p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), "C_OpenSession");
    report("C_FindObjectsInit/FindObjects/Final (label)", n,
           [&] { findByLabel(session, CKO_CERTIFICATE, "C.CH.SIG"); });
    const CK_OBJECT_HANDLE certificate = findByLabel(session, CKO_CERTIFICATE, "C.CH.SIG");
    std::vector<unsigned char> buffer(5012);
    report("C_GetAttributeValue (certificate value)", n, [&] {
        CK_ATTRIBUTE value = {CKA_VALUE, buffer.data(), buffer.size()};
        check(p11->C_GetAttributeValue(session, certificate, &value, 1), "C_GetAttributeValue");
    });
    report("C_CardTransmit (SELECT DF 71)", n, [&] {
        unsigned char command[] = {0x00, 0xA4, 0x00, 0x0C, 0x02, 0xDF, 0x71};
        unsigned char response[256];
        CK_ULONG length = sizeof response;
        check(transmit(session, command, sizeof command, response, &length), "C_CardTransmit");
    });

    // Signing: the chip's work alone (PIN given by a context-specific login),
    // then with the PIN dialogue the module runs (a pinentry process).
    for (CK_SLOT_ID slot : {CK_SLOT_ID(1), CK_SLOT_ID(0)}) {
        CK_SESSION_HANDLE signer;
        check(p11->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &signer), "C_OpenSession");
        CK_TOKEN_INFO info;
        check(p11->C_GetTokenInfo(slot, &info), "C_GetTokenInfo");
        const CK_OBJECT_HANDLE key = findByLabel(signer, CKO_PRIVATE_KEY, "SK.CH.EKEY");
        CK_MECHANISM mechanism = {CKM_ECDSA_SHA1, nullptr, 0};
        CK_UTF8CHAR pin[] = "1234";
        unsigned char data[32] = {1};
        unsigned char signature[512];
        const std::string label = "sign ECDSA-SHA1, PIN given (" + std::string(reinterpret_cast<char*>(info.model), 16) + ")";
        report(label.c_str(), 500, [&] {
            CK_ULONG length = sizeof signature;
            check(p11->C_SignInit(signer, &mechanism, key), "C_SignInit");
            check(p11->C_Login(signer, CKU_CONTEXT_SPECIFIC, pin, 4), "C_Login");
            check(p11->C_Sign(signer, data, sizeof data, signature, &length), "C_Sign");
        });
    }
    CK_SESSION_HANDLE rsaSigner;
    check(p11->C_OpenSession(6, CKF_SERIAL_SESSION, nullptr, nullptr, &rsaSigner), "C_OpenSession");
    const CK_OBJECT_HANDLE rsaKey = findByLabel(rsaSigner, CKO_PRIVATE_KEY, "SK.CH.SIG");
    CK_MECHANISM sha256Rsa = {CKM_SHA256_RSA_PKCS, nullptr, 0};
    CK_UTF8CHAR signaturePin[] = "123456";
    unsigned char data[32] = {2};
    unsigned char signature[512];
    report("sign SHA256-RSA-PKCS 2048, PIN given", 200, [&] {
        CK_ULONG length = sizeof signature;
        check(p11->C_SignInit(rsaSigner, &sha256Rsa, rsaKey), "C_SignInit");
        check(p11->C_Login(rsaSigner, CKU_CONTEXT_SPECIFIC, signaturePin, 6), "C_Login");
        check(p11->C_Sign(rsaSigner, data, sizeof data, signature, &length), "C_Sign");
    });
    {
        std::ofstream pins(scratch + "/pins");
        for (int i = 0; i < 60; ++i) pins << "123456\n";
    }
    std::remove((scratch + "/pins.pos").c_str());
    report("sign SHA256-RSA-PKCS 2048 with PIN dialogue", 50, [&] {
        CK_ULONG length = sizeof signature;
        check(p11->C_SignInit(rsaSigner, &sha256Rsa, rsaKey), "C_SignInit");
        check(p11->C_Sign(rsaSigner, data, sizeof data, signature, &length), "C_Sign");
    });

    p11->C_Finalize(nullptr);
    dlclose(module);
    return 0;
}
