// Base64: line layout of the encoder including the lone-CR quirk, and the
// tolerant decoder.
#include "base/base64.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

using namespace Korvex;

namespace {

std::vector<unsigned char> Sequence(std::size_t n)
{
    std::vector<unsigned char> v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = static_cast<unsigned char>(i * 31 + 7);
    return v;
}

} // namespace

TEST(Base64Encode, ShortInputHasNoLineEnd)
{
    unsigned char abc[] = {'A', 'B', 'C'};
    char* text = b64Encode(abc, 3);
    EXPECT_STREQ("QUJD", text);
    delete[] text;
    EXPECT_EQ("QUI=", b64Encode(std::vector<unsigned char>{'A', 'B'}));
    EXPECT_EQ("QQ==", b64Encode(std::vector<unsigned char>{'A'}));
}

TEST(Base64Encode, WholeLineEndsInLoneCR)
{
    std::vector<unsigned char> data = Sequence(57);
    const std::string text = b64Encode(data);
    ASSERT_EQ(77u, text.size());
    EXPECT_EQ('\r', text.back());
    EXPECT_EQ(std::string::npos, text.find('\n'));

    const std::string two = b64Encode(Sequence(114));
    ASSERT_EQ(76u + 2u + 76u + 1u, two.size());
    EXPECT_EQ("\r\n", two.substr(76, 2));
    EXPECT_EQ('\r', two.back());
}

TEST(Base64Encode, LongerTextBreaksEvery76WithCRLF)
{
    const std::string text = b64Encode(Sequence(100));
    // 100 bytes -> 136 characters: one full line, CR LF, then 60 characters.
    ASSERT_EQ(76u + 2u + 60u, text.size());
    EXPECT_EQ("\r\n", text.substr(76, 2));
    EXPECT_EQ(std::string::npos, text.find('\n', 78));
    EXPECT_NE('\r', text.back());
}

TEST(Base64Encode, PointerFormBufferLayout)
{
    std::vector<unsigned char> data = Sequence(4);
    char* text = b64Encode(data.data(), 4);
    // 8 characters followed by the two NULs of a short last line.
    EXPECT_EQ(8u, std::strlen(text));
    EXPECT_EQ('\0', text[9]);
    delete[] text;
}

TEST(Base64Encode, EmptyInput)
{
    EXPECT_EQ("", b64Encode(std::vector<unsigned char>()));
    unsigned char none[1] = {0};
    EXPECT_THROW(b64Encode(none, 0), std::out_of_range);
}

TEST(Base64Decode, IgnoresBlanksAndLineEnds)
{
    EXPECT_EQ((std::vector<unsigned char>{'A', 'B', 'C'}), b64Decode(std::string("QUJD\r\n")));
    EXPECT_EQ((std::vector<unsigned char>{'A', 'B', 'C'}), b64Decode(std::string(" QU\nJ D ")));
    EXPECT_TRUE(b64Decode(std::string()).empty());
}

TEST(Base64Decode, RoundTripAcrossLines)
{
    for (std::size_t n : {1u, 2u, 3u, 56u, 57u, 58u, 114u, 1000u}) {
        const std::vector<unsigned char> data = Sequence(n);
        EXPECT_EQ(data, b64Decode(b64Encode(data))) << n << " bytes";
    }
}

TEST(Base64Decode, GarbageDecodesToNothing)
{
    EXPECT_TRUE(b64Decode(std::string("!!!!")).empty());
    unsigned char text[] = "@@@@";
    int len = 4;
    unsigned char* out = b64Decode(text, len);
    EXPECT_LE(len, 0);
    delete[] out;
}

TEST(Base64Decode, PointerFormStopsAtCapacity)
{
    unsigned char text[] = "QUJDREVG"; // "ABCDEF"
    int len = 8;
    unsigned char* out = b64Decode(text, len);
    EXPECT_EQ(6, len);
    EXPECT_EQ(0, std::memcmp(out, "ABCDEF", 6));
    EXPECT_EQ(0, out[6]) << "the rest of the buffer stays zero";
    delete[] out;

    len = 4;
    out = b64Decode(text, len);
    EXPECT_EQ(4, len);
    EXPECT_EQ(0, std::memcmp(out, "ABCD", 4));
    delete[] out;
}
