// Test fixture for the simulated card module on the shared fixture library:
// every test gets its own state directory, a scripted pinentry and a freshly
// loaded, initialised module.
#pragma once

#include "sim/SimControl.h"
#include "tests/support/SimControls.h"
#include "tests/support/TestCommon.h"

#include <p11-kit/pkcs11.h>

#include <initializer_list>

namespace SimTesting {

// Environment, PIN script, file helpers and the simulator's controls of the
// shared fixture library.
using namespace TestSupport;

// Serials of the built-in demo set.
constexpr const char* kAcosA04 = "1204000000004711";  // slot 0, infobox file
constexpr const char* kECardG4 = "3014000000000815";  // slot 1, RSA 2048
constexpr const char* kECardG2 = "3002000000004242";  // slot 2, EC only
constexpr const char* kAcosA03 = "1203000000001111";  // slot 3, fixed objects
constexpr CK_SLOT_ID kEmptySlot = 5;
constexpr CK_SLOT_ID kInternalSlot = 7;
constexpr CK_SLOT_ID kNoLinkSlot = 6;  // ACOS-A03 without identity link

// The module opened with dlopen and its vendor extensions.
struct SimLibrary {
    void* handle = nullptr;
    CK_FUNCTION_LIST_PTR p11 = nullptr;
    VSIM_C_CardTransmit transmit = nullptr;
    VSIM_C_CardAttribute cardAttribute = nullptr;

    bool open();
    void close();
};

class SimTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Environment for the next C_Initialize (card set, faults ...).
    virtual void prepareEnvironment() {}

    // C_Finalize, dlclose, dlopen, C_Initialize: what a program restart does.
    void reload();

    CK_SESSION_HANDLE openSession(CK_SLOT_ID slot, bool readWrite = false);
    CK_OBJECT_HANDLE findObject(CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass, const std::string& label);
    Bytes readAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);
    CK_RV setVendorAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

    std::string m_dir;
    SimLibrary m_sim;
    CK_FUNCTION_LIST_PTR p11 = nullptr;
};

} // namespace SimTesting
