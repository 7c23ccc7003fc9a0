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

} // namespace
