// The direct XPM reader on small pictures and on data it must not trust.
#include "gui/XpmImage.h"

#include <gtest/gtest.h>

namespace {

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
