// Base64: line layout of the encoder including the lone-CR quirk, and the
// tolerant decoder.
#include "base/base64.h"

#include "tests/support/TestCommon.h"

#include <stdexcept>

using namespace Korvex;
using Bytes = std::vector<unsigned char>;

namespace {

Bytes Sequence(std::size_t n)
{
    Bytes v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = static_cast<unsigned char>(i * 31 + 7);
    return v;
}

} // namespace

TEST(Base64Encode, ShortAndEmptyInputAndPointerBufferLayout)
{
    unsigned char abc[] = {'A', 'B', 'C'};
    char* text = b64Encode(abc, 3);
    EXPECT_STREQ("QUJD", text);
    delete[] text;
    EXPECT_EQ("QUI=", b64Encode(Bytes{'A', 'B'}));
    EXPECT_EQ("QQ==", b64Encode(Bytes{'A'}));
    EXPECT_EQ("", b64Encode(Bytes()));
    EXPECT_THROW(b64Encode(abc, 0), std::out_of_range);

    Bytes four = Sequence(4);
    text = b64Encode(four.data(), 4);
    // 8 characters followed by the two NULs of a short last line.
    EXPECT_EQ(8u, std::strlen(text));
    EXPECT_EQ('\0', text[9]);
    delete[] text;
}

TEST(Base64Encode, LinesOf76EndInCRLFButAWholeLastLineInALoneCR)
{
    struct Case { std::size_t bytes, chars; bool loneCrAtEnd; };
    const Case cases[] = {{57, 77, true}, {114, 76 + 2 + 76 + 1, true}, {100, 76 + 2 + 60, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        const std::string text = b64Encode(Sequence(c.bytes));
        ASSERT_EQ(c.chars, text.size());
        if (c.bytes > 57) {
            EXPECT_EQ("\r\n", text.substr(76, 2));
        }
        EXPECT_EQ(std::string::npos, text.find('\n', c.bytes > 57 ? 78 : 0));
        EXPECT_EQ(c.loneCrAtEnd, text.back() == '\r');
    }
}

TEST(Base64Decode, IgnoresBlanksRoundTripsAndDecodesGarbageToNothing)
{
    EXPECT_EQ((Bytes{'A', 'B', 'C'}), b64Decode(std::string("QUJD\r\n")));
    EXPECT_EQ((Bytes{'A', 'B', 'C'}), b64Decode(std::string(" QU\nJ D ")));
    EXPECT_TRUE(b64Decode(std::string()).empty());
    for (std::size_t n : {1u, 2u, 3u, 56u, 57u, 58u, 114u, 1000u})
        EXPECT_EQ(Sequence(n), b64Decode(b64Encode(Sequence(n)))) << n << " bytes";

    EXPECT_TRUE(b64Decode(std::string("!!!!")).empty());
    unsigned char garbage[] = "@@@@";
    int len = 4;
    delete[] b64Decode(garbage, len);
    EXPECT_LE(len, 0);
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
