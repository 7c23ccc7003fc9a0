// Case-blind comparisons, trimming, replacing and line-end helpers.
#include "base/Conversion.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace Korvex;

TEST(NoCase, StartsAndEndsWithKeepTheirAsymmetry)
{
    EXPECT_TRUE(nocase_StartsWith("abc", "A"));
    EXPECT_FALSE(nocase_StartsWith("ABC", "a")) << "pattern sorting after the text is refused at once";
    EXPECT_TRUE(nocase_StartsWith("Hello", "HE"));
    EXPECT_TRUE(nocase_StartsWith("abc", ""));
    EXPECT_FALSE(nocase_StartsWith("b", "abc")) << "longer pattern sorting first: compared, no match";
    EXPECT_FALSE(nocase_StartsWith("abc", "abd"));

    EXPECT_TRUE(nocase_EndsWith("file.LOG", ".log"));
    EXPECT_TRUE(nocase_EndsWith("file.log", ".LOG"));
    EXPECT_FALSE(nocase_EndsWith("file.txt", ".log"));
    EXPECT_FALSE(nocase_EndsWith("a", "zzzz")) << "sorts after: false before the length check";
    EXPECT_THROW(nocase_EndsWith("b", "abc"), std::out_of_range);
}

TEST(Strings, TrimmingAndLineEndings)
{
    EXPECT_EQ("a b", TrimSpaces(" \t\r\na b \v\f"));
    EXPECT_EQ("x", TrimSpaces("x"));
    EXPECT_THROW(TrimSpaces(""), std::out_of_range);
    EXPECT_THROW(TrimSpaces(" \t\n "), std::out_of_range);

    std::string s = "  keep front \t\r\n", blank = "   ";
    RemoveTrailingSpaces(s);
    RemoveTrailingSpaces(blank);
    EXPECT_EQ("  keep front", s);
    EXPECT_EQ("", blank);

    std::string text = "a\r\nb\nc", lone = "a\rb";
    Do_CR_LF_LineEnding(text);
    EXPECT_EQ("a\r\nb\r\nc", text);
    Do_LF_LineEnding(text);
    EXPECT_EQ("a\nb\nc", text);
    Do_CR_LF_LineEnding(lone);
    EXPECT_EQ("a\rb", lone) << "a lone CR is not a line end";
}
