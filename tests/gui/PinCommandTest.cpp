// PIN change and unblock from the real window with a scripted PIN dialogue:
// the application each command reaches, every status text with its icon, and
// the refusal of the unpersonalised card.
#include "tests/gui/WindowTestSupport.h"

#include "sim/SimControl.h"

namespace WindowTests {
namespace {

const char kChanged[] = "PIN \xC3\x84nderung erfolgreich!";
const char kUnblocked[] = "PIN Entsperren erfolgreich!";
const char kCancelled[] = "Abbruch durch Benutzer";

class PinCommandTest : public MainWindowTest {
protected:
    // The prompts the module showed, in order.
    Lines Prompts()
    {
        Lines prompts;
        for (const std::string& line : PinDialogLog())
            if (line.compare(0, 10, "SETPROMPT ") == 0)
                prompts.push_back(line.substr(10));
        return prompts;
    }
    // Runs the command `id` with the dialogue answers and checks the status.
    void Run(int id, const Lines& answers, const char* status, bool isError)
    {
        SetPinAnswers(answers);
        Click(id);
        ExpectStatus(status, isError);
    }
};

TEST_F(PinCommandTest, ChangeUnblockAndCancelOnEveryApplication)
{
    SelectCard(kJohann);
    Run(MainFrame::ID_SIG_CHANGE_PIN, {"123456", "654321", "654321"}, kChanged, false);
    EXPECT_EQ(Prompts(), (Lines{"Aktuelle PIN:", "Neue PIN:", "Neue PIN wiederholen:"}));
    // The new PIN is the one the card now wants.
    Run(MainFrame::ID_SIG_CHANGE_PIN, {"654321", "123456", "123456"}, kChanged, false);
    Run(MainFrame::ID_PERS_CHANGE, {"4321", "9876", "9876"}, kChanged, false);
    Run(MainFrame::ID_PERS_PUK, {"11223344", "4321", "4321"}, kUnblocked, false);
    EXPECT_EQ(Sim::PinTries(kJohann.serial, VSIM_PIN_IDENTITY_LINK), 3);

    SelectCard(kMaria);
    Run(MainFrame::ID_ENC_CHANGE_PIN, {"CANCEL"}, kCancelled, true);
    Run(MainFrame::ID_ENC_PUK, {"1234", "CANCEL"}, kCancelled, true);
    Run(MainFrame::ID_SIG_CHANGE_PIN, {"12", "654321", "654321"}, "Fehler beim PIN \xC3\x84ndern!", true);

    // An e-card cannot unblock: the module refuses without a dialogue.
    SelectCard(kErika);
    ASSERT_FALSE(IsEnabled(MainFrame::ID_SIG_PUK));
    SetPinAnswers({"12345678", "111111", "111111"});
    ChoosePopupItem(MainFrame::ID_POPUP_SIG_PUK);
    ExpectStatus("Fehler beim PIN entsperren!", true);
}

TEST_F(PinCommandTest, BlankOrPulledCardsRunNoDialogue)
{
    const unsigned long dialogues = Sim::PinDialogCount();
    SelectCard(kBlank);
    for (int id : {MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_ENC_PUK, MainFrame::ID_SIG_TEST}) {
        frame->SetStatus(wxEmptyString, false);
        Run(id, {"123456", "654321", "654321"}, "Dieser Befehl ist mit einer leeren Karte nicht erlaubt!", true);
    }
    // The command tells that the card has gone, opens no dialog, and the
    // list follows.
    ModalRecorder recorder;
    for (int id : {MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_SIG_TEST}) {
        SelectCard(kMaria);
        frame->SetStatus(wxEmptyString, false);
        ASSERT_EQ(Sim::RemoveCard(1), static_cast<CK_RV>(CKR_OK));
        Click(id);
        ExpectStatus("Die Karte steckt nicht mehr im Leser.", true);
        EXPECT_TRUE(PumpUntil([this] { return !frame->IsRefreshRunning() && RowNumbers().size() == 3; }));
        ASSERT_EQ(Sim::InsertCard(1, kMaria.id), static_cast<CK_RV>(CKR_OK));
        ASSERT_TRUE(PumpUntil([this] { return !frame->IsRefreshRunning() && RowNumbers().size() == 4; }));
    }
    EXPECT_EQ(Sim::PinDialogCount(), dialogues);
    EXPECT_TRUE(recorder.seen.empty());
}

TEST_F(PinCommandTest, AFailingModuleOrPinDialogueIsNotAPulledCard)
{
    SelectCard(kJohann);
    Sim::SetFault("*", kJohann.serial, CKR_GENERAL_ERROR, VSIM_ALWAYS);
    Run(MainFrame::ID_SIG_CHANGE_PIN, {"123456", "654321", "654321"}, "Die Karte konnte nicht gelesen werden.", true);
    Sim::ClearFaults();
    WaitForRefresh();
    // No pinentry to show the dialogue: the defined text, then the reason.
    EnvGuard pinentry("VESSA_SIM_PINENTRY", "/nonexistent/pinentry");
    Run(MainFrame::ID_ENC_CHANGE_PIN, {}, "Fehler beim PIN \xC3\x84ndern!\nDer PIN-Dialog konnte nicht angezeigt werden.",
        true);
}

TEST_F(PinCommandTest, EveryResultCodeHasItsText)
{
    const struct {
        Korvex::PKCS11Return result;
        const char* change;
        const char* unblock;
    } cases[] = {
        // Success, cancel and any other failure: ChangeUnblockAndCancelOnEveryApplication.
        {Korvex::PKCS11_PIN_INCORRECT, "Fehler beim PIN \xC3\x84ndern! PIN falsch!",
         "Fehler beim PIN entsperren! PIN/PUK falsch!"},
        {Korvex::PKCS11_PIN_LOCKED, "Fehler beim PIN \xC3\x84ndern! PIN Gesperrt",
         "Fehler beim PIN entsperren! PUK Gesperrt"},
        {Korvex::PKCS11_NOT_SUPPORTED, "PIN \xC3\x84nderung nicht unterst\xC3\xBCtzt!",
         "PIN Entsperren nicht unterst\xC3\xBCtzt!"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.result));
        frame->SetStatusPinChange(c.result);
        ExpectStatus(c.change, true);
        frame->SetStatusPinUnblock(c.result);
        ExpectStatus(c.unblock, true);
    }
}

} // namespace
} // namespace WindowTests
