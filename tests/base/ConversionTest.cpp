// Hexadecimal, binary-digit and UTF-8 conversions, byte tools, random texts
// and the byte search.
#include "base/Conversion.h"

#include "tests/support/TestCommon.h"

#include <set>
#include <stdexcept>

using namespace Korvex;
using Bytes = std::vector<unsigned char>;

TEST(Hex, BinData2HexStrBothForms)
{
    std::string out = "old";
    EXPECT_EQ(6u, BinData2HexStr({0x0A, 0xFF, 0x10}, out));
    EXPECT_EQ("0AFF10", out);
    EXPECT_EQ(0u, BinData2HexStr({}, out));
    EXPECT_EQ("", out);

    unsigned char data[] = {0x0A, 0x1B};
    unsigned char buf[8];
    std::memset(buf, '#', sizeof buf);
    unsigned long len = 0;
    EXPECT_EQ(4u, BinData2HexStr(data, 2, buf, len)) << "length 0 is a size query";
    len = 3;
    EXPECT_EQ(static_cast<unsigned long>(-1), BinData2HexStr(data, 2, buf, len));
    EXPECT_EQ(3u, len);
    EXPECT_EQ('#', buf[0]) << "nothing copied on failure";
    len = 4;
    EXPECT_EQ(4u, BinData2HexStr(data, 2, buf, len));
    EXPECT_EQ(4u, len);
    EXPECT_EQ(0, std::memcmp(buf, "0A1B#", 5)) << "no terminating NUL";
}

TEST(Hex, HexStr2BinDataVectorForm)
{
    Bytes out;
    EXPECT_EQ(2u, HexStr2BinData("0a1B", out));
    EXPECT_EQ(3u, HexStr2BinData("fF", out)) << "out is not cleared";
    EXPECT_EQ((Bytes{0x0A, 0x1B, 0xFF}), out);
    Bytes junk;
    HexStr2BinData("1GG1", junk);
    EXPECT_EQ((Bytes{0x01, 0x00}), junk) << "leading valid digits only";
    Bytes odd;
    EXPECT_THROW(HexStr2BinData("0a1", odd), std::out_of_range);
    EXPECT_EQ((Bytes{0x0A}), odd) << "complete pairs are kept";
}

TEST(Hex, HexStr2BinDataPointerForms)
{
    char text[] = "0A1B2C";
    unsigned char out[4] = {0, 0, 0, 0x77};
    unsigned long len = 0;
    EXPECT_EQ(3u, HexStr2BinData(text, 1, out, len)) << "the given text length does not limit the text";
    len = 2;
    EXPECT_EQ(static_cast<unsigned long>(-1), HexStr2BinData(text, out, len));
    len = 4;
    EXPECT_EQ(3u, HexStr2BinData(text, out, len));
    EXPECT_EQ(3u, len);
    EXPECT_EQ((Bytes{0x0A, 0x1B, 0x2C, 0x77}), Bytes(out, out + 4));
}

TEST(Binary, Int2BinBin2IntBin2Dec)
{
    EXPECT_EQ("", int2bin(0)) << "zero gives the empty text, not 0";
    EXPECT_EQ("101", int2bin(5));
    EXPECT_EQ(std::string(31, '1'), int2bin(0x7FFFFFFFu));
    EXPECT_EQ("1", int2bin(0x80000000u)) << "top bit set: handled as signed";

    EXPECT_EQ(0u, bin2int(""));
    EXPECT_EQ(5u, bin2int("1x1")) << "a non-digit counts 0";
    EXPECT_EQ(5u, bin2int("21")) << "a digit counts with its value";
    EXPECT_EQ(~0ull, bin2int(std::string(70, '1'))) << "powers beyond 2^63 vanish";

    char empty[] = "";
    char five[] = "101";
    char bad[] = "102";
    EXPECT_EQ(0, bin2dec(empty));
    EXPECT_EQ(5, bin2dec(five));
    EXPECT_EQ(-1, bin2dec(bad));
}

TEST(Utf8, Int2StrAllLengthsAndEdges)
{
    const std::pair<int, const char*> cases[] = {
        {0, ""},          {0x41, "A"},           {0x80, "\xC2\x80"},         {0xE4, "\xC3\xA4"},
        {0x7FF, "\xDF\xBF"}, {0x800, "\xE0\xA0\x80"}, {0x20AC, "\xE2\x82\xAC"}, {0xD800, "\xED\xA0\x80"},
        {0xFFFF, "\xEF\xBF\xBF"}, {0x10000, "\xF0\x90\x80\x80"}, {0x1F600, "\xF0\x9F\x98\x80"},
        {0x1F600 | 0x200000, "\xF0\x9F\x98\x80"}, {-1, "\xFF"}, {-256, ""}};
    for (const auto& c : cases)
        EXPECT_EQ(c.second, int2str(c.first)) << std::hex << c.first;
}

TEST(Bytes, CharacterClassesReverseAndSwitchEndian)
{
    EXPECT_TRUE(Korvex::isdigit('0') && Korvex::isdigit('9'));
    EXPECT_FALSE(Korvex::isdigit('a') || Korvex::isdigit('\xB2'));
    EXPECT_TRUE(Korvex::isalpha('A') && Korvex::isalpha('z'));
    EXPECT_FALSE(Korvex::isalpha('@') || Korvex::isalpha('[') || Korvex::isalpha('\xE4'));

    unsigned char odd[] = {1, 2, 3};
    ReverseBytes(odd, 3);
    EXPECT_EQ((Bytes{3, 2, 1}), Bytes(odd, odd + 3));
    unsigned char even[] = {1, 2, 3, 4};
    ReverseBytes(even, 4);
    EXPECT_EQ((Bytes{4, 3, 2, 1}), Bytes(even, even + 4));

    EXPECT_EQ(0x78563412ul, SwitchEndian(0xABCDEF0012345678ul)) << "high half ignored and zero";
}

TEST(RandomString, LengthAndAlphabetWithoutZero)
{
    EXPECT_EQ("", GenerateRandomString(-3));
    EXPECT_EQ(10u, GenerateRandomString().size());
    EXPECT_EQ(61u, std::strlen(VALUES));
    const std::string text = GenerateRandomString(5000);
    ASSERT_EQ(5000u, text.size());
    const std::set<char> seen(text.begin(), text.end());
    for (char c : seen)
        EXPECT_NE(nullptr, std::strchr(VALUES, c)) << c;
    EXPECT_EQ(0u, seen.count('0'));
    EXPECT_GT(seen.size(), 50u) << "draws should spread over the alphabet";
}

TEST(MyMemfind, HitsAndBoundaries)
{
    char hay[] = "abcabcab";
    char needle[] = "cab";
    EXPECT_EQ(2, MyMemfind(hay, 8, needle, 3, 0));
    EXPECT_EQ(5, MyMemfind(hay, 8, needle, 3, 3));
    EXPECT_EQ(2, MyMemfind(hay, 8, needle, 3, -5)) << "negative start counts as 0";
    char ab[] = "ab";
    EXPECT_EQ(6, MyMemfind(hay, 8, ab, 2, 4)) << "a hit ending exactly at the end counts";
    char bin[] = {'\0', 'x', '\0', 'y'};
    char binNeedle[] = {'\0', 'y'};
    EXPECT_EQ(2, MyMemfind(bin, 4, binNeedle, 2, 0));

    EXPECT_EQ(-1, MyMemfind(hay, 8, needle, 3, 8)) << "start equal to the length";
    EXPECT_EQ(-1, MyMemfind(hay, 8, needle, 3, 6)) << "needle longer than the rest";
    EXPECT_EQ(-1, MyMemfind(hay, 2, needle, 3, 0));
    EXPECT_EQ(-1, MyMemfind(hay, -1, needle, 3, 0));
    EXPECT_EQ(-1, MyMemfind(hay, 8, needle, -1, 0));
    char tail[] = "abx";
    EXPECT_EQ(-1, MyMemfind(hay, 8, tail, 3, 0));
}
