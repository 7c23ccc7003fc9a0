// Cards shared with another process that has the module loaded at the same
// time (the companion program writing an identity link while the card
// manager runs): what the other process changes shows here, nothing either
// process changes is lost, and object handles stay valid across the reload.
#include "SimHarness.h"

#include "formats/InfoboxFS.h"

#include "tests/support/TestCommon.h"

using namespace SimTesting;

namespace {

Bytes textBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

class SimSharedState : public SimTest {
protected:
    // The other program is vessa-sim's write and verify, which load the
    // module themselves. Runs it to its end; its standard output.
    std::string other(const std::vector<std::string>& args, int expectedStatus = 0) {
        std::string command = VSIM_TOOL;
        for (const auto& arg : args) command += " '" + arg + "'";
        int status = -1;
        std::string output = RunCommand(command, status);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == expectedStatus) << command << " -> " << status;
        return output;
    }

    std::vector<unsigned char> infoboxTags(CK_SESSION_HANDLE session) {
        const Bytes file = readAttribute(session, findObject(session, CKO_DATA, "INFOBOX"), CKA_VALUE);
        LibInfobox::InfoboxFS infobox;
        EXPECT_TRUE(infobox.ParseInfoboxData(Korvex::ByteArray(file.data(), file.size())));
        return infobox.GetTagList();
    }
};

TEST_F(SimSharedState, PinTriesUsedElsewhereCountHereAndBack) {
    CK_SESSION_HANDLE session = openSession(1);  // its generation reports PIN status
    ASSERT_EQ(Sim::PinTries(kECardG4, VSIM_PIN_SIGNATURE), 1);  // the demo card is on its last try

    // The right PIN here restores the counter for the other program too.
    unsigned char verify[] = {0x00, 0x20, 0x00, 0x81, 0x06, '1', '2', '3', '4', '5', '6'};
    unsigned char answer[8];
    CK_ULONG length = sizeof answer;
    ASSERT_EQ(m_sim.transmit(session, verify, sizeof verify, answer, &length), CKR_OK);
    EXPECT_EQ(Bytes(answer, answer + length), (Bytes{0x90, 0x00}));
    EXPECT_EQ(other({"verify", "1", "81"}), "63C3\n");

    // Wrong entries there count here.
    EXPECT_EQ(other({"verify", "1", "81", "000000", "2"}), "63C1\n");
    EXPECT_EQ(Sim::PinTries(kECardG4, VSIM_PIN_SIGNATURE), 1);
    unsigned char status[2] = {0, 0};
    length = sizeof status;
    ASSERT_EQ(m_sim.cardAttribute(session, "SicSig/PIN-Status", status, &length), CKR_OK);
    EXPECT_EQ(Bytes(status, status + 2), (Bytes{1, 3}));

    // The token flags follow the identity-link PIN used up elsewhere.
    EXPECT_EQ(other({"verify", "3", "83", "0000"}), "63C2\n");
    EXPECT_EQ(Sim::PinTries(kAcosA03, VSIM_PIN_IDENTITY_LINK), 2);
    CK_TOKEN_INFO info;
    ASSERT_EQ(p11->C_GetTokenInfo(3, &info), CKR_OK);
    EXPECT_TRUE(info.flags & CKF_USER_PIN_COUNT_LOW);
    EXPECT_EQ(other({"verify", "3", "83", "0000", "2"}), "63C0\n");
    ASSERT_EQ(p11->C_GetTokenInfo(3, &info), CKR_OK);
    EXPECT_TRUE(info.flags & CKF_USER_PIN_LOCKED);
    CK_SESSION_HANDLE locked = openSession(3);
    CK_UTF8CHAR pin[] = "4321";
    EXPECT_EQ(p11->C_Login(locked, CKU_USER, pin, 4), CKR_PIN_LOCKED);
}

TEST_F(SimSharedState, TwoProcessesWritingAtOnceLoseNothing) {
    // The other program writes RFU1 while this one writes RFU2 of the same
    // card; each reads its own object back after every write.
    const int writer = StartProcess({VSIM_TOOL, "write", "3", "RFU1", "other", "300"});
    ASSERT_GT(writer, 0);
    CK_SESSION_HANDLE session = openSession(3, true);
    CK_UTF8CHAR pin[] = "4321";
    ASSERT_EQ(p11->C_Login(session, CKU_USER, pin, 4), CKR_OK);
    const CK_OBJECT_HANDLE own = findObject(session, CKO_DATA, "RFU2");
    const CK_OBJECT_HANDLE theirs = findObject(session, CKO_DATA, "RFU1");
    // Start once the other program is writing, so that the two overlap.
    for (int wait = 0; wait < 2000 && readAttribute(session, theirs, CKA_VALUE) == Bytes(256, 0); ++wait) {
        usleep(5000);
    }
    int written = 0;
    int otherStatus = -1;
    while (written < 5000) {
        const std::string value = "own-" + std::to_string(++written);
        CK_ATTRIBUTE attribute = {CKA_VALUE, const_cast<char*>(value.data()), value.size()};
        ASSERT_EQ(p11->C_SetAttributeValue(session, own, &attribute, 1), CKR_OK);
        ASSERT_EQ(readAttribute(session, own, CKA_VALUE), textBytes(value)) << "lost update";
        if (otherStatus < 0) otherStatus = ProcessStatus(writer, false);
        else break;  // one more write after the other program ended
    }
    if (otherStatus < 0) otherStatus = ProcessStatus(writer, true);
    EXPECT_EQ(otherStatus, 0);

    reload();
    session = openSession(3);
    EXPECT_EQ(readAttribute(session, findObject(session, CKO_DATA, "RFU1"), CKA_VALUE), textBytes("other-300"));
    EXPECT_EQ(readAttribute(session, findObject(session, CKO_DATA, "RFU2"), CKA_VALUE),
              textBytes("own-" + std::to_string(written)));
}

TEST_F(SimSharedState, EntriesAddedOrResetElsewhereComeAndGoOnAnInfoboxCard) {
    WriteText(m_dir + "/cards.xml", R"(<cardset><reader name="R"><card generation="ACOS-A05"
        serial="1205000000002323" given="Lena" family="Leerbox" identitylink="false"/></reader></cardset>)");
    setenv("VESSA_SIM_CARDS", (m_dir + "/cards.xml").c_str(), 1);
    reload();
    CK_SESSION_HANDLE session = openSession(0);
    EXPECT_EQ(findObject(session, CKO_DATA, "0x01"), CK_INVALID_HANDLE);
    EXPECT_EQ(infoboxTags(session), (std::vector<unsigned char>{2, 3}));

    other({"write", "0", "PERSONENBINDUNG", "link"});
    const CK_OBJECT_HANDLE entry = findObject(session, CKO_DATA, "0x01");
    ASSERT_NE(entry, CK_INVALID_HANDLE);
    EXPECT_EQ(readAttribute(session, entry, CKA_VALUE), textBytes("link"));
    EXPECT_EQ(infoboxTags(session), (std::vector<unsigned char>{1, 2, 3}));

    other({"reset", "1205000000002323"});
    EXPECT_EQ(findObject(session, CKO_DATA, "0x01"), CK_INVALID_HANDLE);
    CK_ATTRIBUTE value = {CKA_VALUE, nullptr, 0};
    EXPECT_EQ(p11->C_GetAttributeValue(session, entry, &value, 1), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(infoboxTags(session), (std::vector<unsigned char>{2, 3}));
    EXPECT_EQ(readAttribute(session, findObject(session, CKO_DATA, "PERSONENBINDUNG"), CKA_VALUE), Bytes(256, 0));
}

} // namespace
