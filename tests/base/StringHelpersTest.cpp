// Case-blind comparisons, trimming, replacing and line-end helpers.
#include "base/Conversion.h"

#include "tests/support/TestCommon.h"

#include <stdexcept>

using namespace Korvex;

TEST(NoCase, CmpHonoursLengthAndFind)
{
    EXPECT_EQ(0, nocase_cmp("HeLLo", "hello", 0));
    EXPECT_EQ(0, nocase_cmp("HelpMe", "HELLO", 3));
    EXPECT_NE(0, nocase_cmp("HelpMe", "HELLO", 4));
    EXPECT_LT(nocase_cmp("abc", "ABD", -1), 0) << "negative n compares whole texts";
    EXPECT_GT(nocase_cmp("abcd", "ABC", 0), 0);

    EXPECT_EQ(6u, nocase_find("Hello World", "WORLD", 0));
    EXPECT_EQ(std::string::npos, nocase_find("Hello World", "WORLD", 7));
    EXPECT_EQ(std::string::npos, nocase_find("Hello", "xyz", 0));
}

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

TEST(Strings, CaseStripAndReplace)
{
    EXPECT_EQ("ABC1\xE4", Str2Upper("aBc1\xE4")) << "ASCII only";
    EXPECT_EQ("abc1\xC4", Str2Lower("AbC1\xC4"));

    EXPECT_EQ("<a><b/></a>", stripXMLRequest("HTTP junk\r\n<a><b/></a>\r\ntrailer"));
    EXPECT_EQ("no tags", stripXMLRequest("no tags"));
    EXPECT_EQ("<a b", stripXMLRequest("x<a b"));
    EXPECT_EQ("a>", stripXMLRequest("a>b"));

    EXPECT_EQ("xbxb", replaceAll("abab", "a", "x"));
    EXPECT_EQ("aaaa", replaceAll("aa", "a", "aa")) << "the replacement is not scanned again";
    EXPECT_EQ("b", replaceAll("aaab", "a", ""));
    EXPECT_EQ("abc", replaceAll("abc", "", "x"));
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
