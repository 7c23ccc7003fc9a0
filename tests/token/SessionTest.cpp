// Finding a card by its number, and object search with what the module
// answers wrongly.
#include "tests/token/TokenTestSupport.h"

using namespace tokentest;

namespace {

using TokenSessionTest = TokenTest;

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

TEST_F(TokenSessionTest, AWritingSessionReplacesTheOpenOneOnTheCard)
{
    ASSERT_TRUE(openCard(kCards[1].serial));
    ASSERT_TRUE(openCard(kCards[1].serial, true));
    EXPECT_EQ(Sim::OpenSessions(1), 1) << "the reading session was left open on the card";
    p11->CloseSession();
    EXPECT_EQ(Sim::OpenSessions(1), 0);
}

TEST_F(TokenSessionTest, ObjectSearchFindsByLabelAndClassAndLogsFailuresAndOversizedCounts)
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

    // An object count beyond the array is cut to it.
    ASSERT_TRUE(openCard(serial));
    Sim::SetMalformed("C_FindObjects", serial, VSIM_ALWAYS);
    certClass = CKO_PRIVATE_KEY;
    found = 0;
    EXPECT_TRUE(p11->FindObjects(&search, 1, handles, 1, found));
    EXPECT_EQ(found, 1u);
    Korvex::SignKey key = Korvex::SIGN_KEY_EC;
    EXPECT_TRUE(p11->GetSignKeyType(key, true));  // ten-handle search, same guard
}

TEST_F(TokenSessionTest, ACardsSessionAsksItsTokenOnlyOnceItsReaderHasChanged)
{
    CK_SLOT_ID seen = 0;
    while (p11->PollSlotEvent(seen) == Korvex::SLOT_EVENT_SEEN) {
    }
    std::vector<Korvex::SlotStruct*> slots;
    ASSERT_TRUE(p11->GetSlots(slots, true));
    const CK_SLOT_ID slot = slots[2]->slotID;
    const std::string serial = slots[2]->serial;
    // A pending fault shows whether the token was asked.
    Sim::SetFault("C_GetTokenInfo", serial.c_str(), CKR_DEVICE_ERROR, 1);
    bool sameCard = false;
    EXPECT_TRUE(p11->OpenSessionOnCard(slot, serial, false, sameCard));
    Korvex::TokenInfoStruct2 info;
    EXPECT_TRUE(p11->ListedTokenInfo(slot, info) && info.serial == serial);
    p11->CloseSession();

    ASSERT_EQ(Sim::RemoveCard(slot), static_cast<CK_RV>(CKR_OK));
    ASSERT_EQ(Sim::InsertCard(slot, serial.c_str()), static_cast<CK_RV>(CKR_OK));
    EXPECT_FALSE(p11->OpenSessionOnCard(slot, serial, false, sameCard));  // asked: the fault answers
    EXPECT_TRUE(p11->OpenSessionOnCard(slot, serial, false, sameCard));   // read afresh, then unchanged
    p11->CloseSession();
    // The events the check collected are still the watch's news.
    EXPECT_EQ(p11->PollSlotEvent(seen), Korvex::SLOT_EVENT_SEEN);
    EXPECT_EQ(seen, slot);
}

} // namespace
