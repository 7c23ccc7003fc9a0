// Slot enumeration, token information and card generations, ATR and card
// type codes, against the simulator and its fault rules.
#include "tests/token/TokenTestSupport.h"

using namespace tokentest;

namespace {

using TokenSlotsTest = TokenTest;

TEST_F(TokenSlotsTest, ClassifiesEveryGenerationByModelAndLabel)
{
    const struct {
        int32_t sigAlgo, sigLength, encAlgo, encLength;
        bool extended;
    } expected[7] = {
        {0, 1536, 1, 192, false}, {0, 1536, 1, 256, true},  {0, 1536, 1, 256, true},
        {1, 192, 1, 192, false},  {0, 1536, 1, 256, false}, {0, 1536, 1, 256, true},
        {0, 2048, 1, 256, true},
    };
    for (size_t i = 0; i < 7; ++i) {
        SCOPED_TRACE(kCards[i].generation);
        Korvex::TokenInfoStruct2 info;
        ASSERT_TRUE(p11->GetTokenInfo(i, info));
        // Bound field by field: callers rely on exactly these ten, in order.
        const auto& [label, manufacturer, model, serial, sigAlgo, sigLength, encAlgo, encLength, type, extended] = info;
        EXPECT_EQ(serial, kCards[i].serial);
        EXPECT_EQ(label.size(), 32u);
        EXPECT_EQ(manufacturer.size(), 32u);
        EXPECT_EQ(model.size(), 16u);
        EXPECT_EQ(type, kCards[i].type);
        EXPECT_EQ(sigAlgo, expected[i].sigAlgo);
        EXPECT_EQ(sigLength, expected[i].sigLength);
        EXPECT_EQ(encAlgo, expected[i].encAlgo);
        EXPECT_EQ(encLength, expected[i].encLength);
        EXPECT_EQ(extended, expected[i].extended);
        // The flags come separately; every card here is personalised.
        Korvex::TokenState state;
        ASSERT_TRUE(p11->GetTokenState(i, state));
        EXPECT_TRUE(state.flags & CKF_TOKEN_INITIALIZED);
    }

    // "Starcos SPK 3.4+" and "ATOS 5.3" with a label that is not an e-card's:
    // no row applies, the caller's presets survive and extended is false.
    for (unsigned long position : {8ul, 9ul}) {
        Korvex::TokenInfoStruct2 info;
        info.sigKeyLength = 77;
        info.extended = true;
        ASSERT_TRUE(p11->GetTokenInfo(position, info));
        EXPECT_EQ(info.tokenType, Korvex::TOKEN_UNKNOWN) << info.model;
        EXPECT_EQ(info.sigKeyLength, 77);
        EXPECT_FALSE(info.extended);
    }
    Korvex::TokenInfoStruct basic;
    ASSERT_TRUE(p11->GetTokenInfo(0ul, basic));
    const auto& [label, manufacturer, model, serial] = basic;  // the four texts, nothing else
    EXPECT_EQ(serial + model.substr(0, 12) + label.substr(0, 5) + manufacturer.substr(0, 5),
              std::string(kCards[0].serial) + "ACOS EMV-A03vessavessa");
}

TEST_F(TokenSlotsTest, CardTypeCodesComeFromTheAtr)
{
    std::string previousAtr;
    for (const TestCard& card : kCards) {
        SCOPED_TRACE(card.generation);
        ASSERT_TRUE(openCard(card.serial));
        // The ATR cache outlives the session: a new card needs a forced read.
        if (!previousAtr.empty()) {
            EXPECT_EQ(p11->ReadATR(false), previousAtr);
        }
        previousAtr = p11->ReadATR(true);
        EXPECT_TRUE(p11->LoadCardType());
        EXPECT_EQ(p11->GetCardType(), card.cardTypeCode);
        Korvex::HashAlgorithm ecHash = card.cardTypeCode >= 5 ? Korvex::HashSha256 : Korvex::HashRipemd160;
        EXPECT_EQ(p11->GetHashAlgorithm(Korvex::SIGN_KEY_EC), ecHash);
        EXPECT_EQ(p11->GetHashAlgorithm(Korvex::SIGN_KEY_RSA), Korvex::HashRipemd160);
        // The listing's token information names the same code where the
        // generation counts PIN tries, without asking the card.
        Korvex::TokenInfoStruct2 listed;
        ASSERT_TRUE(p11->ListedTokenInfo(p11->GetSessionSlotId(), listed));
        EXPECT_EQ(listed.tokenType, card.type);
        const bool countsTries = card.type >= Korvex::TOKEN_ECARD_G3A && card.type <= Korvex::TOKEN_ECARD_G4;
        EXPECT_EQ(p11->TakeCardTypeOf(listed), countsTries);
        EXPECT_EQ(p11->GetCardType(), countsTries ? card.cardTypeCode : 0);
        previousAtr = p11->ReadATR(false);
        p11->CloseSession();
    }
    EXPECT_TRUE(Log::errors().empty());
    // Without a session there is no card to ask.
    EXPECT_FALSE(p11->LoadCardType());
    EXPECT_EQ(p11->GetCardType(), 0);
}

TEST_F(TokenSlotsTest, AtrIsCachedUntilForcedAndResetReadsItAgain)
{
    ASSERT_TRUE(openCard(kCards[1].serial));
    std::string atr = p11->ReadATR(false);
    EXPECT_EQ(atr.rfind("3BBF11008131FE45455041", 0), 0u) << atr;

    Sim::SetFault("C_CardAttribute", kCards[1].serial, CKR_DEVICE_ERROR, 1);
    EXPECT_EQ(p11->ReadATR(false), atr);  // served from the cache
    EXPECT_TRUE(Log::errors().empty());
    EXPECT_EQ(p11->ReadATR(true), "");    // the pending fault is met now
    EXPECT_EQ(Log::errors(), Lines{"Failed get ATR, rv = 0x30"});

    EXPECT_EQ(p11->Reset(), atr);
    Sim::SetFault("C_CardAttribute", kCards[1].serial, CKR_DEVICE_ERROR, 1);
    EXPECT_EQ(p11->Reset(), "");
    EXPECT_EQ(Log::errors().back(), "Failed do Reset, rv =0x30");
}

TEST_F(TokenSlotsTest, OutOfRangeAndEnumerationFailuresAreLoggedAndBadSlotsSkipped)
{
    // Eleven slots hold a token; position 11 equals the count. No error line.
    Korvex::TokenInfoStruct2 outside;
    outside.label = "unverändert";
    EXPECT_FALSE(p11->GetTokenInfo(11ul, outside));
    EXPECT_FALSE(p11->GetTokenInfo(12ul, outside));
    EXPECT_EQ(outside.label, "unverändert");
    EXPECT_TRUE(Log::errors().empty());

    std::vector<Korvex::SlotStruct*> slots;
    Sim::SetFault("C_GetSlotList", "*", CKR_DEVICE_ERROR, 1);
    EXPECT_FALSE(p11->GetSlots(slots, true));
    EXPECT_EQ(Log::errors(), Lines{"PKCS11 Proc_C_GetSlotList ERROR0x30"});

    Log::clear();
    Sim::SetFault("C_GetTokenInfo", kCards[0].serial, CKR_DEVICE_REMOVED, 1);
    Sim::SetFault("C_GetSlotInfo", kCards[1].serial, CKR_DEVICE_ERROR, 1);
    ASSERT_TRUE(p11->GetSlots(slots, true));
    EXPECT_EQ(slots.size(), kListedCards - 2);
    EXPECT_EQ(slots[0]->serial, kCards[2].serial);
    EXPECT_EQ(Log::errors(), (Lines{"PKCS11 Proc_C_GetTokenInfo ERROR (continue)0x32",
                                    "PKCS11 Proc_C_GetTokenInfo ERROR (continue)0x30"}));

    Log::clear();
    Korvex::TokenInfoStruct info;
    Sim::SetFault("C_GetSlotList", "*", CKR_DEVICE_ERROR, 1);
    EXPECT_FALSE(p11->GetTokenInfo(0ul, info));
    Sim::SetFault("C_GetTokenInfo", kCards[0].serial, CKR_TOKEN_NOT_PRESENT, 1);
    EXPECT_FALSE(p11->GetTokenInfo(0ul, info));
    EXPECT_EQ(Log::errors(), (Lines{"PKCS11 Proc_C_GetSlotList(1) ERROR0x30", "PKCS11 Proc_C_GetTokenInfo ERROR0xe0"}));

    // The second call of the slot list (the one that fills it) fails.
    Log::clear();
    Sim::AddFaults("C_GetSlotList#2=CKR_BUFFER_TOO_SMALL*1");
    EXPECT_FALSE(p11->GetSlots(slots, true));
    Sim::AddFaults("C_GetSlotList#2=CKR_BUFFER_TOO_SMALL*1");
    EXPECT_FALSE(p11->GetTokenInfo(0ul, info));
    EXPECT_EQ(Log::errors(), Lines(2, "PKCS11 Proc_C_GetSlotList(2) ERROR0x150"));

    // A slot count beyond the list the module filled is not trusted.
    Sim::SetMalformed("C_GetSlotList", "*", VSIM_ALWAYS);
    EXPECT_TRUE(p11->GetSlots(slots, true));
    EXPECT_LE(slots.size(), kListedCards);
    EXPECT_FALSE(p11->GetTokenInfo(40ul, info));
}

} // namespace
