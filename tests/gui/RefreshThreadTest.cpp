// The names the refresh thread gives the card generations, and none outside
// them.
#include "gui/ListEntryData.h"

#include <gtest/gtest.h>

namespace {

TEST(TokenTypeDisplayName, NamesTheSevenGenerationsOnly)
{
    EXPECT_EQ(TokenTypeDisplayName(0), "vessa premium ACOS 03");
    EXPECT_EQ(TokenTypeDisplayName(3), "vessa premium e-Card G2");
    EXPECT_EQ(TokenTypeDisplayName(6), "vessa premium e-Card G4");
    EXPECT_EQ(TokenTypeDisplayName(7), "");
    EXPECT_EQ(TokenTypeDisplayName(-1), "");
}

} // namespace
