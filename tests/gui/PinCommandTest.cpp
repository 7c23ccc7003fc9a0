// PIN change and unblock from the real window with a scripted PIN dialogue:
// every status text with its icon, and the refusal of the unpersonalised or
// pulled card.
#include "tests/gui/WindowTestSupport.h"

#include "sim/SimControl.h"

namespace WindowTests {
namespace {

class PinCommandTest : public MainWindowTest {
protected:
    // Runs the command `id` with the dialogue answers and checks the status.
    void Run(int id, const Lines& answers, const char* status, bool isError)
    {
        SetPinAnswers(answers);
        Click(id);
        ExpectStatus(status, isError);
    }
};

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
        bool isError;
    } cases[] = {
        {Korvex::PKCS11_OK, "PIN \xC3\x84nderung erfolgreich!", "PIN Entsperren erfolgreich!", false},
        {Korvex::PKCS11_CANCELED, "Abbruch durch Benutzer", "Abbruch durch Benutzer", true},
        {Korvex::PKCS11_ERROR, "Fehler beim PIN \xC3\x84ndern!", "Fehler beim PIN entsperren!", true},
        {Korvex::PKCS11_PIN_INCORRECT, "Fehler beim PIN \xC3\x84ndern! PIN falsch!",
         "Fehler beim PIN entsperren! PIN/PUK falsch!", true},
        {Korvex::PKCS11_PIN_LOCKED, "Fehler beim PIN \xC3\x84ndern! PIN Gesperrt",
         "Fehler beim PIN entsperren! PUK Gesperrt", true},
        {Korvex::PKCS11_NOT_SUPPORTED, "PIN \xC3\x84nderung nicht unterst\xC3\xBCtzt!",
         "PIN Entsperren nicht unterst\xC3\xBCtzt!", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.result));
        frame->SetStatusPinChange(c.result);
        ExpectStatus(c.change, c.isError);
        frame->SetStatusPinUnblock(c.result);
        ExpectStatus(c.unblock, c.isError);
    }
}

} // namespace
} // namespace WindowTests
