// PINs like a card: cancel, format rules and broken dialogues, login on the
// protected path, a damaged state file, and the factory reset.
#include "SimHarness.h"

#include "tests/support/TestCommon.h"

using namespace SimTesting;

namespace {

constexpr CK_ATTRIBUTE_TYPE kChange = 0x200;
constexpr CK_ATTRIBUTE_TYPE kUnblock = 0x201;

class SimPins : public SimTest {
protected:
    // Runs the change (or unblock) dialogue of a key of slot 0 with these answers.
    CK_RV command(const Lines& answers, CK_ATTRIBUTE_TYPE which = kChange, const char* key = "SK.CH.SIG") {
        SetPinAnswers(answers);
        CK_SESSION_HANDLE session = openSession(0);
        return setVendorAttribute(session, findObject(session, CKO_PRIVATE_KEY, key), which);
    }
};

TEST_F(SimPins, CancelFormatMismatchAndBrokenDialoguesLeaveTheCounterAlone) {
    EXPECT_EQ(command({"123456", "CANCEL"}), CKR_FUNCTION_CANCELED);
    EXPECT_EQ(command({"12345", "654321", "654321"}), CKR_PIN_LEN_RANGE);
    EXPECT_EQ(command({"123456", "65432a", "65432a"}), CKR_PIN_LEN_RANGE);
    EXPECT_EQ(command({"123456", "654321", "654322"}), CKR_PIN_INVALID);
    EXPECT_EQ(command({}, kUnblock), CKR_FUNCTION_CANCELED) << "the user closes every dialogue";
    // The software-PIN marker alone changes nothing.
    CK_SESSION_HANDLE session = openSession(0);
    EXPECT_EQ(setVendorAttribute(session, findObject(session, CKO_PRIVATE_KEY, "SK.CH.SIG"), 0x80000002UL), CKR_OK);
    EXPECT_EQ(setVendorAttribute(session, findObject(session, CKO_CERTIFICATE, "C.CH.SIG"), kChange),
              CKR_ATTRIBUTE_TYPE_INVALID);
    // A pinentry that answers GETPIN with an error of its own is a failure;
    // only cancel and timeout are the user's choice.
    const std::string erring = m_dir + "/erring-pinentry";
    for (const auto& [error, rv] : {std::pair{"ERR 83918950 Inappropriate ioctl for device <Pinentry>", CKR_FUNCTION_FAILED},
                                    std::pair{"ERR 83886142 Timeout <Pinentry>", CKR_FUNCTION_CANCELED}}) {
        WriteText(erring, std::string("#!/bin/sh\necho 'OK ready'\nwhile read line; do case \"$line\" in GETPIN) echo '") +
                              error + "';; *) echo OK;; esac; done\n", true);
        setenv("VESSA_SIM_PINENTRY", erring.c_str(), 1);
        EXPECT_EQ(command({}), rv) << error;
    }
    setenv("VESSA_SIM_PINENTRY", VSIM_FAKE_PINENTRY, 1);
    EXPECT_EQ(Sim::PinTries(kAcosA04, VSIM_PIN_SIGNATURE), 3);
}

TEST_F(SimPins, LoginAsksOnTheProtectedPathOrChecksTheGivenPin) {
    CK_SESSION_HANDLE session = openSession(3);
    SetPinAnswers({"4321"});
    ASSERT_EQ(p11->C_Login(session, CKU_USER, nullptr, 0), CKR_OK);
    const Lines dialogue = PinDialogLog();
    EXPECT_NE(std::find(dialogue.begin(), dialogue.end(), "SETPROMPT Infobox-PIN:"), dialogue.end());
    EXPECT_EQ(p11->C_Login(session, CKU_USER, nullptr, 0), CKR_USER_ALREADY_LOGGED_IN);
    EXPECT_EQ(p11->C_Logout(session), CKR_OK);
    CK_UTF8CHAR wrong[] = "9999";
    CK_UTF8CHAR right[] = "4321";
    EXPECT_EQ(p11->C_Login(session, CKU_USER, wrong, 4), CKR_PIN_INCORRECT);
    EXPECT_EQ(p11->C_Login(session, CKU_SO, right, 4), CKR_USER_TYPE_INVALID);
    EXPECT_EQ(p11->C_Login(session, CKU_USER, right, 4), CKR_OK);
    EXPECT_EQ(Sim::PinTries(kAcosA03, VSIM_PIN_IDENTITY_LINK), 3) << "a right PIN restores the tries";
    // C_SetPIN changes the identity-link PIN, given or asked, in read-write sessions only.
    CK_UTF8CHAR newPin[] = "1357";
    EXPECT_EQ(p11->C_SetPIN(session, right, 4, newPin, 4), CKR_SESSION_READ_ONLY);
    CK_SESSION_HANDLE readWrite = openSession(3, true);
    EXPECT_EQ(p11->C_SetPIN(readWrite, right, 4, newPin, 4), CKR_OK);
    SetPinAnswers({"1357", "2468", "2468"});
    EXPECT_EQ(p11->C_SetPIN(readWrite, nullptr, 0, nullptr, 0), CKR_OK);
    CK_UTF8CHAR latest[] = "2468";
    ASSERT_EQ(p11->C_Logout(readWrite), CKR_OK);
    EXPECT_EQ(p11->C_Login(readWrite, CKU_USER, latest, 4), CKR_OK);
    ASSERT_EQ(p11->C_CloseSession(readWrite), CKR_OK);
    // The login ends with the last session on the token.
    ASSERT_EQ(p11->C_CloseSession(session), CKR_OK);
    CK_SESSION_INFO info;
    ASSERT_EQ(p11->C_GetSessionInfo(openSession(3), &info), CKR_OK);
    EXPECT_EQ(info.state, CKS_RO_PUBLIC_SESSION);
}

TEST_F(SimPins, ADamagedStateFileMeansFactoryStateAndIsKeptAsideAtTheNextChange) {
    const std::string state = m_dir + "/state/cards/" + kAcosA04 + "/state.xml";
    const std::string damaged = "<card><pin index=\"0\" tries=\"1\" \xff";
    std::filesystem::create_directories(std::filesystem::path(state).parent_path());
    WriteText(state, damaged);
    WriteText(state + ".broken", "an earlier copy");
    reload();
    EXPECT_EQ(Sim::PinTries(kAcosA04, VSIM_PIN_SIGNATURE), 3);
    EXPECT_EQ(ReadText(state), damaged) << "reading never rewrites";
    ASSERT_EQ(command({"123456", "654321", "654321"}), CKR_OK);
    EXPECT_EQ(ReadText(state + ".broken"), "an earlier copy");
    EXPECT_EQ(ReadText(state + ".broken.1"), damaged);
    reload();
    EXPECT_EQ(command({"654321", "123456", "123456"}), CKR_OK) << "the new PIN was saved";
}

TEST_F(SimPins, ResetRestoresFactoryPinsAndCountersInTheModuleAndOnDisk) {
    ASSERT_EQ(command({"123456", "999999", "999999"}), CKR_OK);
    CK_UTF8CHAR wrong[] = "0000";
    ASSERT_EQ(p11->C_Login(openSession(0), CKU_USER, wrong, 4), CKR_PIN_INCORRECT);
    ASSERT_EQ(Sim::ResetState(kAcosA04), CKR_OK);
    EXPECT_EQ(Sim::PinTries(kAcosA04, VSIM_PIN_IDENTITY_LINK), 3);
    EXPECT_EQ(command({"123456", "222222", "222222"}), CKR_OK);

    // The control tool resets a running module and the files on disk.
    int status = 0;
    CK_UTF8CHAR wrongAgain[] = "0001";
    ASSERT_EQ(p11->C_Login(openSession(0), CKU_USER, wrongAgain, 4), CKR_PIN_INCORRECT);
    RunCommand(std::string(VSIM_TOOL) + " reset " + kAcosA04, status);
    ASSERT_EQ(status, 0);
    CK_ULONG count = 0;
    ASSERT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);  // the running module picks it up
    EXPECT_EQ(Sim::PinTries(kAcosA04, VSIM_PIN_IDENTITY_LINK), 3);
    reload();
    EXPECT_EQ(command({"123456", "333333", "333333"}), CKR_OK);

    // A reset card forgets a login, as a card taken out and put back would.
    CK_SESSION_HANDLE session = openSession(3);
    CK_UTF8CHAR right[] = "4321";
    ASSERT_EQ(p11->C_Login(session, CKU_USER, right, 4), CKR_OK);
    ASSERT_EQ(Sim::ResetState(kAcosA03), CKR_OK);
    CK_SESSION_INFO info;
    ASSERT_EQ(p11->C_GetSessionInfo(session, &info), CKR_OK);
    EXPECT_EQ(info.state, CKS_RO_PUBLIC_SESSION);
}

TEST_F(SimPins, ACardPulledOutByAnotherProgramDuringTheDialogueKeepsItsPin) {
    setenv("FAKE_PINENTRY_DELAY", "0.7", 1);
    CK_RV changed = CKR_OK;
    std::thread dialogue([&] { changed = command({"123456", "654321", "654321"}); });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    int removed = 0, cleared = 0;
    RunCommand(std::string(VSIM_TOOL) + " remove 0", removed);
    dialogue.join();
    unsetenv("FAKE_PINENTRY_DELAY");
    RunCommand(std::string(VSIM_TOOL) + " clear", cleared);
    ASSERT_EQ(removed + cleared, 0);
    EXPECT_EQ(changed, CKR_DEVICE_REMOVED);
    reload();
    EXPECT_EQ(command({"123456", "111111", "111111"}), CKR_OK) << "the old PIN is still in force";
}

} // namespace
