// Loading and unloading the module and the client version rule.
#include "tests/token/TokenTestSupport.h"

using namespace tokentest;

namespace {

class TokenModuleTest : public ::testing::Test {
protected:
    TokenLog log;
};

TEST_F(TokenModuleTest, MissingModuleIsNamedOnStandardErrorAndDestroyIsHarmless)
{
    ModuleOverride missing("libKorvexNoSuchModule.so");
    testing::internal::CaptureStderr();
    Token token;
    std::string loaderText = testing::internal::GetCapturedStderr();

    EXPECT_FALSE(Token::IsInitialized());
    EXPECT_FALSE(token.IsModuleLoaded());
    EXPECT_NE(loaderText.find("libKorvexNoSuchModule.so"), std::string::npos);

    Log::clear();
    EXPECT_TRUE(token.destroy());
    EXPECT_EQ(Log::messages(), Lines{"PKCS11 Destroy"});
    // Operations on an unloaded module fail cleanly.
    std::vector<Korvex::SlotStruct*> slots;
    EXPECT_FALSE(token.GetSlots(slots, true));
}

TEST_F(TokenModuleTest, LoadsOnceLogsModuleInfoAndSharesTheModule)
{
    Token first;
    ASSERT_TRUE(Token::IsInitialized());
    EXPECT_TRUE(first.IsModuleLoaded());
    EXPECT_EQ(first.GetManufacturer().size(), 32u);  // blank padding kept
    EXPECT_TRUE(Log::hasMessage("m_Manufacturer: " + first.GetManufacturer()));
    EXPECT_TRUE(Log::hasMessage("m_Description: " + first.GetDescription()));
    EXPECT_TRUE(Log::hasMessage("m_Version: " + first.GetVersion()));
    EXPECT_TRUE(Log::errors().empty());

    Log::clear();
    EXPECT_TRUE(first.init());
    Token second;  // class-wide state: nothing is loaded again
    EXPECT_FALSE(second.IsModuleLoaded());
    EXPECT_TRUE(Log::messages().empty());
    std::vector<Korvex::SlotStruct*> slots;
    EXPECT_TRUE(second.GetSlots(slots, true));
    EXPECT_EQ(slots.size(), kListedCards);

    EXPECT_TRUE(second.destroy());  // never loaded: nothing to finalise
    EXPECT_TRUE(Token::IsInitialized());
    EXPECT_TRUE(first.destroy());
    EXPECT_FALSE(Token::IsInitialized());
    EXPECT_TRUE(first.destroy());  // a second destroy must not close twice
}

TEST_F(TokenModuleTest, FailedInitializeAndGetInfoAreLoggedAndRetried)
{
    ASSERT_EQ(Sim::AddFaults("C_Initialize=CKR_GENERAL_ERROR*1"), CKR_OK);
    Token token;
    EXPECT_FALSE(Token::IsInitialized());
    EXPECT_TRUE(token.IsModuleLoaded());

    Log::clear();
    Sim::AddFaults("C_GetInfo=CKR_DEVICE_ERROR*1");
    EXPECT_FALSE(token.init());
    EXPECT_EQ(Log::errors(), Lines{"PKCS11 Aufruf Proc_C_GetInfo(&info) ERROR0x30"});

    // C_Initialize succeeded in the retry before; a module that refuses a
    // second initialisation keeps the class unready.
    Log::clear();
    EXPECT_FALSE(token.init());
    EXPECT_EQ(Log::errors(), Lines{"PKCS11 Aufruf Proc_C_Initialize() ERROR0x191"});
    EXPECT_TRUE(Log::hasMessage("C_Initialize of " SIM_MODULE_DIR "/libVessaP11.so failed: CKR_CRYPTOKI_ALREADY_INITIALIZED"));
    token.destroy();
}

TEST_F(TokenModuleTest, ClientVersionIsComparedFieldByField)
{
    struct Case {
        const char* configured;
        const char* reported;
        bool forceSoftwarePin;
    };
    const Case cases[] = {
        {"", "0.0.0.0", false},         {"2.0.0", "0.0.0.0", false},
        {"1.3.2.10", "1.3.2.10", false}, {"1.3.2.11", "1.3.2.11", true},
        {"1.4.0.0", "1.4.0.0", true},    {"1.0.3.0", "1.0.3.0", true},
        {"2.0.0.0", "2.0.0.0", true},    {"1.3.x.4", "0.0.0.0", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.configured);
        setClientVersion(c.configured);
        Token token;  // the version is read when the module is initialised
        EXPECT_EQ(token.GetVessaClientVersion(), c.reported);
        EXPECT_EQ(token.ClientSupportForceSofwarePin(), c.forceSoftwarePin);
        token.destroy();
    }
    setClientVersion("");
}

} // namespace
