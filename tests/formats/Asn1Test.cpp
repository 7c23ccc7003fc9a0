// DER cursor readers: lengths, leading zeros, decimal conversion, bit
// strings, texts, object identifiers, tagged values, and the log hooks. The
// bounded forms are checked to agree with the classic ones on complete data
// and to stop at the end of cut-off data.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "formats/Asn1.h"
#include "tests/formats/LogCapture.h"

using namespace Korvex;
using Bytes = std::vector<unsigned char>;

namespace {

struct LenCase {
    Bytes bytes;
    long length;
    int advance;
};

const std::vector<LenCase>& lengthCases()
{
    static const std::vector<LenCase> cases = {
        {{0x82, 0x01, 0x00}, 256, 3}, {{0x81, 0x80}, 128, 2}, {{0x7F}, 127, 1},
        {{0x83, 0x01, 0x00, 0x00}, 131, 1}, {{0x80}, 128, 1}, {{0x00}, 0, 1},
        {{0xFF}, 255, 1}, {{0x82, 0xFF, 0xFE}, 0xFFFE, 3}, {{0x81, 0x05}, 5, 2},
    };
    return cases;
}

} // namespace

TEST(GetLen, ReadsShortAndTwoLongFormsAndTakesOtherOctetsLiterally)
{
    for (const LenCase& c : lengthCases()) {
        Bytes buf = c.bytes;
        int pos = 0;
        EXPECT_EQ(getLen(buf.data(), pos), c.length) << "first octet " << int(c.bytes[0]);
        EXPECT_EQ(pos, c.advance) << "first octet " << int(c.bytes[0]);
    }
}

TEST(GetLen, StartsAtTheGivenPosition)
{
    Bytes buf = {0x30, 0x82, 0x12, 0x34, 0x02};
    int pos = 1;
    EXPECT_EQ(getLen(buf.data(), pos), 0x1234);
    EXPECT_EQ(pos, 4);
}

TEST(GetLen, BoundedFormAgreesOnCompleteInputAndStopsAtTheEnd)
{
    for (const LenCase& c : lengthCases()) {
        int pos = 0;
        long len = -1;
        ASSERT_TRUE(getLen(c.bytes.data(), static_cast<int>(c.bytes.size()), pos, len));
        EXPECT_EQ(len, c.length);
        EXPECT_EQ(pos, c.advance);
        // Every shorter input that cuts into the length octets is refused.
        for (int end = 0; end < c.advance; ++end) {
            int cutPos = 0;
            long cutLen = -7;
            Bytes cut(c.bytes.begin(), c.bytes.begin() + end);
            EXPECT_FALSE(getLen(cut.data(), end, cutPos, cutLen));
            EXPECT_EQ(cutPos, end);
            EXPECT_EQ(cutLen, -7);
        }
    }
    int pos = 5;
    long len = 0;
    Bytes buf = {0x01};
    EXPECT_FALSE(getLen(buf.data(), 1, pos, len));
    EXPECT_EQ(pos, 1);
}

TEST(RemoveLeadingNulls, StripsZerosAndKeepsTheTailBytes)
{
    Bytes buf = {0x00, 0x00, 0x01, 0x02};
    int len = 4;
    RemoveLeadingNulls(buf.data(), len);
    EXPECT_EQ(len, 2);
    EXPECT_EQ(buf, (Bytes{0x01, 0x02, 0x01, 0x02}));

    Bytes noZero = {0x01, 0x00};
    len = 2;
    RemoveLeadingNulls(noZero.data(), len);
    EXPECT_EQ(len, 2);
    EXPECT_EQ(noZero, (Bytes{0x01, 0x00}));

    Bytes allZero = {0x00, 0x00, 0x00};
    len = 3;
    RemoveLeadingNulls(allZero.data(), len);
    EXPECT_EQ(len, 0);

    // Only the given length counts, even if more zeros follow in memory.
    Bytes partial = {0x00, 0x00, 0x00, 0x05};
    len = 2;
    RemoveLeadingNulls(partial.data(), len);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(partial[3], 0x05);
}

TEST(Bin2DecStr, WritesDigitsAndTwoTerminatingZeros)
{
    unsigned char out[64];
    std::memset(out, 0xEE, sizeof out);
    Bytes v256 = {0x01, 0x00};
    ASSERT_EQ(bin2decStr(v256.data(), 2, out), 3);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "256");
    EXPECT_EQ(out[4], 0);
    EXPECT_EQ(out[5], 0xEE);

    Bytes zero = {0x00};
    ASSERT_EQ(bin2decStr(zero.data(), 1, out), 1);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "0");

    Bytes max64(8, 0xFF);
    ASSERT_EQ(bin2decStr(max64.data(), 8, out), 20);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "18446744073709551615");

    Bytes padded = {0x00, 0x00, 0x0A};
    ASSERT_EQ(bin2decStr(padded.data(), 3, out), 2);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "10");
}

TEST(Bin2DecStr, RefusesNullEmptyAndTooSmallOutput)
{
    unsigned char out[8] = {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11};
    Bytes v = {0x01, 0x00};
    EXPECT_EQ(bin2decStr(nullptr, 2, out), -1);
    EXPECT_EQ(bin2decStr(v.data(), 0, out), -1);
    EXPECT_EQ(bin2decStr(v.data(), -3, out, 8), -1);
    // "256" needs five bytes with its two zeros.
    EXPECT_EQ(bin2decStr(v.data(), 2, out, 4), -1);
    EXPECT_EQ(out[0], 0x11);
    EXPECT_EQ(bin2decStr(v.data(), 2, out, 5), 3);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "256");
}

TEST(ReadBitString, CopiesValueWithoutUnusedBitsOctet)
{
    Bytes buf = {0x03, 0x00, 0xAA, 0xBB};
    unsigned char out[4] = {0, 0, 0, 0};
    int pos = 0;
    int outLen = 4;
    EXPECT_TRUE(ReadBitString(buf.data(), pos, out, outLen));
    EXPECT_EQ(outLen, 2);
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(out[0], 0xAA);
    EXPECT_EQ(out[1], 0xBB);

    // The capacity is compared with the whole content, unused-bits octet
    // included: exactly three fits.
    pos = 0;
    outLen = 3;
    EXPECT_TRUE(ReadBitString(buf.data(), pos, out, outLen));
    EXPECT_EQ(outLen, 2);
}

TEST(ReadBitString, RefusesUnusedBitsAndOversizedValues)
{
    Bytes unused = {0x03, 0x04, 0xAA, 0xBB};
    unsigned char out[4] = {0x55, 0x55, 0x55, 0x55};
    int pos = 0;
    int outLen = 4;
    EXPECT_FALSE(ReadBitString(unused.data(), pos, out, outLen));
    EXPECT_EQ(outLen, 2);
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(out[0], 0x55);

    Bytes big = {0x03, 0x00, 0xAA, 0xBB, 0x77};
    pos = 0;
    outLen = 2;
    EXPECT_FALSE(ReadBitString(big.data(), pos, out, outLen));
    EXPECT_EQ(outLen, 2);
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(out[0], 0x55);
}

TEST(ReadBitString, BoundedFormStopsAtTheEnd)
{
    unsigned char out[8];
    std::memset(out, 0x55, sizeof out);

    Bytes cut = {0x05, 0x00, 0xAA, 0xBB};  // claims 5 content bytes, has 3
    int pos = 0;
    int outLen = 8;
    EXPECT_FALSE(ReadBitString(cut.data(), 4, pos, out, outLen));
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(outLen, 8);
    EXPECT_EQ(out[0], 0x55);

    Bytes skipped = {0x82, 0x10, 0x00, 0x00};  // too large, and past the end
    pos = 0;
    outLen = 8;
    EXPECT_FALSE(ReadBitString(skipped.data(), 4, pos, out, outLen));
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(outLen, 8);

    Bytes empty = {0x00, 0x42};
    pos = 0;
    outLen = 8;
    EXPECT_FALSE(ReadBitString(empty.data(), 2, pos, out, outLen));
    EXPECT_EQ(outLen, 0);
    EXPECT_EQ(pos, 1);

    Bytes whole = {0x03, 0x00, 0x01, 0x02};
    pos = 0;
    outLen = 8;
    EXPECT_TRUE(ReadBitString(whole.data(), 4, pos, out, outLen));
    EXPECT_EQ(outLen, 2);
    EXPECT_EQ(out[1], 0x02);
}

TEST(ReadUtf8String, ReturnsContentUpToFirstZero)
{
    Bytes abc = {0x03, 'A', 'B', 'C', 0x0C};
    int pos = 0;
    EXPECT_EQ(ReadUtf8String(abc.data(), pos), "ABC");
    EXPECT_EQ(pos, 4);

    Bytes withZero = {0x04, 'A', 0x00, 'B', 'C'};
    pos = 0;
    EXPECT_EQ(ReadUtf8String(withZero.data(), pos), "A");
    EXPECT_EQ(pos, 5);

    // Bytes are passed on unconverted.
    Bytes umlaut = {0x02, 0xC3, 0xA4};
    pos = 0;
    EXPECT_EQ(ReadUtf8String(umlaut.data(), pos), "\xC3\xA4");

    Bytes cut = {0x05, 'A', 'B'};
    pos = 0;
    EXPECT_EQ(ReadUtf8String(cut.data(), 3, pos), "");
    EXPECT_EQ(pos, 3);
}

TEST(OID2Str, PrintsEveryOctetOnItsOwn)
{
    Bytes p256 = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
    EXPECT_EQ(OID2Str(p256.data(), 8, '.'), "1.2.134.72.206.61.3.1.7");
    EXPECT_EQ(OID2Str(p256.data(), 1, '-'), "1-2");
    // No special case for first octets of 80 and above.
    Bytes high = {0x78, 0x05};
    EXPECT_EQ(OID2Str(high.data(), 2, '.'), "3.0.5");
    EXPECT_EQ(OID2Str(p256.data(), 0, '.'), "");
}

TEST(ParseValue, RecognisesTheSixTagsOnly)
{
    const std::vector<std::pair<unsigned char, eASN1Type>> table = {
        {0x04, ASN1TypeOctetString}, {0x12, ASN1TypeNumericString}, {0x18, ASN1TypeGeneralizedTime},
        {0x0C, ASN1TypeUtf8String},  {0x02, ASN1TypeInteger},       {0x13, ASN1TypePrintableString},
    };
    for (const auto& entry : table) {
        Bytes buf = {entry.first, 0x03, 0x41, 0x42, 0x43};
        unsigned char out[8] = {};
        int pos = 0;
        int outLen = 0;
        eASN1Type type = ASN1TypeOctetString;
        ASSERT_EQ(parseValue(buf.data(), pos, type, out, outLen), 1);
        EXPECT_EQ(type, entry.second);
        EXPECT_EQ(outLen, 3);
        EXPECT_EQ(pos, 5);
        EXPECT_EQ(Bytes(out, out + 3), (Bytes{0x41, 0x42, 0x43}));
    }
    EXPECT_EQ(int(ASN1TypeUtf8String), 4);

    for (unsigned char tag : {0x30, 0x03, 0x05, 0x0D, 0xA0}) {
        Bytes buf = {tag, 0x01, 0x00};
        unsigned char out[4] = {0x66, 0x66, 0x66, 0x66};
        int pos = 0;
        int outLen = 9;
        eASN1Type type = ASN1TypePrintableString;
        EXPECT_EQ(parseValue(buf.data(), pos, type, out, outLen), 0);
        EXPECT_EQ(pos, 0);
        EXPECT_EQ(outLen, 9);
        EXPECT_EQ(type, ASN1TypePrintableString);
        EXPECT_EQ(out[0], 0x66);
    }
}

TEST(ParseValue, BoundedFormRefusesValuesThatDoNotFit)
{
    Bytes buf = {0x04, 0x03, 0x41, 0x42, 0x43};
    unsigned char out[4] = {0x66, 0x66, 0x66, 0x66};
    int pos = 0;
    int outLen = 9;
    eASN1Type type = ASN1TypeInteger;
    EXPECT_EQ(parseValue(buf.data(), 5, pos, type, out, outLen, 2), 0);
    EXPECT_EQ(parseValue(buf.data(), 4, pos, type, out, outLen, 4), 0);
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(outLen, 9);
    EXPECT_EQ(type, ASN1TypeInteger);
    EXPECT_EQ(out[0], 0x66);
    EXPECT_EQ(parseValue(buf.data(), 5, pos, type, out, outLen, 3), 1);
    EXPECT_EQ(type, ASN1TypeOctetString);
    EXPECT_EQ(pos, 5);
    EXPECT_EQ(parseValue(buf.data(), 5, pos, type, out, outLen, 3), 0);
}

TEST(Asn1Log, FormsReachTheirOwnHook)
{
    dertest::LogCapture capture;
    LibAsn1::LogError("plain");
    LibAsn1::LogError("code", 42ul);
    LibAsn1::LogError("join", std::string("ed"));
    // Numbers are printed as signed int.
    LibAsn1::LogError("big", 4294967295ul);
    LibAsn1::LogMessage("note", 7ul);
    EXPECT_EQ(dertest::LogCapture::errors(), (std::vector<std::string>{"plain", "code, 42", "joined", "big, -1"}));
    EXPECT_EQ(dertest::LogCapture::messages(), (std::vector<std::string>{"note, 7"}));

    // The global alias reaches the same hooks.
    ::LibAsn1::LogMessage("a", std::string("b"));
    EXPECT_EQ(dertest::LogCapture::messages().back(), "ab");

    LibAsn1::acPKCS11_SetErrorLoggingFunc(nullptr);
    LibAsn1::LogError("dropped");
    EXPECT_EQ(dertest::LogCapture::errors().size(), 4u);
}
