// Readers, tokens, card generations, hot plug, slot events and the answers
// to misuse of the module-level calls.
#include "SimHarness.h"

#include "tests/support/TestCommon.h"
#include <set>

using namespace SimTesting;

namespace {

class SimSlots : public SimTest {
protected:
    std::vector<CK_SLOT_ID> slots(bool present = true) {
        CK_ULONG count = 0;
        EXPECT_EQ(p11->C_GetSlotList(present, nullptr, &count), CKR_OK);
        std::vector<CK_SLOT_ID> list(count);
        EXPECT_EQ(p11->C_GetSlotList(present, list.data(), &count), CKR_OK);
        list.resize(count);
        return list;
    }
    std::string serialIn(CK_SLOT_ID slot) {
        CK_TOKEN_INFO info;
        EXPECT_EQ(p11->C_GetTokenInfo(slot, &info), CKR_OK);
        std::string serial(reinterpret_cast<const char*>(info.serialNumber), sizeof info.serialNumber);
        return serial.substr(0, serial.find_last_not_of(' ') + 1);
    }
    std::vector<CK_SLOT_ID> drainEvents() {
        std::vector<CK_SLOT_ID> events;
        CK_SLOT_ID event = 99;
        for (int i = 0; i < 20 && p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr) == CKR_OK; ++i)
            events.push_back(event);
        return events;
    }
};

TEST_F(SimSlots, ModuleLevelMisuseIsAnsweredNotCrashed) {
    CK_ULONG count = 2;
    CK_SLOT_ID two[2];
    CK_TOKEN_INFO tokenInfo;
    CK_SESSION_HANDLE session;
    CK_INFO info;
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, two, &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 7u);
    EXPECT_EQ(p11->C_GetTokenInfo(kEmptySlot, &tokenInfo), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_OpenSession(0, CKF_RW_SESSION, nullptr, nullptr, &session), CKR_SESSION_PARALLEL_NOT_SUPPORTED);
    EXPECT_EQ(p11->C_CloseSession(12345), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(p11->C_Finalize(reinterpret_cast<void*>(1)), CKR_ARGUMENTS_BAD);

    ASSERT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Sign(1, nullptr, 0, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_C_INITIALIZE_ARGS halfCallbacks = {};
    halfCallbacks.CreateMutex = reinterpret_cast<CK_CREATEMUTEX>(1);
    EXPECT_EQ(p11->C_Initialize(&halfCallbacks), CKR_ARGUMENTS_BAD);
    CK_C_INITIALIZE_ARGS osLocking = {};
    osLocking.flags = CKF_OS_LOCKING_OK;
    ASSERT_EQ(p11->C_Initialize(&osLocking), CKR_OK);
    ASSERT_EQ(p11->C_GetInfo(&info), CKR_OK);
    EXPECT_EQ(info.cryptokiVersion.minor, 40);
    EXPECT_EQ(p11->C_EncryptInit(1, nullptr, 0), CKR_FUNCTION_NOT_SUPPORTED);
}

// Card-set files with their readers, names and fixed slots are what every
// token and window test starts from; the generated set is the tool's own.
TEST_F(SimSlots, TheToolGeneratesACardSetOfDistinctCards) {
    const std::string path = m_dir + "/cards.xml";
    setenv("VESSA_SIM_CARDS", path.c_str(), 1);
    int status = 0;
    WriteText(path, RunCommand(std::string(VSIM_TOOL) + " cardset 64", status));
    ASSERT_EQ(status, 0);
    reload();
    std::set<std::string> serials;
    for (CK_SLOT_ID id : slots()) serials.insert(serialIn(id));
    EXPECT_EQ(serials.size(), 64u);
}

TEST_F(SimSlots, HotPlugRaisesOneEventPerChangedSlotAndEndsSessionsOfThePulledCard) {
    EXPECT_TRUE(drainEvents().empty());
    CK_SESSION_HANDLE session = openSession(0);
    ASSERT_EQ(Sim::RemoveCard(0), CKR_OK);
    EXPECT_EQ(drainEvents(), std::vector<CK_SLOT_ID>{0});
    CK_SESSION_INFO info;
    EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_DEVICE_REMOVED);
    EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_SESSION_HANDLE_INVALID);

    // A spare card goes into the empty reader; a card already in a reader moves.
    ASSERT_EQ(Sim::InsertCard(kEmptySlot, "sophie"), CKR_OK);
    ASSERT_EQ(Sim::InsertCard(0, kECardG2), CKR_OK);
    EXPECT_EQ(slots(), (std::vector<CK_SLOT_ID>{0, 1, 3, 4, 5, 6, 7}));
    EXPECT_EQ(serialIn(0), kECardG2);
    EXPECT_EQ(Sim::InsertCard(kInternalSlot, "sophie"), CKR_SLOT_ID_INVALID);
    EXPECT_EQ(Sim::InsertCard(0, "no-such-card"), CKR_ARGUMENTS_BAD);
    ASSERT_EQ(Sim::InsertCard(kEmptySlot, "ECARD-G3A:3031000000009999:Ad:Hoc"), CKR_OK);
    EXPECT_EQ(serialIn(kEmptySlot), "3031000000009999");

    drainEvents();
    ASSERT_EQ(Sim::RemoveCard(kEmptySlot), CKR_OK);
    ASSERT_EQ(Sim::InsertCard(kEmptySlot, "anna"), CKR_OK);
    ASSERT_EQ(Sim::RemoveCard(3), CKR_OK);
    EXPECT_EQ(Sim::RemoveCard(3), CKR_OK) << "pulling from an empty reader is no error";
    ASSERT_EQ(Sim::RemoveCard(kEmptySlot), CKR_OK);
    EXPECT_EQ(drainEvents(), (std::vector<CK_SLOT_ID>{kEmptySlot, 3}));
}

TEST_F(SimSlots, ControlToolChangesARunningModuleAndItsLaterStarts) {
    int status = 0;
    const std::string tool = VSIM_TOOL;
    RunCommand(tool + " remove 1", status);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(drainEvents(), std::vector<CK_SLOT_ID>{1});
    RunCommand(tool + " insert 'Vessa Reader 5' lukas", status);
    ASSERT_EQ(status, 0);
    std::string listing = RunCommand(tool + " list", status);
    EXPECT_NE(listing.find("5  Vessa Reader 5: ECARD-G3A  3031000000003333  Lukas Huber"), std::string::npos) << listing;

    reload();
    EXPECT_EQ(slots(), (std::vector<CK_SLOT_ID>{0, 2, 3, 4, 5, 6, 7}));
    RunCommand(tool + " clear", status);
    EXPECT_EQ(slots(), (std::vector<CK_SLOT_ID>{0, 1, 2, 3, 4, 6, 7}));
    for (const char* refused : {" insert 99 anna", " remove 7", " fault C_Login@nobody=CKR_PIN_LOCKED"}) {
        RunCommand(tool + refused, status);
        EXPECT_NE(status, 0) << refused;
    }
}

} // namespace
