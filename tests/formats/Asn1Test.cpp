// DER cursor readers and their log hooks. The bounded forms must agree with
// the classic ones on complete data and stop at the end of cut-off data.
#include "tests/support/TestCommon.h"

#include "formats/Asn1.h"
#include "tests/formats/DerBuilder.h"
#include "formats/Asn1Log.h"

using namespace Korvex;
using dertest::Bytes;

namespace {
std::string digits(const unsigned char* out) { return reinterpret_cast<const char*>(out); }
} // namespace

TEST(GetLen, ShortAndTwoLongFormsOtherOctetsLiterallyAndBoundedCuts)
{
    struct Case { Bytes bytes; long length; int advance; };
    const Case cases[] = {{{0x82, 0x01, 0x00}, 256, 3}, {{0x81, 0x80}, 128, 2}, {{0x7F}, 127, 1},
                          {{0x83, 0x01, 0x00, 0x00}, 131, 1}, {{0x80}, 128, 1}, {{0xFF}, 255, 1}};
    for (const Case& c : cases) {
        Bytes buf = c.bytes;
        int pos = 0;
        EXPECT_EQ(getLen(buf.data(), pos), c.length);
        EXPECT_EQ(pos, c.advance);
        long len = -1;
        pos = 0;
        EXPECT_TRUE(getLen(buf.data(), static_cast<int>(buf.size()), pos, len));
        EXPECT_EQ(len, c.length);
        for (int end = 0; end < c.advance; ++end) {  // every cut into the length octets
            auto cut = dertest::exactCopy(buf, static_cast<std::size_t>(end));
            pos = 0;
            len = -7;
            EXPECT_FALSE(getLen(cut.get(), end, pos, len));
            EXPECT_EQ(pos, end);
            EXPECT_EQ(len, -7);
        }
    }
}

TEST(RemoveLeadingNulls, StripsZerosInPlaceAndLeavesTheTail)
{
    Bytes buf = {0x00, 0x00, 0x01, 0x02};
    int len = 4;
    RemoveLeadingNulls(buf.data(), len);
    EXPECT_EQ(len, 2);
    EXPECT_EQ(buf, (Bytes{0x01, 0x02, 0x01, 0x02}));
    Bytes noZero = {0x01, 0x00};
    RemoveLeadingNulls(noZero.data(), len = 2);
    EXPECT_EQ(noZero, (Bytes{0x01, 0x00}));
    EXPECT_EQ(len, 2);
    Bytes allZero = {0x00, 0x00, 0x00, 0x05};  // only the given length counts
    RemoveLeadingNulls(allZero.data(), len = 3);
    EXPECT_EQ(len, 0);
    RemoveLeadingNulls(nullptr, len = 3);  // no buffer, whatever length is claimed
    EXPECT_EQ(len, 3);
}

TEST(Bin2DecStr, DigitsWithTwoZerosAndRefusals)
{
    unsigned char out[32];
    std::memset(out, 0xEE, sizeof out);
    Bytes v256 = {0x01, 0x00}, zero = {0x00}, max64(8, 0xFF), padded = {0x00, 0x00, 0x0A};
    EXPECT_EQ(bin2decStr(v256.data(), 2, out), 3);
    EXPECT_EQ(digits(out), "256");
    EXPECT_EQ(out[4], 0);
    EXPECT_EQ(out[5], 0xEE);
    EXPECT_EQ(bin2decStr(zero.data(), 1, out), 1);
    EXPECT_EQ(digits(out), "0");
    EXPECT_EQ(bin2decStr(max64.data(), 8, out), 20);
    EXPECT_EQ(digits(out), "18446744073709551615");
    EXPECT_EQ(bin2decStr(padded.data(), 3, out), 2);
    EXPECT_EQ(digits(out), "10");
    EXPECT_EQ(bin2decStr(nullptr, 2, out), -1);
    EXPECT_EQ(bin2decStr(v256.data(), 0, out), -1);
    out[0] = 0x11;
    EXPECT_EQ(bin2decStr(v256.data(), 2, out, 4), -1);  // "256" needs 5 bytes
    EXPECT_EQ(out[0], 0x11);
    EXPECT_EQ(bin2decStr(v256.data(), 2, out, 5), 3);
}

TEST(ReadBitString, CopiesValueOnlyWithoutUnusedBitsAndWithinCapacity)
{
    Bytes ok = {0x03, 0x00, 0xAA, 0xBB}, unused = {0x03, 0x04, 0xAA, 0xBB};
    unsigned char out[4] = {0x55, 0x55, 0x55, 0x55};
    int pos = 0, outLen = 2;  // capacity counts the unused-bits octet too: 2 is too small
    EXPECT_FALSE(ReadBitString(ok.data(), pos, out, outLen));
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(outLen, 2);
    EXPECT_EQ(out[0], 0x55);
    pos = 0;
    outLen = 4;
    EXPECT_FALSE(ReadBitString(unused.data(), pos, out, outLen));
    EXPECT_EQ(outLen, 2);
    EXPECT_EQ(out[0], 0x55);
    pos = 0;
    outLen = 3;
    EXPECT_TRUE(ReadBitString(ok.data(), pos, out, outLen));
    EXPECT_EQ(outLen, 2);
    EXPECT_EQ(Bytes(out, out + 2), (Bytes{0xAA, 0xBB}));
}

TEST(ReadBitString, BoundedFormStopsAtTheEnd)
{
    unsigned char out[8] = {0x55};
    Bytes cut = {0x05, 0x00, 0xAA, 0xBB}, pastEnd = {0x82, 0x10, 0x00, 0x00}, empty = {0x00, 0x42};
    int pos = 0, outLen = 8;
    EXPECT_FALSE(ReadBitString(cut.data(), 4, pos, out, outLen));
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(outLen, 8);
    EXPECT_EQ(out[0], 0x55);
    pos = 0;
    EXPECT_FALSE(ReadBitString(pastEnd.data(), 4, pos, out, outLen));  // too large: skipped up to the end
    EXPECT_EQ(pos, 4);
    pos = 0;
    EXPECT_FALSE(ReadBitString(empty.data(), 2, pos, out, outLen));  // no unused-bits octet
    EXPECT_EQ(outLen, 0);
    EXPECT_EQ(pos, 1);
}

TEST(ReadUtf8String, ContentUpToFirstZeroUnconverted)
{
    Bytes withZero = {0x04, 'A', 0x00, 'B', 'C'}, umlaut = {0x02, 0xC3, 0xA4}, cut = {0x05, 'A', 'B'};
    int pos = 0;
    EXPECT_EQ(ReadUtf8String(withZero.data(), pos), "A");
    EXPECT_EQ(pos, 5);
    EXPECT_EQ(ReadUtf8String(umlaut.data(), pos = 0), "\xC3\xA4");
    EXPECT_EQ(ReadUtf8String(cut.data(), 3, pos = 0), "");
    EXPECT_EQ(pos, 3);
}

TEST(OID2Str, EveryOctetOnItsOwn)
{
    Bytes p256 = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07}, high = {0x78, 0x05};
    EXPECT_EQ(OID2Str(p256.data(), 8, '.'), "1.2.134.72.206.61.3.1.7");
    EXPECT_EQ(OID2Str(p256.data(), 1, '-'), "1-2");
    EXPECT_EQ(OID2Str(high.data(), 2, '.'), "3.0.5");  // no special case above 80
    EXPECT_EQ(OID2Str(p256.data(), 0, '.'), "");
}

TEST(ParseValue, SixKnownTagsAndNothingChangedOtherwise)
{
    const std::pair<unsigned char, eASN1Type> known[] = {
        {0x04, ASN1TypeOctetString}, {0x12, ASN1TypeNumericString}, {0x18, ASN1TypeGeneralizedTime},
        {0x0C, ASN1TypeUtf8String},  {0x02, ASN1TypeInteger},       {0x13, ASN1TypePrintableString}};
    for (const auto& [tag, expected] : known) {
        Bytes buf = {tag, 0x03, 0x41, 0x42, 0x43};
        unsigned char out[4] = {};
        int pos = 0, outLen = 0;
        eASN1Type type = ASN1TypeOctetString;
        ASSERT_EQ(parseValue(buf.data(), pos, type, out, outLen), 1);
        EXPECT_EQ(type, expected);
        EXPECT_EQ(outLen, 3);
        EXPECT_EQ(pos, 5);
        EXPECT_EQ(Bytes(out, out + 3), (Bytes{0x41, 0x42, 0x43}));
    }
    EXPECT_EQ(ASN1TypeUtf8String, 4);
    Bytes sequence = {0x30, 0x01, 0x00}, octets = {0x04, 0x03, 0x41, 0x42, 0x43};
    unsigned char out[4] = {0x66};
    int pos = 0, outLen = 9;
    eASN1Type type = ASN1TypeInteger;
    EXPECT_EQ(parseValue(sequence.data(), pos, type, out, outLen), 0);
    EXPECT_EQ(parseValue(octets.data(), 5, pos, type, out, outLen, 2), 0);  // capacity
    EXPECT_EQ(parseValue(octets.data(), 4, pos, type, out, outLen, 4), 0);  // cut off
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(outLen, 9);
    EXPECT_EQ(type, ASN1TypeInteger);
    EXPECT_EQ(out[0], 0x66);
}

TEST(Asn1Log, ThreeFormsReachTheHookOfTheirLevel)
{
    TestSupport::LogCapture capture(LibAsn1::acPKCS11_SetErrorLoggingFunc, LibAsn1::acPKCS11_SetMessageLoggingFunc);
    LibAsn1::LogError("plain");
    LibAsn1::LogError("code", 42ul);
    LibAsn1::LogError("join", std::string("ed"));
    LibAsn1::LogError("big", 4294967295ul);  // printed as a signed int
    ::LibAsn1::LogMessage("note", 7ul);
    EXPECT_EQ(capture.errors(), (std::vector<std::string>{"plain", "code, 42", "joined", "big, -1"}));
    EXPECT_EQ(capture.messages(), (std::vector<std::string>{"note, 7"}));
    LibAsn1::acPKCS11_SetErrorLoggingFunc(nullptr);
    LibAsn1::LogError("dropped");
    EXPECT_EQ(capture.errors().size(), 4u);
}
