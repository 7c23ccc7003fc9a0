// The token layer on a standard PKCS#11 module without the vendor extensions
// (the simulator's standard-module build, whose only export is its function
// table): its entry points come from the table, and what needs the extensions fails
// without a crash. (What does not need them, end to end on such a module:
// StandardTokenTest.ListsTheTokenAndManagesItsPinEndToEnd.)
#include "tests/token/TokenTestSupport.h"

using namespace tokentest;

namespace {

class TokenPlainModuleTest : public TokenTest {
protected:
    // In place before SetUp loads the module, until after TearDown unloads it.
    ModuleOverride module{STANDARD_MODULE_PATH};
};

TEST_F(TokenPlainModuleTest, VendorOperationsFailCleanly)
{
    EXPECT_FALSE(Token::HasCardTransmit());
    EXPECT_FALSE(Token::HasCardAttribute());
    ASSERT_TRUE(openCard(kCards[4].serial));
    EXPECT_EQ(p11->ReadATR(true), "");
    EXPECT_EQ(p11->Reset(), "");
    EXPECT_FALSE(p11->LoadCardType());
    EXPECT_EQ(p11->GetHashAlgorithm(Korvex::SIGN_KEY_EC), Korvex::HashRipemd160);

    Bytes response;
    EXPECT_FALSE(p11->SendAPDU({0x00, 0xA4, 0x00, 0x0C, 0x02, 0xDF, 0x71}, response));
    std::string cin;
    EXPECT_FALSE(p11->GetCinCsn(cin));
    unsigned char buffer[64];
    unsigned long length = sizeof(buffer);
    EXPECT_FALSE(p11->ReadEHIC(buffer, length));
    Korvex::PINState state = Korvex::PIN_STATE_NO_TRIES;
    int32_t tries = 0;
    EXPECT_EQ(p11->GetPINStatus(Korvex::APPL_SIGNATURE, state, tries), Korvex::PKCS11_ERROR);
    EXPECT_EQ(state, Korvex::PIN_STATE_UNKNOWN);

    EXPECT_EQ(Log::errors(), (Lines{"Unknown atr=", "Unknown atr=", "Failed C_CardTransmit, not implemented",
                                    "Failed C_CardTransmit, not implemented", "sendAPDU failed",
                                    "error select DF DEC"}));
}

// What a standard token's PIN commands and slot events make of the module's
// answers: the window's text for each result depends on it.
TEST_F(TokenPlainModuleTest, StandardPinResultsAndSlotEventFailuresFollowTheModulesAnswer)
{
    ASSERT_TRUE(openCard(kCards[4].serial));
    const std::string pin = "123456";
    const struct {
        const char* faults;
        std::function<Korvex::PKCS11Return(Token&)> command;
        Korvex::PKCS11Return expected;
        const char* errorLine;
    } rows[] = {
        {"C_SetPIN=CKR_PIN_INCORRECT", [&](Token& t) { return t.SetUserPin(&pin, &pin); },
         Korvex::PKCS11_PIN_INCORRECT, "PKCS11 Proc_C_SetPIN ERROR"},
        {"C_SetPIN=CKR_FUNCTION_CANCELED", [&](Token& t) { return t.SetUserPin(nullptr, nullptr); },
         Korvex::PKCS11_CANCELED, "PKCS11 Proc_C_SetPIN ERROR"},
        {"C_Login=CKR_PIN_LOCKED", [&](Token& t) { return t.UnblockUserPin(&pin, &pin); }, Korvex::PKCS11_PIN_LOCKED,
         "PKCS11 Proc_C_Login ERROR"},
        {"", [&](Token& t) { return t.UnblockUserPin(&pin, &pin); }, Korvex::PKCS11_ERROR,
         "PKCS11 Proc_C_Login ERROR"}, // no security officer on these cards
        {"C_Login=CKR_FUNCTION_NOT_SUPPORTED", [&](Token& t) { return t.LoginUser(&pin); },
         Korvex::PKCS11_NOT_SUPPORTED, "PKCS11 Proc_C_Login ERROR"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.faults);
        Sim::ClearFaults();
        ASSERT_EQ(Sim::AddFaults(row.faults), static_cast<CK_RV>(CKR_OK));
        log.clear();
        EXPECT_EQ(row.command(*p11), row.expected);
        ASSERT_EQ(log.errors().size(), 1u);
        EXPECT_EQ(log.errors()[0].rfind(row.errorLine, 0), 0u) << log.errors()[0];
    }

    CK_SLOT_ID slot = 0;
    Sim::SetFault("C_WaitForSlotEvent", nullptr, CKR_FUNCTION_NOT_SUPPORTED, 1);
    EXPECT_EQ(p11->PollSlotEvent(slot), Korvex::SLOT_EVENT_UNSUPPORTED);
    Sim::SetFault("C_WaitForSlotEvent", nullptr, CKR_DEVICE_ERROR, 1);
    EXPECT_EQ(p11->PollSlotEvent(slot), Korvex::SLOT_EVENT_FAILED);
}

} // namespace
