// A command's card work on its worker thread: the window keeps answering
// while the module's PIN dialogue is open, a second click is refused, and
// closing the window waits for the card work instead of cutting it off.
#include "tests/gui/WindowTestSupport.h"

#include "sim/SimControl.h"

#include "gui/CardList.h"
#include <wx/timer.h>

#include <cstdlib>

namespace WindowTests {
namespace {

class CardWorkTest : public MainWindowTest {
protected:
    void SetUp() override
    {
        MainWindowTest::SetUp();
        // The user takes a moment in each PIN field.
        setenv("FAKE_PINENTRY_DELAY", "0.4", 1);
    }
    void TearDown() override
    {
        unsetenv("FAKE_PINENTRY_DELAY");
        MainWindowTest::TearDown();
    }
};

TEST_F(CardWorkTest, WindowAnswersDuringThePinDialogueAndASecondClickIsRefused)
{
    SelectCard(kJohann);
    const unsigned long dialogues = Sim::PinDialogCount();
    SetPinAnswers({"123456", "654321", "654321"});
    ClickWithoutWaiting(MainFrame::ID_SIG_CHANGE_PIN);
    ASSERT_TRUE(frame->IsCardWorkRunning());
    // Locked as a refresh locks it.
    EXPECT_FALSE(IsEnabled(MainFrame::ID_SIG_CHANGE_PIN));
    EXPECT_FALSE(frame->GetCardList()->IsEnabled());
    EXPECT_TRUE(frame->GetWaitDialog().IsShown());

    // The event loop keeps running: a 20 ms timer ticks all the while.
    int ticks = 0;
    wxTimer ticker;
    ticker.Bind(wxEVT_TIMER, [&ticks](wxTimerEvent&) { ++ticks; });
    ticker.Start(20);
    ClickWithoutWaiting(MainFrame::ID_SIG_CHANGE_PIN); // refused, not queued
    ClickWithoutWaiting(MainFrame::ID_RELOAD);
    EXPECT_FALSE(frame->IsRefreshRunning()) << "a refresh beside the card work: two module calls at once";
    EXPECT_TRUE(PumpUntil([this] { return !frame->IsCardWorkRunning(); }, 30.0));
    ticker.Stop();
    EXPECT_GT(ticks, 20) << "the window stood still while the PIN dialogue was open";

    ExpectStatus("PIN \xC3\x84nderung erfolgreich!", false);
    EXPECT_EQ(Sim::PinDialogCount(), dialogues + 1) << "the command ran once";
    EXPECT_TRUE(frame->GetCardList()->IsEnabled());
    EXPECT_FALSE(frame->GetWaitDialog().IsShown());
}

TEST_F(CardWorkTest, ClosingTheWindowLetsThePinChangeFinish)
{
    SelectCard(kJohann);
    SetPinAnswers({"1234", "5678", "5678"});
    ClickWithoutWaiting(MainFrame::ID_ENC_CHANGE_PIN);
    ASSERT_TRUE(frame->IsCardWorkRunning());
    frame->Destroy();
    frame = nullptr;
    Pump(100);
    // The change went through on the card: the new PIN is the one that works.
    MainFrame* next = new MainFrame(nullptr);
    next->Show();
    ASSERT_TRUE(PumpUntil([next] { return !next->IsRefreshRunning() && next->GetCardList()->GetItemCount() == 4; }));
    EXPECT_EQ(Sim::PinTries(kJohann.serial, VSIM_PIN_ENCRYPTION), 3);
    SetPinAnswers({"1234", "1111", "1111"});
    next->GetCardList()->ChooseRow(3); // Johann, read first
    wxCommandEvent click(wxEVT_BUTTON, MainFrame::ID_ENC_CHANGE_PIN);
    next->GetEventHandler()->ProcessEvent(click);
    ASSERT_TRUE(PumpUntil([next] { return !next->IsCardWorkRunning(); }, 30.0));
    EXPECT_EQ(Sim::PinTries(kJohann.serial, VSIM_PIN_ENCRYPTION), 2) << "the old PIN no longer works";
    next->Destroy();
    Pump(50);
}

} // namespace
} // namespace WindowTests
