// PIN change and unblock from the real window with a scripted PIN dialogue:
// the application each command reaches, every status text with its icon, and
// the refusal of the unpersonalised card.
#include "tests/gui/WindowTestSupport.h"

#include "sim/SimControl.h"

namespace WindowTests {
namespace {

wxString Utf8(const char* text)
{
    return wxString::FromUTF8(text);
}

class PinCommandTest : public MainWindowTest {
protected:
    void ExpectStatus(const char* text, bool isError)
    {
        EXPECT_EQ(StatusText(), Utf8(text));
        EXPECT_TRUE(StatusShown());
        if (isError)
            EXPECT_TRUE(StatusIconIsError()) << "expected the red icon";
        else
            EXPECT_TRUE(StatusIconIsSuccess()) << "expected the green icon";
    }

    // The prompts the module showed, in order.
    std::vector<std::string> Prompts()
    {
        std::vector<std::string> prompts;
        for (const std::string& line : PinDialogLog()) {
            if (line.compare(0, 10, "SETPROMPT ") == 0)
                prompts.push_back(line.substr(10));
        }
        return prompts;
    }
};

TEST_F(PinCommandTest, SignaturePinChangeSucceeds)
{
    SelectCard(kJohann);
    SetPinAnswers({"123456", "654321", "654321"});
    Click(MainFrame::ID_SIG_CHANGE_PIN);
    ExpectStatus("PIN \xC3\x84nderung erfolgreich!", false);
    EXPECT_EQ(Prompts(), (std::vector<std::string>{"Aktuelle PIN:", "Neue PIN:", "Neue PIN wiederholen:"}));

    // The new PIN is the one the card now wants.
    SetPinAnswers({"654321", "123456", "123456"});
    Click(MainFrame::ID_SIG_CHANGE_PIN);
    ExpectStatus("PIN \xC3\x84nderung erfolgreich!", false);
}

TEST_F(PinCommandTest, CancelledDialogueShowsTheRedIcon)
{
    SelectCard(kMaria);
    SetPinAnswers({"CANCEL"});
    Click(MainFrame::ID_ENC_CHANGE_PIN);
    ExpectStatus("Abbruch durch Benutzer", true);
    SetPinAnswers({"1234", "CANCEL"});
    Click(MainFrame::ID_ENC_PUK);
    ExpectStatus("Abbruch durch Benutzer", true);
}

TEST_F(PinCommandTest, WrongPinCountsDownAndThenLocks)
{
    SelectCard(kJohann);
    for (int attempt = 0; attempt < 3; ++attempt) {
        SetPinAnswers({"1111", "2222", "2222"});
        Click(MainFrame::ID_ENC_CHANGE_PIN);
        ExpectStatus("Fehler beim PIN \xC3\x84ndern! PIN falsch!", true);
        EXPECT_EQ(Sim::PinTries(kJohann.serial, VSIM_PIN_ENCRYPTION), 2 - attempt);
    }
    const unsigned long dialogues = Sim::PinDialogCount();
    SetPinAnswers({"1234", "2222", "2222"});
    Click(MainFrame::ID_ENC_CHANGE_PIN);
    ExpectStatus("Fehler beim PIN \xC3\x84ndern! PIN Gesperrt", true);
    EXPECT_EQ(Sim::PinDialogCount(), dialogues) << "a locked PIN needs no dialogue";

    // The PUK brings it back.
    SetPinAnswers({"87654321", "4444", "4444"});
    Click(MainFrame::ID_ENC_PUK);
    ExpectStatus("PIN Entsperren erfolgreich!", false);
    EXPECT_EQ(Sim::PinTries(kJohann.serial, VSIM_PIN_ENCRYPTION), 3);
    EXPECT_EQ(Prompts(), (std::vector<std::string>{"PUK:", "Neue PIN:", "Neue PIN wiederholen:"}));
}

TEST_F(PinCommandTest, MalformedPinGivesTheGeneralChangeError)
{
    SelectCard(kMaria);
    SetPinAnswers({"12", "654321", "654321"});
    Click(MainFrame::ID_SIG_CHANGE_PIN);
    ExpectStatus("Fehler beim PIN \xC3\x84ndern!", true);
}

TEST_F(PinCommandTest, UnblockResultsHaveTheirOwnTexts)
{
    SelectCard(kJohann);
    SetPinAnswers({"00000000", "111111", "111111"});
    Click(MainFrame::ID_SIG_PUK);
    ExpectStatus("Fehler beim PIN entsperren! PIN/PUK falsch!", true);

    Sim::SetFault("C_SetAttributeValue", kJohann.serial, CKR_PIN_LOCKED, 1);
    Click(MainFrame::ID_SIG_PUK);
    ExpectStatus("Fehler beim PIN entsperren! PUK Gesperrt", true);

    SetPinAnswers({"12345678", "111111", "222222"}); // repeat differs
    Click(MainFrame::ID_SIG_PUK);
    ExpectStatus("Fehler beim PIN entsperren!", true);
}

TEST_F(PinCommandTest, IdentityLinkPinUsesItsOwnAreaAndPuk)
{
    SelectCard(kJohann);
    ASSERT_TRUE(IsEnabled(MainFrame::ID_PERS_CHANGE));
    SetPinAnswers({"4321", "9876", "9876"});
    Click(MainFrame::ID_PERS_CHANGE);
    ExpectStatus("PIN \xC3\x84nderung erfolgreich!", false);

    SetPinAnswers({"11223344", "4321", "4321"});
    Click(MainFrame::ID_PERS_PUK);
    ExpectStatus("PIN Entsperren erfolgreich!", false);
    EXPECT_EQ(Sim::PinTries(kJohann.serial, VSIM_PIN_IDENTITY_LINK), 3);
}

TEST_F(PinCommandTest, ECardUnblockThroughThePopupShowsTheCardsAnswer)
{
    SelectCard(kErika);
    ASSERT_FALSE(IsEnabled(MainFrame::ID_SIG_PUK));
    SetPinAnswers({"12345678", "111111", "111111"});
    ChoosePopupItem(MainFrame::ID_POPUP_SIG_PUK);
    // The module refuses the unblock without a dialogue.
    ExpectStatus("Fehler beim PIN entsperren!", true);
}

TEST_F(PinCommandTest, UnpersonalisedCardIsRefused)
{
    SelectCard(kBlank);
    const unsigned long dialogues = Sim::PinDialogCount();
    SetPinAnswers({"123456", "654321", "654321"});
    for (int id : {MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_ENC_PUK, MainFrame::ID_SIG_TEST}) {
        frame->SetStatus(wxEmptyString, false);
        Click(id);
        ExpectStatus("Dieser Befehl ist mit einer leeren Karte nicht erlaubt!", true);
    }
    EXPECT_EQ(Sim::PinDialogCount(), dialogues);
}

TEST_F(PinCommandTest, CardPulledAfterTheListWasReadDoesNothing)
{
    SelectCard(kMaria);
    ASSERT_EQ(Sim::RemoveCard(1), static_cast<CK_RV>(CKR_OK));
    const unsigned long dialogues = Sim::PinDialogCount();
    Click(MainFrame::ID_SIG_CHANGE_PIN);
    EXPECT_FALSE(StatusShown());
    EXPECT_EQ(Sim::PinDialogCount(), dialogues);
}

TEST_F(PinCommandTest, EveryResultCodeHasItsText)
{
    struct Case {
        Korvex::PKCS11Return result;
        const char* change;
        const char* unblock;
        bool isError;
    };
    const Case cases[] = {
        {Korvex::PKCS11_OK, "PIN \xC3\x84nderung erfolgreich!", "PIN Entsperren erfolgreich!", false},
        {Korvex::PKCS11_CANCELED, "Abbruch durch Benutzer", "Abbruch durch Benutzer", true},
        {Korvex::PKCS11_PIN_INCORRECT, "Fehler beim PIN \xC3\x84ndern! PIN falsch!",
         "Fehler beim PIN entsperren! PIN/PUK falsch!", true},
        {Korvex::PKCS11_PIN_LOCKED, "Fehler beim PIN \xC3\x84ndern! PIN Gesperrt",
         "Fehler beim PIN entsperren! PUK Gesperrt", true},
        {Korvex::PKCS11_NOT_SUPPORTED, "PIN \xC3\x84nderung nicht unterst\xC3\xBCtzt!",
         "PIN Entsperren nicht unterst\xC3\xBCtzt!", true},
        {Korvex::PKCS11_ERROR, "Fehler beim PIN \xC3\x84ndern!", "Fehler beim PIN entsperren!", true},
        {static_cast<Korvex::PKCS11Return>(17), "Fehler beim PIN \xC3\x84ndern!",
         "Fehler beim PIN entsperren!", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.result));
        frame->SetStatusPinChange(c.result);
        ExpectStatus(c.change, c.isError);
        frame->SetStatusPinUnblock(c.result);
        ExpectStatus(c.unblock, c.isError);
    }
}

} // namespace
} // namespace WindowTests
