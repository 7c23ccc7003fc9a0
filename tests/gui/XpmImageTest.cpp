// The direct XPM reader against the toolkit's own, on the program's artwork
// and on data it must not trust.
#include "gui/Images.h"
#include "gui/XpmImage.h"

#include <wx/bitmap.h>

#include <gtest/gtest.h>

namespace {

void ExpectSamePicture(const char* const* xpm, const char* name)
{
    SCOPED_TRACE(name);
    const wxImage fast = XpmToImage(xpm);
    wxImage reference(xpm);
    ASSERT_TRUE(fast.IsOk());
    ASSERT_EQ(fast.GetSize(), reference.GetSize());
    if (!reference.HasAlpha())
        reference.InitAlpha(); // the toolkit reader gives a mask instead
    int differences = 0;
    for (int y = 0; y < fast.GetHeight(); ++y) {
        for (int x = 0; x < fast.GetWidth(); ++x) {
            const bool fastOpaque = !fast.HasAlpha() || fast.GetAlpha(x, y) != 0;
            const bool referenceOpaque = reference.GetAlpha(x, y) != 0;
            if (fastOpaque != referenceOpaque ||
                (fastOpaque && (fast.GetRed(x, y) != reference.GetRed(x, y) ||
                                fast.GetGreen(x, y) != reference.GetGreen(x, y) ||
                                fast.GetBlue(x, y) != reference.GetBlue(x, y))))
                ++differences;
        }
    }
    EXPECT_EQ(differences, 0);
}

TEST(XpmToImage, ReadsTheArtworkLikeTheToolkit)
{
    ExpectSamePicture(KorvexBanner, "banner");
    ExpectSamePicture(ButtonReload, "reload");
    ExpectSamePicture(ButtonOk, "ok");
    ExpectSamePicture(ButtonCancel, "cancel");
    ExpectSamePicture(chip_small_xpm, "chip");
    ExpectSamePicture(IconXpm, "icon");
}

TEST(XpmToImage, OneCharacterCodesTransparencyAndBrokenData)
{
    const char* const xpm[] = {"3 2 3 1", "a c #FF0000", "b c #00ff00", ". c None", "ab.", ".ba"};
    const wxImage image = XpmToImage(xpm);
    ASSERT_TRUE(image.HasAlpha());
    EXPECT_EQ(image.GetRed(0, 0), 255);
    EXPECT_EQ(image.GetGreen(1, 0), 255);
    EXPECT_EQ(image.GetAlpha(2, 0), 0);
    EXPECT_EQ(image.GetAlpha(1, 1), 255);

    // Rows shorter than the width, undefined codes, absurd headers and
    // colours it does not know give no image at all.
    const char* const shortRow[] = {"4 1 1 1", "a c #000000", "aa"};
    const char* const unknownCode[] = {"2 1 1 1", "a c #000000", "ab"};
    const char* const hugeHeader[] = {"99999 99999 1 1", "a c #000000", "a"};
    const char* const badColour[] = {"1 1 1 1", "a c #00000G", "a"};
    const char* const namedColour[] = {"1 1 1 1", "a c red", "a"};
    const char* const missingRows[] = {"1 2 1 1", "a c #000000", "a", nullptr};
    for (const char* const* xpm : {shortRow, unknownCode, hugeHeader, badColour, namedColour, missingRows})
        EXPECT_FALSE(XpmToImage(xpm).IsOk()) << xpm[0];
    EXPECT_FALSE(XpmToImage(nullptr).IsOk());
}

} // namespace
