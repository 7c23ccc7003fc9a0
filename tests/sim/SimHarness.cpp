// Loading the module into a clean, private environment for each test.
#include "SimHarness.h"

#include <dlfcn.h>

#include "tests/support/TestCommon.h"

namespace SimTesting {

namespace {

template <typename Pointer>
bool resolve(void* handle, const char* name, Pointer& out) {
    out = reinterpret_cast<Pointer>(dlsym(handle, name));
    return out != nullptr;
}

} // namespace

bool SimLibrary::open() {
    handle = dlopen(VSIM_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!handle) return false;
    CK_C_GetFunctionList getList = nullptr;
    return resolve(handle, "C_GetFunctionList", getList) && getList(&p11) == CKR_OK &&
           resolve(handle, "C_CardTransmit", transmit) && resolve(handle, "C_CardAttribute", cardAttribute);
}

void SimLibrary::close() {
    if (handle) dlclose(handle);
    *this = SimLibrary();
}

void SimTest::SetUp() {
    PrepareSimulator("");
    // A fresh state directory per test, even when one process runs them all.
    static int tests = 0;
    m_dir = ScratchDir() + "/test-" + std::to_string(++tests);
    std::filesystem::create_directories(m_dir);
    setenv("VESSA_SIM_STATE_DIR", (m_dir + "/state").c_str(), 1);
    prepareEnvironment();
    ASSERT_TRUE(m_sim.open()) << dlerror();
    p11 = m_sim.p11;
    // The module stays loaded between tests of one process; faults and
    // latency set by an earlier test must not leak into this one.
    Sim::ClearFaults();
    Sim::SetLatency(0, 0);
    ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
}

void SimTest::TearDown() {
    if (p11) p11->C_Finalize(nullptr);
    m_sim.close();
    p11 = nullptr;
    if (!m_dir.empty()) std::filesystem::remove_all(m_dir);
}

void SimTest::reload() {
    ASSERT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    m_sim.close();
    ASSERT_TRUE(m_sim.open());
    p11 = m_sim.p11;
    ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
}

CK_SESSION_HANDLE SimTest::openSession(CK_SLOT_ID slot, bool readWrite) {
    CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
    CK_FLAGS flags = CKF_SERIAL_SESSION | (readWrite ? CKF_RW_SESSION : 0);
    EXPECT_EQ(p11->C_OpenSession(slot, flags, nullptr, nullptr, &session), CKR_OK);
    return session;
}

CK_OBJECT_HANDLE SimTest::findObject(CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass, const std::string& label) {
    CK_ATTRIBUTE pattern[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                              {CKA_LABEL, const_cast<char*>(label.data()), label.size()}};
    EXPECT_EQ(p11->C_FindObjectsInit(session, pattern, 2), CKR_OK);
    CK_OBJECT_HANDLE found[2];
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_FindObjects(session, found, 2, &count), CKR_OK);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
    return count == 1 ? found[0] : CK_INVALID_HANDLE;
}

Bytes SimTest::readAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_ATTRIBUTE attribute = {type, nullptr, 0};
    if (p11->C_GetAttributeValue(session, object, &attribute, 1) != CKR_OK) return {};
    Bytes value(attribute.ulValueLen);
    attribute.pValue = value.data();
    if (p11->C_GetAttributeValue(session, object, &attribute, 1) != CKR_OK) return {};
    value.resize(attribute.ulValueLen);
    return value;
}

CK_RV SimTest::setVendorAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_BBOOL value = CK_FALSE;
    CK_ATTRIBUTE attribute = {type, &value, 1};
    return p11->C_SetAttributeValue(session, object, &attribute, 1);
}

} // namespace SimTesting
