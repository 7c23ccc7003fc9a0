// The fading status line: the FadeOut arithmetic on its own, and the main
// window's hold of 1.5 s followed by 50 steps of 100 ms.
#include "tests/gui/WindowTestSupport.h"

#include "gui/FadeOut.h"
#include "gui/Images.h"

#include <wx/bitmap.h>
#include <wx/button.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

#include <chrono>

namespace WindowTests {
namespace {

wxImage SolidImage(int width, int height, bool withAlpha)
{
    wxImage image(width, height);
    image.SetRGB(wxRect(0, 0, width, height), 10, 20, 30);
    if (withAlpha) {
        image.InitAlpha();
        image.SetAlpha(0, 0, 0); // one fully transparent pixel
        image.SetAlpha(1, 0, 1); // one almost transparent pixel
    }
    return image;
}

TEST(FadeOut, StepsColourAndImageScaleWithTheStep)
{
    FadeOut fade;
    EXPECT_EQ(fade.GetStep(), 0);
    EXPECT_EQ(fade.GetSteps(), 100);
    EXPECT_FALSE(fade.Finished());

    // The colour is the scaled difference of the two, not a blend; every
    // pixel that is not fully transparent fades, truncated.
    const wxImage source = SolidImage(3, 1, true);
    fade.Init(wxColour(200, 100, 0), wxColour(50, 180, 255), source, 50);
    EXPECT_EQ(fade.GetColour(), wxColour(0, 0, 0));
    fade.NextStep();
    EXPECT_EQ(fade.GetColour(), wxColour(3, 1, 5));
    EXPECT_EQ(fade.GetImage().GetAlpha(0, 0), 0);
    EXPECT_EQ(fade.GetImage().GetAlpha(1, 0), 249);
    EXPECT_EQ(fade.GetImage().GetAlpha(2, 0), 249);
    EXPECT_EQ(fade.GetImage().GetRed(2, 0), 10);
    EXPECT_EQ(source.GetAlpha(2, 0), 255);
    for (int i = 1; i < 25; ++i)
        fade.NextStep();
    EXPECT_EQ(fade.GetColour(), wxColour(75, 40, 127));
    EXPECT_EQ(fade.GetImage().GetAlpha(2, 0), 127);
    for (int i = 25; i < 52; ++i)
        fade.NextStep();
    EXPECT_EQ(fade.GetStep(), 50) << "steps stop at the last one";
    EXPECT_TRUE(fade.Finished());
    EXPECT_FLOAT_EQ(fade.GetModifier(), 1.0f);
    EXPECT_EQ(fade.GetColour(), wxColour(150, 80, 255));
    EXPECT_EQ(fade.GetImage().GetAlpha(2, 0), 0);

    // Init starts over; an image without alpha fades like an opaque one;
    // equal colours give black.
    fade.Init(wxColour(90, 90, 90), wxColour(90, 90, 90), SolidImage(2, 2, false), 4);
    EXPECT_EQ(fade.GetStep(), 0);
    fade.NextStep();
    EXPECT_NEAR(fade.GetModifier(), 0.25f, 1e-6);
    EXPECT_EQ(fade.GetColour(), wxColour(0, 0, 0));
    ASSERT_TRUE(fade.GetImage().HasAlpha());
    EXPECT_EQ(fade.GetImage().GetAlpha(1, 1), 191); // 3/4 * 255
}

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

TEST_F(StatusLineTest, NewStatusRestartsTheFadeAndEmptyTextHidesAtOnce)
{
    frame->SetStatus("Erste Meldung", true);
    Pump(1700);
    ASSERT_GE(frame->GetFade().GetStep(), 2);
    frame->SetStatus("Zweite Meldung", false);
    EXPECT_EQ(frame->GetFade().GetStep(), 1);
    EXPECT_EQ(frame->GetFadeTimer().GetInterval(), 1500);
    ExpectStatus("Zweite Meldung", false);

    frame->SetStatus("Meldung", true);
    ExpectStatus("Meldung", true);
    frame->SetStatus(wxEmptyString, false);
    EXPECT_FALSE(frame->GetStatusText()->IsShown());
    EXPECT_FALSE(frame->GetStatusIcon()->IsShown());
    EXPECT_TRUE(frame->GetFadeTimer().IsRunning()); // the timer runs out on its own
    ASSERT_TRUE(PumpUntil([this] { return !frame->GetFadeTimer().IsRunning(); }, 10.0));
    EXPECT_TRUE(frame->GetFade().Finished());
}

} // namespace
} // namespace WindowTests
