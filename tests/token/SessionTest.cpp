// Sessions, finding a card by its number, the card number over APDUs, and
// object search, including cards pulled out between calls.
#include "tests/token/TokenTestSupport.h"

using namespace tokentest;

namespace {

using TokenSessionTest = TokenTest;

TEST_F(TokenSessionTest, OpenAndCloseFollowThePositionRules)
{
    std::vector<Korvex::SlotStruct*> slots;
    ASSERT_TRUE(p11->GetSlots(slots, true));
    EXPECT_FALSE(p11->OpenSession(-1, false));
    EXPECT_FALSE(p11->OpenSession(static_cast<int32_t>(slots.size()), true));
    EXPECT_EQ(p11->GetSessionHandle(), 0u);

    ASSERT_TRUE(p11->OpenSession(2, false));
    CK_SESSION_HANDLE first = p11->GetSessionHandle();
    EXPECT_NE(first, 0u);
    EXPECT_EQ(p11->GetSlotIndex(), 2);
    // Read-only: the old session is not closed, only forgotten.
    ASSERT_TRUE(p11->OpenSession(3, false));
    EXPECT_NE(p11->GetSessionHandle(), first);
    EXPECT_EQ(p11->GetSlotIndex(), 3);

    EXPECT_TRUE(p11->CloseSession());
    EXPECT_EQ(p11->GetSessionHandle(), 0u);
    EXPECT_EQ(p11->GetSlotIndex(), -1);
    EXPECT_TRUE(p11->CloseSession());
    EXPECT_EQ(p11->GetSlotIndex(), -1);
}

TEST_F(TokenSessionTest, FailedOpenIsLoggedAndKeepsTheSlotIndex)
{
    ASSERT_TRUE(openCard(kCards[0].serial));
    EXPECT_EQ(p11->GetSlotIndex(), 0);
    Sim::SetFault("C_OpenSession", kCards[1].serial, CKR_TOKEN_NOT_RECOGNIZED, 1);
    EXPECT_FALSE(p11->OpenSession(1, false));
    EXPECT_EQ(p11->GetSessionHandle(), 0u);
    EXPECT_EQ(p11->GetSlotIndex(), 0);
    EXPECT_EQ(Log::errors(), Lines{"PKCS11 Proc_C_OpenSession ERROR0xe1"});
}

TEST_F(TokenSessionTest, FindsTheCardByTwelveOrSixteenCharacters)
{
    std::string serial = kCards[4].serial;
    for (auto [length, position] : {std::pair<size_t, int>{16, 4}, {12, 4}, {11, -1}, {13, -1}})
        EXPECT_EQ(p11->findSlotForCin(serial.substr(0, length)), position) << length;
    EXPECT_EQ(p11->findSlotForCin(kBlankSerial), -1);  // blank cards are not searched
    EXPECT_EQ(p11->findSlotForCin("9999999999999999"), -1);

    EXPECT_TRUE(p11->OpenGlobalSession(serial));
    EXPECT_EQ(p11->GetSlotIndex(), 4);
    EXPECT_FALSE(p11->OpenGlobalSession("123"));
}

TEST_F(TokenSessionTest, ReadsTheCardNumberOverApdus)
{
    for (int i : {1, 6}) {
        ASSERT_TRUE(openCard(kCards[i].serial));
        std::string cin;
        EXPECT_TRUE(p11->GetCinCsn(cin));
        EXPECT_EQ(cin, kCards[i].serial);
        p11->CloseSession();
    }

    ASSERT_TRUE(openCard(kCards[0].serial));
    Sim::SetFault("C_CardTransmit", kCards[0].serial, CKR_DEVICE_ERROR, 1);
    std::string cin;
    EXPECT_FALSE(p11->GetCinCsn(cin));
    EXPECT_EQ(Log::errors(), (Lines{"Failed C_CardTransmit, rv = 0x30", "sendAPDU failed", "error select DF DEC"}));
}

TEST_F(TokenSessionTest, ObjectSearchFindsByLabelAndClassAndLogsFailures)
{
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    EXPECT_FALSE(p11->FindObject("SK.CH.SIG", CKO_PRIVATE_KEY, handle));  // no session
    EXPECT_EQ(Log::errors(), Lines{"acPKCS11::FindObject: FindObjects error"});

    ASSERT_TRUE(openCard(kCards[1].serial));
    EXPECT_TRUE(p11->FindObject("SK.CH.SIG", CKO_PRIVATE_KEY, handle));
    EXPECT_NE(handle, CK_INVALID_HANDLE);
    EXPECT_FALSE(p11->FindObject("SK.CH.SIG", CKO_PUBLIC_KEY, handle));
    EXPECT_TRUE(p11->FindObject("PERSONENBINDUNG", CKO_DATA, handle));

    CK_OBJECT_CLASS certClass = CKO_CERTIFICATE;
    CK_ATTRIBUTE search = {CKA_CLASS, &certClass, sizeof(certClass)};
    CK_OBJECT_HANDLE handles[1];
    CK_ULONG found = 99;
    EXPECT_TRUE(p11->FindObjects(&search, 1, handles, 1, found));
    EXPECT_EQ(found, 1u);

    Log::clear();
    const char* serial = kCards[1].serial;
    Sim::SetFault("C_FindObjectsInit", serial, CKR_OPERATION_ACTIVE, 1);
    EXPECT_FALSE(p11->FindObjects(&search, 1, handles, 1, found));
    Sim::SetFault("C_FindObjects", serial, CKR_DEVICE_ERROR, 1);
    EXPECT_FALSE(p11->FindObjects(&search, 1, handles, 1, found));
    // That search was left open; the simulator refuses a new one on the
    // same session, as a strict module may.
    EXPECT_FALSE(p11->FindObjects(&search, 1, handles, 1, found));
    ASSERT_TRUE(openCard(serial));
    Sim::SetFault("C_FindObjectsFinal", serial, CKR_DEVICE_ERROR, 1);
    EXPECT_FALSE(p11->FindObjects(&search, 1, handles, 1, found));
    EXPECT_EQ(Log::errors(), (Lines{"PKCS11 Proc_C_FindObjectsInit0x90", "PKCS11 Proc_C_FindObjects0x30",
                                    "PKCS11 Proc_C_FindObjectsInit0x90", "PKCS11 Proc_C_FindObjectsFinal0x30"}));
}

TEST_F(TokenSessionTest, OversizedObjectCountIsCutToTheArray)
{
    ASSERT_TRUE(openCard(kCards[1].serial));
    Sim::SetMalformed("C_FindObjects", kCards[1].serial, VSIM_ALWAYS);
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE search = {CKA_CLASS, &keyClass, sizeof(keyClass)};
    CK_OBJECT_HANDLE handles[1];
    CK_ULONG found = 0;
    EXPECT_TRUE(p11->FindObjects(&search, 1, handles, 1, found));
    EXPECT_EQ(found, 1u);
    Korvex::SignKey key = Korvex::SIGN_KEY_EC;
    EXPECT_TRUE(p11->GetSignKeyType(key, true));  // ten-handle search, same guard
}

TEST_F(TokenSessionTest, CardPulledOutBetweenCallsFailsCleanly)
{
    ASSERT_TRUE(openCard(kCards[1].serial));
    Sim::RemoveCard(1);

    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    EXPECT_FALSE(p11->FindObject("SK.CH.SIG", CKO_PRIVATE_KEY, handle));
    EXPECT_EQ(Log::errors().front(), "PKCS11 Proc_C_FindObjectsInit0x32");
    EXPECT_FALSE(p11->LoadSigningCertificate(true));
    std::string cin;
    EXPECT_FALSE(p11->GetCinCsn(cin));
    EXPECT_EQ(p11->ChangePIN(Korvex::APPL_SIGNATURE), Korvex::PKCS11_ERROR);
    EXPECT_TRUE(p11->CloseSession());

    std::vector<Korvex::SlotStruct*> slots;
    ASSERT_TRUE(p11->GetSlots(slots, true));
    EXPECT_EQ(slots.size(), kListedCards - 1);
    EXPECT_EQ(p11->findSlotForCin(kCards[1].serial), -1);
    Sim::InsertCard(1, kCards[1].serial);
    EXPECT_EQ(p11->findSlotForCin(kCards[1].serial), 1);
}

} // namespace
