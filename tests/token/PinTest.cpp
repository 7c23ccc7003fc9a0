// PIN change and unblock through the module's scripted PIN dialogue, the two
// result mappings, the forced software PIN, and the PIN status bytes.
#include "tests/token/TokenTestSupport.h"

using namespace tokentest;
using Korvex::APPL_ENCRYPTION;
using Korvex::APPL_IDENTITY_LINK;
using Korvex::APPL_SIGNATURE;

namespace {

using TokenPinTest = TokenTest;

const char* const kAcos = kCards[1].serial;  // ACOS-A04: PUK, card type code 5
const char* const kG3A = kCards[4].serial;   // e-card: no PUK, PIN status, code 3

TEST_F(TokenPinTest, WrongPinLockedAndCancelledMapToTheirResults)
{
    ASSERT_TRUE(openCard(kAcos));
    SetPinAnswers({"CANCEL", "9999", "1111", "1111", "9999", "1111", "1111", "9999", "1111", "1111"});
    EXPECT_EQ(p11->ChangePIN(APPL_ENCRYPTION), Korvex::PKCS11_CANCELED);
    for (int triesLeft : {2, 1, 0}) {
        EXPECT_EQ(p11->ChangePIN(APPL_ENCRYPTION), Korvex::PKCS11_PIN_INCORRECT);
        EXPECT_EQ(Sim::PinTries(kAcos, VSIM_PIN_ENCRYPTION), triesLeft);
    }
    EXPECT_EQ(p11->ChangePIN(APPL_ENCRYPTION), Korvex::PKCS11_PIN_LOCKED);
    Lines expected(3, "Proc_C_SetAttributeValue returned CKR_PIN_INCORRECT");
    expected.insert(expected.begin(), "Proc_C_SetAttributeValue returned CKR_FUNCTION_CANCELED");
    expected.push_back("Proc_C_SetAttributeValue returned CKR_PIN_LOCKED");
    EXPECT_EQ(Log::errors(), expected);
}

TEST_F(TokenPinTest, RefusalsFailuresAndTheFourArgumentForm)
{
    EXPECT_EQ(p11->ChangePIN(APPL_SIGNATURE), Korvex::PKCS11_ERROR);
    EXPECT_EQ(p11->UnblockPIN(APPL_SIGNATURE), Korvex::PKCS11_ERROR);
    EXPECT_EQ(Log::errors(), Lines(2, "PKCS11 Session nicht offen"));

    ASSERT_TRUE(openCard(kAcos));
    Log::clear();
    unsigned long dialogs = Sim::PinDialogCount();
    EXPECT_EQ(p11->ChangePIN(static_cast<Korvex::ApplType>(5)), Korvex::PKCS11_ERROR);
    EXPECT_EQ(p11->GenericPINCommand(static_cast<Korvex::ApplType>(5), 0x200, false, false),
              Korvex::PKCS11_ERROR);
    EXPECT_TRUE(Log::errors().empty());
    EXPECT_EQ(Sim::PinDialogCount(), dialogs);

    // A module that could not show its dialogue: the error, and why.
    Sim::SetFault("C_SetAttributeValue", kAcos, CKR_FUNCTION_FAILED, 1);
    EXPECT_EQ(p11->ChangePIN(APPL_SIGNATURE), Korvex::PKCS11_ERROR);
    EXPECT_EQ(Log::errors(), Lines{"Proc_C_SetAttributeValue returned 0x6"});
    EXPECT_TRUE(Log::hasMessage(Korvex::kPinDialogueNotShown));
    EXPECT_EQ(p11->LastPinCommandRv(), CKR_FUNCTION_FAILED);

    // The four-argument form maps a wrong PIN to locked and locked to a wrong PIN.
    Log::clear();
    SetPinAnswers({"999999", "111111", "111111", "999999", "111111", "111111", "999999", "111111", "111111"});
    for (int attempt = 0; attempt < 3; ++attempt)
        EXPECT_EQ(p11->GenericPINCommand(APPL_SIGNATURE, 0x200, false, false), Korvex::PKCS11_PIN_LOCKED);
    // Now really locked: CKR_PIN_LOCKED reads as a wrong PIN in this form.
    EXPECT_EQ(p11->GenericPINCommand(APPL_SIGNATURE, 0x200, false, false), Korvex::PKCS11_PIN_INCORRECT);
    SetPinAnswers({"CANCEL"});
    EXPECT_EQ(p11->GenericPINCommand(APPL_IDENTITY_LINK, 0x200, false, false), Korvex::PKCS11_CANCELED);
    EXPECT_TRUE(Log::errors().empty());
}

TEST_F(TokenPinTest, InitPinForcesTheSoftwarePinOnAcosCardsForNewClients)
{
    setClientVersion("1.4.0.0");
    p11->destroy();
    p11 = std::make_unique<Token>();  // reads the client version
    ASSERT_TRUE(openCard(kAcos, true));
    ASSERT_TRUE(p11->LoadCardType());
    ASSERT_EQ(p11->GetCardType(), 5);
    Log::clear();

    // A module refusing the marker is asked once more without it.
    Sim::SetFault("C_SetAttributeValue", kAcos, CKR_FUNCTION_FAILED, 1);
    SetPinAnswers({"123456", "222222", "222222"});
    unsigned long dialogs = Sim::PinDialogCount();
    EXPECT_EQ(p11->InitPIN(APPL_SIGNATURE), Korvex::PKCS11_OK);
    EXPECT_TRUE(Log::hasMessage("acPKCS11::_GenericPINCommand: force Software Pin"));
    EXPECT_EQ(Sim::PinDialogCount(), dialogs + 1);

    // Not for the encryption PIN, nor on an e-card.
    Log::clear();
    SetPinAnswers({"1234", "4444", "4444", "123456", "222222", "222222"});
    EXPECT_EQ(p11->InitPIN(APPL_ENCRYPTION), Korvex::PKCS11_OK);
    ASSERT_TRUE(openCard(kG3A, true));
    p11->ReadATR(true);  // the cached ATR is still the other card's
    ASSERT_TRUE(p11->LoadCardType());
    EXPECT_EQ(p11->InitPIN(APPL_SIGNATURE), Korvex::PKCS11_OK);
    EXPECT_FALSE(Log::hasMessage("acPKCS11::_GenericPINCommand: force Software Pin"));
    setClientVersion("");
}

TEST_F(TokenPinTest, PinStatusIsReadOnlyWhereTheCardReportsItWhateverTheResult)
{
    Korvex::PINState state = Korvex::PIN_STATE_NO_TRIES;
    int32_t tries = 0;
    EXPECT_EQ(p11->GetPINStatus(APPL_SIGNATURE, state, tries), Korvex::PKCS11_ERROR);  // no session

    ASSERT_TRUE(openCard(kAcos));
    ASSERT_TRUE(p11->LoadCardType());
    EXPECT_EQ(p11->GetPINStatus(APPL_SIGNATURE, state, tries), Korvex::PKCS11_ERROR);
    EXPECT_EQ(state, Korvex::PIN_STATE_UNKNOWN);
    EXPECT_EQ(tries, -1);

    ASSERT_TRUE(openCard(kG3A));
    p11->ReadATR(true);
    ASSERT_TRUE(p11->LoadCardType());
    EXPECT_EQ(p11->GetPINStatus(APPL_SIGNATURE, state, tries), Korvex::PKCS11_OK);
    EXPECT_EQ(state, Korvex::PIN_STATE_TRIES_LEFT);
    EXPECT_EQ(tries, 3);
    SetPinAnswers({"1111", "5555", "5555"});
    EXPECT_EQ(p11->ChangePIN(APPL_ENCRYPTION), Korvex::PKCS11_PIN_INCORRECT);
    EXPECT_EQ(p11->GetPINStatus(APPL_IDENTITY_LINK, state, tries), Korvex::PKCS11_OK);
    EXPECT_EQ(tries, 2);
    EXPECT_EQ(p11->GetPINStatus(static_cast<Korvex::ApplType>(3), state, tries), Korvex::PKCS11_ERROR);

    // The status bytes are read whatever the module's result.
    Sim::AddFaults("C_CardAttribute=answer:FF03*1");
    EXPECT_EQ(p11->GetPINStatus(APPL_SIGNATURE, state, tries), Korvex::PKCS11_OK);
    EXPECT_EQ(state, Korvex::PIN_STATE_UNKNOWN);
    EXPECT_EQ(tries, -1);
    Sim::AddFaults("C_CardAttribute=answer:0003*1");
    EXPECT_EQ(p11->GetPINStatus(APPL_SIGNATURE, state, tries), Korvex::PKCS11_OK);
    EXPECT_EQ(state, Korvex::PIN_STATE_NO_TRIES);
    EXPECT_EQ(tries, 0);

    Sim::AddFaults("C_CardAttribute=CKR_FUNCTION_NOT_SUPPORTED*1");
    EXPECT_EQ(p11->GetPINStatus(APPL_SIGNATURE, state, tries), Korvex::PKCS11_NOT_SUPPORTED);
    EXPECT_EQ(state, Korvex::PIN_STATE_NO_TRIES);  // zeroed buffer
    Sim::AddFaults("C_CardAttribute=CKR_DEVICE_ERROR*1");
    EXPECT_EQ(p11->GetPINStatus(APPL_ENCRYPTION, state, tries), Korvex::PKCS11_ERROR);
}

} // namespace
