// Hexadecimal, binary-digit and UTF-8 conversions, byte tools, random texts
// and the byte search.
#include "base/Conversion.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <stdexcept>

using namespace Korvex;

namespace {
const unsigned long kTooSmall = static_cast<unsigned long>(-1);
}

TEST(Hex, BinData2HexStrVectorIsUpperCaseWithoutSeparator)
{
    std::string out = "old";
    EXPECT_EQ(6u, BinData2HexStr({0x0A, 0xFF, 0x10}, out));
    EXPECT_EQ("0AFF10", out);
    EXPECT_EQ(0u, BinData2HexStr({}, out));
    EXPECT_EQ("", out);
}

TEST(Hex, BinData2HexStrPointerSizeQueryTooSmallAndCopy)
{
    unsigned char data[] = {0x0A, 0x1B};
    unsigned char out[8];
    std::memset(out, '#', sizeof out);

    unsigned long len = 0;
    EXPECT_EQ(4u, BinData2HexStr(data, 2, out, len)) << "length 0 is a size query";
    EXPECT_EQ('#', out[0]);
    len = 99;
    EXPECT_EQ(4u, BinData2HexStr(data, 2, nullptr, len));
    EXPECT_EQ(99u, len);

    len = 3;
    EXPECT_EQ(kTooSmall, BinData2HexStr(data, 2, out, len));
    EXPECT_EQ(3u, len);
    EXPECT_EQ('#', out[0]);

    len = 4;
    EXPECT_EQ(4u, BinData2HexStr(data, 2, out, len));
    EXPECT_EQ(4u, len);
    EXPECT_EQ(0, std::memcmp(out, "0A1B", 4));
    EXPECT_EQ('#', out[4]) << "no terminating NUL is written";
}

TEST(Hex, HexStr2BinDataAppendsBothCases)
{
    std::vector<unsigned char> out;
    EXPECT_EQ(2u, HexStr2BinData("0a1B", out));
    EXPECT_EQ((std::vector<unsigned char>{0x0A, 0x1B}), out);
    EXPECT_EQ(3u, HexStr2BinData("ff", out)) << "out is not cleared";
    EXPECT_EQ(0xFF, out[2]);
    EXPECT_EQ(3u, HexStr2BinData("", out));
}

TEST(Hex, HexStr2BinDataInvalidDigitsAndOddLength)
{
    std::vector<unsigned char> out;
    HexStr2BinData("1GG1", out);
    EXPECT_EQ((std::vector<unsigned char>{0x01, 0x00}), out) << "leading valid digits only";

    std::vector<unsigned char> odd;
    EXPECT_THROW(HexStr2BinData("0a1", odd), std::out_of_range);
    EXPECT_EQ((std::vector<unsigned char>{0x0A}), odd) << "complete pairs are kept";
}

TEST(Hex, HexStr2BinDataPointerForms)
{
    char text[] = "0A1B2C";
    unsigned char out[4] = {0, 0, 0, 0x77};
    unsigned long len = 0;
    EXPECT_EQ(3u, HexStr2BinData(text, 1, out, len)) << "the given text length does not limit the text";
    len = 2;
    EXPECT_EQ(kTooSmall, HexStr2BinData(text, out, len));
    EXPECT_EQ(2u, len);
    len = 4;
    EXPECT_EQ(3u, HexStr2BinData(text, out, len));
    EXPECT_EQ(3u, len);
    EXPECT_EQ(0x0A, out[0]);
    EXPECT_EQ(0x2C, out[2]);
    EXPECT_EQ(0x77, out[3]);
}

TEST(Hex, Hex2Int)
{
    char a[] = "ff";
    char b[] = "1Gz";
    char c[] = "zz";
    EXPECT_EQ(255, hex2int(a));
    EXPECT_EQ(1, hex2int(b));
    EXPECT_EQ(0, hex2int(c));
}

TEST(Binary, Int2BinQuirks)
{
    EXPECT_EQ("", int2bin(0)) << "zero gives the empty text, not 0";
    EXPECT_EQ("1", int2bin(1));
    EXPECT_EQ("101", int2bin(5));
    EXPECT_EQ(std::string(31, '1'), int2bin(0x7FFFFFFFu));
    EXPECT_EQ("1", int2bin(0x80000000u));
    EXPECT_EQ("1", int2bin(0xFFFFFFFFu));
}

TEST(Binary, Bin2IntCountsDigitValues)
{
    EXPECT_EQ(0u, bin2int(""));
    EXPECT_EQ(5u, bin2int("101"));
    EXPECT_EQ(4u + 0u + 1u, bin2int("1x1")) << "a non-digit counts 0";
    EXPECT_EQ(2u * 2u + 1u, bin2int("21"));
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFull, bin2int(std::string(64, '1')));
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFull, bin2int(std::string(70, '1'))) << "higher powers wrap away";
}

TEST(Binary, Bin2Dec)
{
    char empty[] = "";
    char five[] = "101";
    char bad[] = "102";
    EXPECT_EQ(0, bin2dec(empty));
    EXPECT_EQ(5, bin2dec(five));
    EXPECT_EQ(-1, bin2dec(bad));
}

TEST(Utf8, Int2StrAllLengths)
{
    EXPECT_EQ("", int2str(0));
    EXPECT_EQ("A", int2str(0x41));
    EXPECT_EQ("\x7F", int2str(0x7F));
    EXPECT_EQ("\xC2\x80", int2str(0x80));
    EXPECT_EQ("\xC3\xA4", int2str(0xE4));
    EXPECT_EQ("\xDF\xBF", int2str(0x7FF));
    EXPECT_EQ("\xE0\xA0\x80", int2str(0x800));
    EXPECT_EQ("\xE2\x82\xAC", int2str(0x20AC));
    EXPECT_EQ("\xED\xA0\x80", int2str(0xD800)) << "surrogates are encoded like any value";
    EXPECT_EQ("\xEF\xBF\xBF", int2str(0xFFFF));
    EXPECT_EQ("\xF0\x90\x80\x80", int2str(0x10000));
    EXPECT_EQ("\xF0\x9F\x98\x80", int2str(0x1F600));
    EXPECT_EQ(int2str(0x1F600), int2str(0x1F600 | 0x200000)) << "bits above 20 are dropped";
}

TEST(Utf8, Int2StrNegativeKeepsLowByte)
{
    EXPECT_EQ(std::string(1, '\xFF'), int2str(-1));
    EXPECT_EQ(std::string(1, '\x80'), int2str(-128));
    EXPECT_EQ("", int2str(-256)) << "a zero low byte is an empty C text";
}

TEST(Bytes, CharacterClassesAreAsciiOnly)
{
    EXPECT_TRUE(Korvex::isdigit('0'));
    EXPECT_TRUE(Korvex::isdigit('9'));
    EXPECT_FALSE(Korvex::isdigit('a'));
    EXPECT_FALSE(Korvex::isdigit('\xB2'));
    EXPECT_TRUE(Korvex::isalpha('A'));
    EXPECT_TRUE(Korvex::isalpha('z'));
    EXPECT_FALSE(Korvex::isalpha('@'));
    EXPECT_FALSE(Korvex::isalpha('['));
    EXPECT_FALSE(Korvex::isalpha('\xE4'));
}

TEST(Bytes, ReverseAndSwitchEndian)
{
    unsigned char odd[] = {1, 2, 3};
    ReverseBytes(odd, 3);
    EXPECT_EQ((std::vector<unsigned char>{3, 2, 1}), std::vector<unsigned char>(odd, odd + 3));
    unsigned char even[] = {1, 2, 3, 4};
    ReverseBytes(even, 4);
    EXPECT_EQ((std::vector<unsigned char>{4, 3, 2, 1}), std::vector<unsigned char>(even, even + 4));
    ReverseBytes(even, 0);

    EXPECT_EQ(0x78563412ul, SwitchEndian(0x12345678ul));
    EXPECT_EQ(0x78563412ul, SwitchEndian(0xABCDEF0012345678ul)) << "high half ignored and zero";
}

TEST(RandomString, LengthAndAlphabet)
{
    EXPECT_EQ("", GenerateRandomString(0));
    EXPECT_EQ("", GenerateRandomString(-3));
    EXPECT_EQ(10u, GenerateRandomString().size());

    EXPECT_EQ(61u, std::strlen(VALUES));
    EXPECT_EQ(nullptr, std::strchr(VALUES, '0')) << "zero is left out of the alphabet";
    const std::string text = GenerateRandomString(5000);
    ASSERT_EQ(5000u, text.size());
    std::set<char> seen(text.begin(), text.end());
    for (char c : seen)
        EXPECT_NE(nullptr, std::strchr(VALUES, c)) << "unexpected character " << c;
    EXPECT_EQ(0u, seen.count('0'));
    EXPECT_GT(seen.size(), 50u) << "draws should spread over the alphabet";
}

TEST(MyMemfind, FindsAndRespectsStart)
{
    char hay[] = "abcabcab";
    char needle[] = "cab";
    EXPECT_EQ(2, MyMemfind(hay, 8, needle, 3, 0));
    EXPECT_EQ(5, MyMemfind(hay, 8, needle, 3, 3));
    EXPECT_EQ(2, MyMemfind(hay, 8, needle, 3, -5)) << "negative start counts as 0";
    char bin[] = {'\0', 'x', '\0', 'y'};
    char binNeedle[] = {'\0', 'y'};
    EXPECT_EQ(2, MyMemfind(bin, 4, binNeedle, 2, 0)) << "binary data with NULs";
}

TEST(MyMemfind, BoundariesGiveMinusOne)
{
    char hay[] = "abcabcab";
    char needle[] = "cab";
    char tail[] = "abx";
    EXPECT_EQ(-1, MyMemfind(hay, 8, needle, 3, 8)) << "start equal to the length";
    EXPECT_EQ(-1, MyMemfind(hay, 8, needle, 3, 6)) << "needle longer than the rest";
    EXPECT_EQ(-1, MyMemfind(hay, 2, needle, 3, 0));
    EXPECT_EQ(-1, MyMemfind(hay, -1, needle, 3, 0));
    EXPECT_EQ(-1, MyMemfind(hay, 8, needle, -1, 0));
    EXPECT_EQ(-1, MyMemfind(hay, 8, tail, 3, 0));
    char ab[] = "ab";
    EXPECT_EQ(6, MyMemfind(hay, 8, ab, 2, 4)) << "an occurrence ending exactly at the end counts";
}
