// PINs like a card: change and unblock dialogues, retry counters, locking,
// cancel, format rules, login on the protected path, and persistence of all
// of it across a restart.
#include "SimHarness.h"

#include <algorithm>

#include <sys/stat.h>

using namespace SimTesting;

namespace {

constexpr CK_ATTRIBUTE_TYPE kChange = 0x200;
constexpr CK_ATTRIBUTE_TYPE kUnblock = 0x201;

class SimPins : public SimTest {
protected:
    CK_OBJECT_HANDLE signatureKey(CK_SESSION_HANDLE session) {
        return findObject(session, CKO_PRIVATE_KEY, "SK.CH.SIG");
    }
    bool logContains(const std::string& text) {
        const auto lines = PinDialogLog();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }
};

TEST_F(SimPins, ChangeRunsThreeStepDialogueAndKeepsTheNewPin) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = signatureKey(session);
    ASSERT_NE(key, CK_INVALID_HANDLE);
    SetPinAnswers({"123456", "654321", "654321"});
    ASSERT_EQ(setVendorAttribute(session, key, kChange), CKR_OK);
    EXPECT_TRUE(logContains("SETPROMPT Aktuelle PIN:"));
    EXPECT_TRUE(logContains("SETPROMPT Neue PIN wiederholen:"));
    EXPECT_TRUE(logContains("Signatur-PIN %C3%A4ndern") || logContains("Signatur-PIN \xC3\xA4ndern"));
    EXPECT_TRUE(logContains(kAcosA04));

    // The old PIN no longer works, the new one does, across a restart.
    reload();
    session = openSession(0);
    key = signatureKey(session);
    SetPinAnswers({"123456", "111111", "111111"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_INCORRECT);
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_SIGNATURE), 2);
    reload();
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_SIGNATURE), 2);
    session = openSession(0);
    key = signatureKey(session);
    SetPinAnswers({"654321", "111111", "111111"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_OK);
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_SIGNATURE), 3);
}

TEST_F(SimPins, WrongPinsLockAndOnlyThePukUnblocks) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = findObject(session, CKO_PRIVATE_KEY, "SK.CH.EKEY");
    SetPinAnswers({"0000", "1111", "1111", "0000", "1111", "1111", "0000", "1111", "1111"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_INCORRECT);
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_INCORRECT);
    EXPECT_TRUE(logContains("SETERROR Achtung: die Geheimhaltungs-PIN hat nur noch 2 Versuche!"));
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_INCORRECT);
    EXPECT_TRUE(logContains("SETERROR Achtung: die Geheimhaltungs-PIN hat nur noch 1 Versuch!"));
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_ENCRYPTION), 0);
    const unsigned long dialogs = m_sim.dialogCount();
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_LOCKED);
    EXPECT_EQ(m_sim.dialogCount(), dialogs) << "a locked PIN must not open a dialogue";

    SetPinAnswers({"99999999", "4444", "4444", "87654321", "4444", "4444"});
    EXPECT_EQ(setVendorAttribute(session, key, kUnblock), CKR_PIN_INCORRECT);
    int tries = 0;
    int pukTries = 0;
    ASSERT_EQ(m_sim.pinTries(kAcosA04, VSIM_PIN_ENCRYPTION, &tries, &pukTries), CKR_OK);
    EXPECT_EQ(pukTries, 9);
    EXPECT_EQ(setVendorAttribute(session, key, kUnblock), CKR_OK);
    ASSERT_EQ(m_sim.pinTries(kAcosA04, VSIM_PIN_ENCRYPTION, &tries, &pukTries), CKR_OK);
    EXPECT_EQ(tries, 3);
    EXPECT_EQ(pukTries, 10);
    SetPinAnswers({"4444", "5555", "5555"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_OK);
}

TEST_F(SimPins, CancelFormatAndMismatchLeaveTheCounterAlone) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = signatureKey(session);
    SetPinAnswers({"123456", "CANCEL"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_FUNCTION_CANCELED);
    SetPinAnswers({"12345", "654321", "654321"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_LEN_RANGE);
    SetPinAnswers({"123456", "65432a", "65432a"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_LEN_RANGE);
    SetPinAnswers({"123456", "654321", "654322"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_INVALID);
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_SIGNATURE), 3);
    // An empty script means the user closes every dialogue.
    SetPinAnswers({});
    EXPECT_EQ(setVendorAttribute(session, key, kUnblock), CKR_FUNCTION_CANCELED);
    // 0x80000002 alone is only a marker; with the command it changes nothing.
    EXPECT_EQ(setVendorAttribute(session, key, 0x80000002UL), CKR_OK);
    CK_BBOOL one = CK_TRUE;
    CK_ATTRIBUTE forced[] = {{kChange, &one, 1}, {0x80000002UL, &one, 1}};
    SetPinAnswers({"123456", "222222", "222222"});
    EXPECT_EQ(p11->C_SetAttributeValue(session, key, forced, 2), CKR_OK);
}

TEST_F(SimPins, ADialogueThatCannotRunIsAFailureNotACancel) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = signatureKey(session);
    setenv("VESSA_SIM_PINENTRY", (m_dir + "/missing-pinentry").c_str(), 1);
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_FUNCTION_FAILED);
    // A pinentry without a usable display answers GETPIN with an error of
    // its own; only cancel and timeout count as the user's choice.
    auto pinentryAnswering = [&](const std::string& error) {
        const std::string path = m_dir + "/erring-pinentry";
        WriteText(path, "#!/bin/sh\necho 'OK ready'\nwhile read line; do case \"$line\" in GETPIN) echo '" + error +
                            "';; *) echo OK;; esac; done\n");
        chmod(path.c_str(), 0700);
        setenv("VESSA_SIM_PINENTRY", path.c_str(), 1);
    };
    pinentryAnswering("ERR 83918950 Inappropriate ioctl for device <Pinentry>");
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_FUNCTION_FAILED);
    pinentryAnswering("ERR 83886142 Timeout <Pinentry>");
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_FUNCTION_CANCELED);
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_SIGNATURE), 3);
    setenv("VESSA_SIM_PINENTRY", VSIM_FAKE_PINENTRY, 1);
}

TEST_F(SimPins, LoginAsksOnTheProtectedPathOrChecksTheGivenPin) {
    CK_SESSION_HANDLE session = openSession(3);
    SetPinAnswers({"4321"});
    ASSERT_EQ(p11->C_Login(session, CKU_USER, nullptr, 0), CKR_OK);
    EXPECT_TRUE(logContains("SETPROMPT Infobox-PIN:"));
    EXPECT_EQ(p11->C_Login(session, CKU_USER, nullptr, 0), CKR_USER_ALREADY_LOGGED_IN);
    CK_SESSION_INFO info;
    ASSERT_EQ(p11->C_GetSessionInfo(session, &info), CKR_OK);
    EXPECT_EQ(info.state, CKS_RO_USER_FUNCTIONS);
    EXPECT_EQ(p11->C_Logout(session), CKR_OK);
    EXPECT_EQ(p11->C_Logout(session), CKR_USER_NOT_LOGGED_IN);

    CK_UTF8CHAR wrong[] = "9999";
    CK_UTF8CHAR right[] = "4321";
    EXPECT_EQ(p11->C_Login(session, CKU_USER, wrong, 4), CKR_PIN_INCORRECT);
    EXPECT_EQ(p11->C_Login(session, CKU_SO, right, 4), CKR_USER_TYPE_INVALID);
    EXPECT_EQ(p11->C_Login(session, CKU_USER, nullptr, 4), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(p11->C_Login(session, CKU_CONTEXT_SPECIFIC, right, 4), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Login(session, CKU_USER, right, 4), CKR_OK);
    EXPECT_EQ(pinTries(kAcosA03, VSIM_PIN_IDENTITY_LINK), 3);
    // The login ends with the last session on the token.
    ASSERT_EQ(p11->C_CloseSession(session), CKR_OK);
    session = openSession(3);
    ASSERT_EQ(p11->C_GetSessionInfo(session, &info), CKR_OK);
    EXPECT_EQ(info.state, CKS_RO_PUBLIC_SESSION);
}

TEST_F(SimPins, ResetRestoresFactoryPinsAndCounters) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = signatureKey(session);
    SetPinAnswers({"123456", "999999", "999999", "000000", "1", "1"});
    ASSERT_EQ(setVendorAttribute(session, key, kChange), CKR_OK);
    ASSERT_EQ(setVendorAttribute(session, key, kChange), CKR_PIN_LEN_RANGE);
    CK_UTF8CHAR wrong[] = "0000";
    ASSERT_EQ(p11->C_Login(session, CKU_USER, wrong, 4), CKR_PIN_INCORRECT);
    ASSERT_EQ(m_sim.resetState(kAcosA04), CKR_OK);
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_IDENTITY_LINK), 3);
    SetPinAnswers({"123456", "222222", "222222"});
    EXPECT_EQ(setVendorAttribute(session, key, kChange), CKR_OK);

    // The control tool resets a running module and the files on disk.
    CK_UTF8CHAR wrongAgain[] = "0001";
    ASSERT_EQ(p11->C_Login(session, CKU_USER, wrongAgain, 4), CKR_PIN_INCORRECT);
    int status = 0;
    RunCommand(std::string(VSIM_TOOL) + " reset " + kAcosA04, status);
    ASSERT_EQ(status, 0);
    CK_ULONG count = 0;
    ASSERT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
    EXPECT_EQ(pinTries(kAcosA04, VSIM_PIN_IDENTITY_LINK), 3);
    reload();
    session = openSession(0);
    SetPinAnswers({"123456", "333333", "333333"});
    EXPECT_EQ(setVendorAttribute(session, signatureKey(session), kChange), CKR_OK);
}

} // namespace
