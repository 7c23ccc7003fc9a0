// A standard PKCS#11 tool (OpenSC's pkcs11-tool) drives the module: its
// self-test signs with both keys after a login on the protected
// authentication path. (Its slot listing: DiagnosticsAgreeFieldByFieldWithPkcs11Tool.)
#include "SimHarness.h"

#include "tests/support/TestCommon.h"

using namespace SimTesting;

namespace {

class SimPkcs11Tool : public SimTest {
protected:
    void SetUp() override {
        SimTest::SetUp();
        if (access("/usr/bin/pkcs11-tool", X_OK) != 0) GTEST_SKIP() << "pkcs11-tool (opensc) is not installed";
    }
    // Runs the tool with the module's sanitizer runtime preloaded where the
    // module is instrumented and the tool is not.
    std::string tool(const std::string& arguments, int& status) {
        std::string environment;
#ifdef VSIM_SANITIZER_PRELOAD
        environment = "LD_PRELOAD='" VSIM_SANITIZER_PRELOAD "' ASAN_OPTIONS=detect_leaks=0 ";
#endif
        return RunCommand(environment + "pkcs11-tool --module '" VSIM_MODULE_PATH "' " + arguments + " 2>&1", status);
    }
};

// The announced PIN lengths, mechanisms and key sizes must carry the tool
// through on every personalised card of the demo set.
TEST_F(SimPkcs11Tool, SelfTestPassesOnEveryPersonalisedCard) {
    CK_TOKEN_INFO info;
    for (CK_SLOT_ID slot : {CK_SLOT_ID(0), CK_SLOT_ID(1), CK_SLOT_ID(2), CK_SLOT_ID(3), kNoLinkSlot}) {
        SCOPED_TRACE(slot);
        ASSERT_EQ(p11->C_GetTokenInfo(slot, &info), CKR_OK);
        EXPECT_EQ(info.ulMinPinLen, 4u);
        EXPECT_EQ(info.ulMaxPinLen, 4u);
        Lines pins{"4321"};
        pins.insert(pins.end(), 40, "123456");
        SetPinAnswers(pins);
        int status = 0;
        const std::string out = tool("--slot " + std::to_string(slot) + " --test --login", status);
        EXPECT_EQ(status, 0) << out;
        EXPECT_NE(out.find("No errors"), std::string::npos) << out;
    }
}

} // namespace
