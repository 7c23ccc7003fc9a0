// The main window's fading status line: a hold of 1.5 s followed by 50 steps
// of 100 ms, hidden at once by an empty status.
#include "tests/gui/WindowTestSupport.h"


#include <wx/bitmap.h>
#include <wx/button.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

#include <chrono>

namespace WindowTests {
namespace {

class StatusLineTest : public MainWindowTest {
protected:
    wxColour ExpectedColour(int step)
    {
        wxButton* reference = wxDynamicCast(frame->FindWindow(MainFrame::ID_PERS_SHOW), wxButton);
        const wxColour a = reference->GetForegroundColour(), b = reference->GetBackgroundColour();
        return wxColour(std::abs(b.Red() - a.Red()) * step / 50, std::abs(b.Green() - a.Green()) * step / 50,
                        std::abs(b.Blue() - a.Blue()) * step / 50);
    }
};

TEST_F(StatusLineTest, StatusHoldsThenFadesInFiftySteps)
{
    const auto start = std::chrono::steady_clock::now();
    frame->SetStatus("Fertig", false);
    EXPECT_EQ(frame->GetFade().GetStep(), 1);
    EXPECT_EQ(frame->GetFade().GetSteps(), 50);
    EXPECT_TRUE(frame->GetFadeTimer().IsRunning());
    EXPECT_EQ(frame->GetFadeTimer().GetInterval(), 1500);
    EXPECT_EQ(frame->GetStatusText()->GetForegroundColour(), ExpectedColour(1));
    ExpectStatus("Fertig", false);
    const wxImage icon = frame->GetStatusIcon()->GetBitmap().ConvertToImage();
    ASSERT_TRUE(icon.HasAlpha());
    EXPECT_NEAR(icon.GetAlpha(16, 16), 249, 1);

    Pump(1200);
    EXPECT_EQ(frame->GetFade().GetStep(), 1) << "the status must hold for 1.5 s";
    ASSERT_TRUE(PumpUntil([this] { return frame->GetFade().GetStep() >= 2; }, 3.0));
    EXPECT_EQ(frame->GetFadeTimer().GetInterval(), 100);
    EXPECT_EQ(frame->GetStatusText()->GetForegroundColour(), ExpectedColour(frame->GetFade().GetStep()));

    ASSERT_TRUE(PumpUntil([this] { return !StatusShown(); }, 10.0));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(frame->GetFade().GetStep(), 50);
    EXPECT_FALSE(frame->GetFadeTimer().IsRunning());
    // 1.5 s hold and 49 further steps of 100 ms; timers under load run late.
    EXPECT_GE(seconds, 6.3);
}

TEST_F(StatusLineTest, EmptyTextHidesAtOnce)
{
    frame->SetStatus("Meldung", true);
    ExpectStatus("Meldung", true);
    frame->SetStatus(wxEmptyString, false);
    EXPECT_FALSE(frame->GetStatusText()->IsShown());
    EXPECT_FALSE(frame->GetStatusIcon()->IsShown());
}

} // namespace
} // namespace WindowTests
