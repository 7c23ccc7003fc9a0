// The window on the module's built-in demo cards: the expired certificate's
// mark and the pictures at the display scale.
#include "tests/gui/WindowTestSupport.h"

#include <wx/statbmp.h>

namespace WindowTests {
namespace {

class DemoWindowTest : public MainWindowTest {
protected:
    bool UsesTestCardSet() const override { return false; }
};

TEST_F(DemoWindowTest, AnExpiredCertificateIsMarkedInItsRow)
{
    EXPECT_TRUE(wxString(RowText(3, 3)).EndsWith(Utf8("(abgelaufen)"))) << RowText(3, 3);
}

// Also run with GDK_SCALE=2 (the CTest entry ending in "AtScale2"): the
// pictures then come drawn at twice the size, never enlarged.
TEST_F(DemoWindowTest, PicturesComeAtTheDisplayScale)
{
    const double scale = frame->GetContentScaleFactor();
    frame->SetStatus("Test", true);
    const struct {
        wxBitmap shown;
        wxSize logical;
    } pictures[] = {
        {frame->GetBanner()->GetBitmap(), wxSize(769, 170)},
        {frame->GetStatusIcon()->GetBitmap(), wxSize(32, 32)},
    };
    for (const auto& picture : pictures) {
        EXPECT_EQ(picture.shown.GetScaleFactor(), scale);
        EXPECT_EQ(picture.shown.GetSize(), picture.logical * scale);
    }
}

} // namespace
} // namespace WindowTests
