// Readers, tokens, card generations, hot plug, slot events and the answers
// to misuse of the module-level calls.
#include "SimHarness.h"

#include <chrono>
#include <set>
#include <cstring>
#include <thread>

using namespace SimTesting;

namespace {

std::string field(const unsigned char* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

std::string trimmed(const unsigned char* data, size_t size) {
    std::string text = field(data, size);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::vector<CK_SLOT_ID> slotList(CK_FUNCTION_LIST_PTR p11, bool present) {
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_GetSlotList(present, nullptr, &count), CKR_OK);
    std::vector<CK_SLOT_ID> slots(count);
    EXPECT_EQ(p11->C_GetSlotList(present, slots.data(), &count), CKR_OK);
    slots.resize(count);
    return slots;
}

class SimSlots : public SimTest {};

TEST_F(SimSlots, DemoSetHasEightReadersAndSevenTokens) {
    EXPECT_EQ(slotList(p11, false), (std::vector<CK_SLOT_ID>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(slotList(p11, true), (std::vector<CK_SLOT_ID>{0, 1, 2, 3, 4, 6, 7}));

    CK_SLOT_INFO info;
    ASSERT_EQ(p11->C_GetSlotInfo(kEmptySlot, &info), CKR_OK);
    EXPECT_EQ(info.flags & (CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE), CKF_REMOVABLE_DEVICE);
    EXPECT_EQ(trimmed(info.slotDescription, sizeof info.slotDescription), "Vessa Reader 5");
    ASSERT_EQ(p11->C_GetSlotInfo(kInternalSlot, &info), CKR_OK);
    EXPECT_EQ(info.flags & (CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE), CKF_TOKEN_PRESENT);
}

TEST_F(SimSlots, TokensCarryModelLabelAndSerialOfTheirGeneration) {
    struct Expected {
        CK_SLOT_ID slot;
        const char* model;
        const char* label;
        const char* serial;
    } expected[] = {
        {0, "ACOS EMV-A04", "vessa premium Signaturkarte", kAcosA04},
        {1, "ATOS 5.3", "vessa premium e-Card", kECardG4},
        {2, "Starcos SPK 3.1", "vessa premium e-Card", kECardG2},
        {3, "ACOS EMV-A03", "vessa premium Signaturkarte", kAcosA03},
        {kBlankSlot, "ACOS EMV-A05", "vessa premium Signaturkarte", "0000000000000000"},
        {kNoLinkSlot, "ACOS EMV-A03", "vessa premium Signaturkarte", kAcosA03NoLink},
    };
    for (const auto& row : expected) {
        CK_TOKEN_INFO info;
        ASSERT_EQ(p11->C_GetTokenInfo(row.slot, &info), CKR_OK) << row.slot;
        EXPECT_EQ(field(info.model, 16), std::string(row.model) + std::string(16 - strlen(row.model), ' '));
        EXPECT_EQ(trimmed(info.label, 32), row.label);
        EXPECT_EQ(field(info.serialNumber, 16), row.serial);
        EXPECT_EQ(trimmed(info.manufacturerID, 32), "vessa");
        EXPECT_TRUE(info.flags & CKF_PROTECTED_AUTHENTICATION_PATH);
    }
    CK_TOKEN_INFO blank;
    ASSERT_EQ(p11->C_GetTokenInfo(kBlankSlot, &blank), CKR_OK);
    EXPECT_FALSE(blank.flags & CKF_TOKEN_INITIALIZED);
}

TEST_F(SimSlots, ModuleLevelMisuseIsAnsweredNotCrashed) {
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, nullptr), CKR_ARGUMENTS_BAD);
    CK_SLOT_ID two[2];
    count = 2;
    EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, two, &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 7u);
    CK_SLOT_INFO slotInfo;
    CK_TOKEN_INFO tokenInfo;
    EXPECT_EQ(p11->C_GetSlotInfo(99, &slotInfo), CKR_SLOT_ID_INVALID);
    EXPECT_EQ(p11->C_GetTokenInfo(kEmptySlot, &tokenInfo), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_GetTokenInfo(0, nullptr), CKR_ARGUMENTS_BAD);
    CK_SESSION_HANDLE session;
    EXPECT_EQ(p11->C_OpenSession(0, CKF_RW_SESSION, nullptr, nullptr, &session), CKR_SESSION_PARALLEL_NOT_SUPPORTED);
    EXPECT_EQ(p11->C_OpenSession(kEmptySlot, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_CloseSession(12345), CKR_SESSION_HANDLE_INVALID);
    CK_INFO info;
    EXPECT_EQ(p11->C_Finalize(reinterpret_cast<void*>(1)), CKR_ARGUMENTS_BAD);

    ASSERT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_GetInfo(&info), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Sign(1, nullptr, 0, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_EncryptInit(1, nullptr, 0), CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_C_INITIALIZE_ARGS halfCallbacks = {};
    halfCallbacks.CreateMutex = reinterpret_cast<CK_CREATEMUTEX>(1);
    EXPECT_EQ(p11->C_Initialize(&halfCallbacks), CKR_ARGUMENTS_BAD);
    CK_C_INITIALIZE_ARGS osLocking = {};
    osLocking.flags = CKF_OS_LOCKING_OK;
    ASSERT_EQ(p11->C_Initialize(&osLocking), CKR_OK);
    EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
    EXPECT_EQ(info.cryptokiVersion.major, 2);
    EXPECT_EQ(info.cryptokiVersion.minor, 40);
    EXPECT_EQ(p11->C_EncryptInit(1, nullptr, 0), CKR_FUNCTION_NOT_SUPPORTED);
}

TEST_F(SimSlots, CardSetFileDefinesReadersAndCards) {
    const std::string path = m_dir + "/cards.xml";
    WriteText(path,
              "<cardset>\n"
              "  <reader name=\"Leser A\"><card id=\"a\" generation=\"ecard-g3b\" serial=\"3032000000000077\"\n"
              "      given=\"Hanna\" family=\"Berg\" birth=\"1999-09-09\"/></reader>\n"
              "  <reader name=\"Fest\" removable=\"false\"/>\n"
              "</cardset>\n");
    setenv("VESSA_SIM_CARDS", path.c_str(), 1);
    reload();
    EXPECT_EQ(slotList(p11, false), (std::vector<CK_SLOT_ID>{0, 1}));
    CK_TOKEN_INFO info;
    ASSERT_EQ(p11->C_GetTokenInfo(0, &info), CKR_OK);
    EXPECT_EQ(field(info.model, 16), "Starcos SPK 3.4+");
    CK_SLOT_INFO slot;
    ASSERT_EQ(p11->C_GetSlotInfo(1, &slot), CKR_OK);
    EXPECT_FALSE(slot.flags & CKF_REMOVABLE_DEVICE);

    // A damaged card set stops the module from starting instead of showing
    // readers nobody asked for.
    WriteText(path, "<cardset><reader name=\"X\"><card generation=\"ACOS-A09\" serial=\"1\"/></reader></cardset>");
    ASSERT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_GENERAL_ERROR);
    unsetenv("VESSA_SIM_CARDS");
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
}

TEST_F(SimSlots, SixtyFourCardsFromAGeneratedSet) {
    int status = 0;
    std::string xml = RunCommand(std::string(VSIM_TOOL) + " cardset 64", status);
    ASSERT_EQ(status, 0);
    WriteText(m_dir + "/many.xml", xml);
    setenv("VESSA_SIM_CARDS", (m_dir + "/many.xml").c_str(), 1);
    reload();
    std::vector<CK_SLOT_ID> slots = slotList(p11, true);
    ASSERT_EQ(slots.size(), 64u);
    std::set<std::string> serials;
    for (CK_SLOT_ID slot : slots) {
        CK_TOKEN_INFO info;
        ASSERT_EQ(p11->C_GetTokenInfo(slot, &info), CKR_OK);
        serials.insert(field(info.serialNumber, 16));
    }
    EXPECT_EQ(serials.size(), 64u);
    unsetenv("VESSA_SIM_CARDS");
}

TEST_F(SimSlots, HotPlugRaisesEventsAndEndsSessionsOfThePulledCard) {
    CK_SLOT_ID event = 99;
    EXPECT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr), CKR_NO_EVENT);
    CK_SESSION_HANDLE session = openSession(0);
    ASSERT_EQ(m_sim.removeCard(0), CKR_OK);
    ASSERT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr), CKR_OK);
    EXPECT_EQ(event, 0u);
    EXPECT_EQ(slotList(p11, true), (std::vector<CK_SLOT_ID>{1, 2, 3, 4, 6, 7}));
    CK_SESSION_INFO info;
    EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_DEVICE_REMOVED);
    EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_SESSION_HANDLE_INVALID);

    // A spare card goes into the empty reader; a card already in a reader moves.
    ASSERT_EQ(m_sim.insertCard(kEmptySlot, "sophie"), CKR_OK);
    ASSERT_EQ(m_sim.insertCard(0, kECardG2), CKR_OK);
    EXPECT_EQ(slotList(p11, true), (std::vector<CK_SLOT_ID>{0, 1, 3, 4, 5, 6, 7}));
    CK_TOKEN_INFO token;
    ASSERT_EQ(p11->C_GetTokenInfo(kEmptySlot, &token), CKR_OK);
    EXPECT_EQ(field(token.model, 16), "Starcos SPK 3.4+");
    ASSERT_EQ(p11->C_GetTokenInfo(0, &token), CKR_OK);
    EXPECT_EQ(field(token.serialNumber, 16), kECardG2);

    EXPECT_EQ(m_sim.insertCard(kInternalSlot, "sophie"), CKR_SLOT_ID_INVALID);
    EXPECT_EQ(m_sim.insertCard(0, "no-such-card"), CKR_ARGUMENTS_BAD);
    ASSERT_EQ(m_sim.insertCard(kEmptySlot, "ECARD-G3A:3031000000009999:Ad:Hoc"), CKR_OK);
    ASSERT_EQ(p11->C_GetTokenInfo(kEmptySlot, &token), CKR_OK);
    EXPECT_EQ(field(token.serialNumber, 16), "3031000000009999");

    // Without blocking: each changed slot once, however often it changed,
    // then CKR_NO_EVENT.
    auto drain = [&] {
        std::vector<CK_SLOT_ID> events;
        for (int i = 0; i < 20 && p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr) == CKR_OK; ++i)
            events.push_back(event);
        return events;
    };
    drain();
    ASSERT_EQ(m_sim.removeCard(kEmptySlot), CKR_OK);
    ASSERT_EQ(m_sim.insertCard(kEmptySlot, "anna"), CKR_OK);
    ASSERT_EQ(m_sim.removeCard(3), CKR_OK);
    ASSERT_EQ(m_sim.removeCard(kEmptySlot), CKR_OK);
    EXPECT_EQ(drain(), (std::vector<CK_SLOT_ID>{kEmptySlot, 3}));
    EXPECT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr), CKR_NO_EVENT);
}

TEST_F(SimSlots, BlockingWaitWakesOnInsertAndOnFinalize) {
    CK_SLOT_ID event = 99;
    CK_RV waited = CKR_GENERAL_ERROR;
    std::thread waiter([&] { waited = p11->C_WaitForSlotEvent(0, &event, nullptr); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_EQ(m_sim.insertCard(kEmptySlot, "anna"), CKR_OK);
    waiter.join();
    EXPECT_EQ(waited, CKR_OK);
    EXPECT_EQ(event, kEmptySlot);

    std::thread second([&] { waited = p11->C_WaitForSlotEvent(0, &event, nullptr); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    second.join();
    EXPECT_EQ(waited, CKR_CRYPTOKI_NOT_INITIALIZED);
    ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
}

TEST_F(SimSlots, ControlToolChangesARunningModule) {
    int status = 0;
    const std::string tool = VSIM_TOOL;
    RunCommand(tool + " remove 1", status);
    ASSERT_EQ(status, 0);
    CK_SLOT_ID event = 99;
    EXPECT_EQ(slotList(p11, true), (std::vector<CK_SLOT_ID>{0, 2, 3, 4, 6, 7}));
    ASSERT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr), CKR_OK);
    EXPECT_EQ(event, 1u);

    RunCommand(tool + " insert 'Vessa Reader 5' lukas", status);
    ASSERT_EQ(status, 0);
    std::thread waiter([&] { EXPECT_EQ(p11->C_WaitForSlotEvent(0, &event, nullptr), CKR_OK); });
    waiter.join();
    EXPECT_EQ(event, kEmptySlot);
    std::string listing = RunCommand(tool + " list", status);
    EXPECT_NE(listing.find("5  Vessa Reader 5: ECARD-G3A  3031000000003333  Lukas Huber"), std::string::npos) << listing;

    // The changes outlive the program; "clear" restores the card set.
    reload();
    EXPECT_EQ(slotList(p11, true), (std::vector<CK_SLOT_ID>{0, 2, 3, 4, 5, 6, 7}));
    RunCommand(tool + " clear", status);
    EXPECT_EQ(slotList(p11, true), (std::vector<CK_SLOT_ID>{0, 1, 2, 3, 4, 6, 7}));

    RunCommand(tool + " insert 99 anna", status);
    EXPECT_NE(status, 0);
    RunCommand(tool + " remove 7", status);  // the internal slot
    EXPECT_NE(status, 0);
}

} // namespace
