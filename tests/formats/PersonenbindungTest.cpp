// Identity link parsing: a complete record built field by field, the quirks
// of the accepted layout, and broken records (cut at every byte, oversized
// lengths, wrong tags), which must give the defined results and never read
// outside the input (the sanitizer build checks the latter).
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "formats/Asn1.h"
#include "formats/Personenbindung.h"
#include "tests/formats/DerBuilder.h"
#include "tests/formats/LogCapture.h"

using namespace Korvex;
using dertest::Bytes;
using dertest::bitString;
using dertest::cat;
using dertest::pattern;
using dertest::tlv;
using dertest::utf8;

namespace {

const char* const kNoData = "Keine Personenbindungsdaten";
const char* const kBadLength = "Fehler beim Lesen der Personenbindung Lnge passt nicht";
const char* const kNoPersonSequence = "Personenbindung::_doPersonData keine Sequence";

struct RecordParts {
    Bytes version = {0x02, 0x01, 0x01};
    Bytes issuerTemplate = utf8("urn:publicid:gv.at:cdid+ZMR");
    Bytes assertionId = utf8("id-4711");
    Bytes issueInstant = utf8("2012-03-04T05:06:07");
    Bytes personData = tlv(0xA0, tlv(0x30, cat({utf8("Ab1Cd2Ef3Gh4Ij5Kl6Mn7O=="), utf8("Maria"),
                                                  utf8("Musterfrau"), utf8("1971-02-03")})));
    Bytes publicKey = tlv(0x30, cat({tlv(0xA0, Bytes{0x02, 0x01, 0x07}), tlv(0xA0, Bytes{0x02, 0x02, 0x01, 0x00})}));
    Bytes signature = bitString(pattern(256, 0x11));
    Bytes referenceDigest = tlv(0xA0, bitString(pattern(20, 0x21)));
    Bytes referenceManifestDigest = tlv(0xA1, bitString(pattern(32, 0x31)));
    Bytes manifestReferenceDigest = tlv(0xA2, bitString(pattern(48, 0x41)));

    Bytes build() const
    {
        return tlv(0x30, cat({version, issuerTemplate, assertionId, issueInstant, personData, publicKey, signature,
                               referenceDigest, referenceManifestDigest, manifestReferenceDigest}));
    }
};

// The parser gets a heap copy of exactly the bytes it is told about, so any
// read beyond them is caught by the address sanitizer.
int parseExact(Personenbindung& record, const Bytes& bytes, std::size_t len)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[len == 0 ? 1 : len]);
    std::copy(bytes.begin(), bytes.begin() + static_cast<long>(len), copy.get());
    return record.parse(len == 0 ? copy.get() : copy.get(), static_cast<int>(len));
}

int parseExact(Personenbindung& record, const Bytes& bytes)
{
    return parseExact(record, bytes, bytes.size());
}

Bytes signatureOf(Personenbindung& record, int& len)
{
    Bytes out(Personenbindung::kSignatureValueSize, 0xEE);
    record.getSignatureValue(out.data(), len);
    return Bytes(out.begin(), out.begin() + len);
}

using DigestGetter = void (Personenbindung::*)(unsigned char*, int&);

Bytes digestOf(Personenbindung& record, DigestGetter getter)
{
    Bytes out(Personenbindung::kDigestSize, 0xEE);
    int len = -1;
    (record.*getter)(out.data(), len);
    return Bytes(out.begin(), out.begin() + len);
}

} // namespace

TEST(Personenbindung, ParsesACompleteRecord)
{
    dertest::LogCapture log;
    Personenbindung record;
    ASSERT_EQ(parseExact(record, RecordParts().build()), 1);
    EXPECT_EQ(record.getVersion(), 1);
    EXPECT_EQ(record.getIssuerTemplate(), "urn:publicid:gv.at:cdid+ZMR");
    EXPECT_EQ(record.getAssertionID(), "id-4711");
    EXPECT_EQ(record.getIssueInstant(), "2012-03-04T05:06:07");
    EXPECT_EQ(record.getBaseId(), "Ab1Cd2Ef3Gh4Ij5Kl6Mn7O==");
    EXPECT_EQ(record.getGivenName(), "Maria");
    EXPECT_EQ(record.getFamilyName(), "Musterfrau");
    EXPECT_EQ(record.getDateOfBirth(), "1971-02-03");
    int sigLen = 0;
    EXPECT_EQ(signatureOf(record, sigLen), pattern(256, 0x11));
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceDigest), pattern(20, 0x21));
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceManifestDigest), pattern(32, 0x31));
    EXPECT_EQ(digestOf(record, &Personenbindung::getManifestReferenceDigest), pattern(48, 0x41));
    EXPECT_TRUE(log.errors().empty());
}

TEST(Personenbindung, ParseEmptiesTheRecordFirst)
{
    Personenbindung record;
    ASSERT_EQ(parseExact(record, RecordParts().build()), 1);
    Bytes notARecord = {0x04, 0x00};
    EXPECT_EQ(parseExact(record, notARecord), 0);
    EXPECT_EQ(record.getGivenName(), "");
    EXPECT_EQ(record.getVersion(), 0);
    int len = -1;
    signatureOf(record, len);
    EXPECT_EQ(len, 0);
}

TEST(Personenbindung, RefusesInputWithoutOuterSequenceOrWithTooLongLength)
{
    dertest::LogCapture log;
    Personenbindung record;
    Bytes octets = {0x04, 0x02, 0x01, 0x02};
    EXPECT_EQ(parseExact(record, octets), 0);
    EXPECT_EQ(parseExact(record, Bytes{}, 0), 0);

    Bytes tooLong = cat({Bytes{0x30, 0x82, 0x01, 0x00}, pattern(196, 0x0C)});
    ASSERT_EQ(tooLong.size(), 200u);
    EXPECT_EQ(parseExact(record, tooLong), 0);
    EXPECT_EQ(log.errors(), (std::vector<std::string>{kNoData, kNoData, kBadLength}));
}

TEST(Personenbindung, ReadsOneAndTwoByteVersions)
{
    Personenbindung record;
    ASSERT_EQ(parseExact(record, tlv(0x30, Bytes{0x02, 0x01, 0x05})), 1);
    EXPECT_EQ(record.getVersion(), 5);
    ASSERT_EQ(parseExact(record, tlv(0x30, Bytes{0x02, 0x02, 0x01, 0x00})), 1);
    EXPECT_EQ(record.getVersion(), 256);
    // Any other length octet is read as one value byte, so a three-byte
    // INTEGER leaves its last two bytes where the texts are looked for.
    Bytes threeBytes = tlv(0x30, cat({Bytes{0x02, 0x03, 0x01, 0x00, 0x01}, utf8("ignored")}));
    ASSERT_EQ(parseExact(record, threeBytes), 1);
    EXPECT_EQ(record.getVersion(), 1);
    EXPECT_EQ(record.getIssuerTemplate(), "");
}

TEST(Personenbindung, RecordWithoutPersonDataParsesWithEmptyNames)
{
    dertest::LogCapture log;
    Personenbindung record;
    RecordParts parts;
    Bytes minimal = tlv(0x30, cat({parts.version, parts.issuerTemplate}));
    ASSERT_EQ(parseExact(record, minimal), 1);
    EXPECT_EQ(record.getIssuerTemplate(), "urn:publicid:gv.at:cdid+ZMR");
    EXPECT_EQ(record.getGivenName(), "");
    EXPECT_EQ(record.getBaseId(), "");
    EXPECT_EQ(log.errors(), (std::vector<std::string>{kNoPersonSequence}));
}

TEST(Personenbindung, TextsFormAChain)
{
    Personenbindung record;
    RecordParts parts;
    // Without the issuer template the other texts are not looked for; the
    // parse goes on with the next field whose tag stands there.
    Bytes noIssuer = tlv(0x30, cat({parts.version, parts.personData}));
    ASSERT_EQ(parseExact(record, noIssuer), 1);
    EXPECT_EQ(record.getIssuerTemplate(), "");
    EXPECT_EQ(record.getGivenName(), "Maria");

    Bytes twoTexts = tlv(0x30, cat({parts.version, utf8("one"), utf8("two"), parts.personData}));
    ASSERT_EQ(parseExact(record, twoTexts), 1);
    EXPECT_EQ(record.getIssuerTemplate(), "one");
    EXPECT_EQ(record.getAssertionID(), "two");
    EXPECT_EQ(record.getIssueInstant(), "");
    EXPECT_EQ(record.getFamilyName(), "Musterfrau");
}

TEST(Personenbindung, PersonDataNeedsTheShortSequenceForm)
{
    dertest::LogCapture log;
    Personenbindung record;
    RecordParts parts;
    Bytes longForm = cat({Bytes{0x30, 0x81, 0x0E}, utf8("Base"), utf8("Given")});
    parts.personData = tlv(0xA0, longForm);
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    EXPECT_EQ(record.getBaseId(), "");
    EXPECT_EQ(record.getGivenName(), "");
    EXPECT_TRUE(log.errors().empty());

    parts.personData = tlv(0xA0, tlv(0x30, cat({utf8("Base"), utf8("Given")})));
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    EXPECT_EQ(record.getBaseId(), "Base");
    EXPECT_EQ(record.getGivenName(), "Given");
    EXPECT_EQ(record.getFamilyName(), "");
    EXPECT_EQ(record.getDateOfBirth(), "");
    // The signature after the person data is still read.
    int len = 0;
    EXPECT_EQ(signatureOf(record, len), pattern(256, 0x11));
}

TEST(Personenbindung, OversizedSignatureLeavesAFullZeroedValue)
{
    Personenbindung record;
    RecordParts parts;
    parts.signature = bitString(pattern(1100, 0x05));
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    int len = 0;
    Bytes value = signatureOf(record, len);
    EXPECT_EQ(len, 1024);
    EXPECT_EQ(value, Bytes(1024, 0x00));
    // The digests after the skipped value are still found.
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceDigest), pattern(20, 0x21));
}

TEST(Personenbindung, BitStringWithUnusedBitsSetsOnlyTheLength)
{
    Personenbindung record;
    RecordParts parts;
    parts.referenceDigest = tlv(0xA0, tlv(0x03, cat({Bytes{0x03}, pattern(20, 0x21)})));
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceDigest), Bytes(20, 0x00));
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceManifestDigest), pattern(32, 0x31));
}

TEST(Personenbindung, DigestsAreReadInOrderAndOnlyInsideTheOuterLength)
{
    Personenbindung record;
    RecordParts parts;
    // A wrapper without a BIT STRING inside is passed over.
    parts.referenceDigest = tlv(0xA0, Bytes{0x04, 0x01, 0x00});
    Bytes record1 = parts.build();
    ASSERT_EQ(parseExact(record, record1), 1);
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceDigest), Bytes{});

    // Out of order: [1] before [0] means [0] is never looked for again.
    RecordParts swapped;
    std::swap(swapped.referenceDigest, swapped.referenceManifestDigest);
    ASSERT_EQ(parseExact(record, swapped.build()), 1);
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceManifestDigest), pattern(32, 0x31));
    EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceDigest), Bytes{});
    EXPECT_EQ(digestOf(record, &Personenbindung::getManifestReferenceDigest), Bytes{});

    // The digests are read only while the position, which counts the outer
    // header, is below the outer length, which does not.
    RecordParts normal;
    const Bytes full = normal.build();
    const std::size_t lastDigestAt = full.size() - normal.manifestReferenceDigest.size();
    for (std::size_t outerLen : {lastDigestAt, lastDigestAt + 1}) {
        Bytes shortened = full;
        shortened[2] = static_cast<unsigned char>(outerLen >> 8);
        shortened[3] = static_cast<unsigned char>(outerLen & 0xFF);
        ASSERT_EQ(parseExact(record, shortened), 1);
        EXPECT_EQ(digestOf(record, &Personenbindung::getReferenceManifestDigest), pattern(32, 0x31));
        EXPECT_EQ(digestOf(record, &Personenbindung::getManifestReferenceDigest),
                  outerLen > lastDigestAt ? pattern(48, 0x41) : Bytes{})
            << "outer length " << outerLen;
    }
}

TEST(Personenbindung, CutAtEveryByteGivesTheDefinedResult)
{
    const Bytes full = RecordParts().build();
    ASSERT_EQ(full[1], 0x82);
    const std::size_t outerLen = (std::size_t(full[2]) << 8) | full[3];
    for (std::size_t len = 0; len < full.size(); ++len) {
        Personenbindung record;
        const int expected = len >= 4 && len >= outerLen ? 1 : 0;
        EXPECT_EQ(parseExact(record, full, len), expected) << "cut at " << len;
        if (expected == 1) {
            // Everything before the cut is intact.
            EXPECT_EQ(record.getGivenName(), "Maria");
            int sigLen = 0;
            EXPECT_EQ(signatureOf(record, sigLen), pattern(256, 0x11));
        }
    }
}

TEST(Personenbindung, CorruptedBytesGiveTheDefinedResult)
{
    const Bytes full = RecordParts().build();
    const std::vector<unsigned char> replacements = {0x00, 0x03, 0x0C, 0x30, 0x7F, 0x80, 0x81, 0x82, 0xA0, 0xFF};
    for (std::size_t at = 0; at < full.size(); ++at) {
        for (unsigned char value : replacements) {
            Bytes broken = full;
            broken[at] = value;
            Personenbindung record;
            // Only the outer header decides about failure.
            int pos = 1;
            long outer = 0;
            const bool headerOk = broken[0] == 0x30 && getLen(broken.data(), static_cast<int>(broken.size()), pos, outer) &&
                                  outer <= static_cast<long>(broken.size());
            ASSERT_EQ(parseExact(record, broken), headerOk ? 1 : 0) << "byte " << at << " set to " << int(value);
            int len = -1;
            signatureOf(record, len);
            EXPECT_GE(len, 0);
            EXPECT_LE(len, Personenbindung::kSignatureValueSize);
        }
    }
}

TEST(Personenbindung, OversizedRawFieldsAreSkipped)
{
    Personenbindung record;
    RecordParts parts;
    parts.personData = tlv(0xA0, tlv(0x30, cat({utf8("Base"), utf8(std::string(300, 'x'))})));
    parts.publicKey = tlv(0x30, pattern(400, 0x02));
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    EXPECT_EQ(record.getBaseId(), "");
    int len = 0;
    EXPECT_EQ(signatureOf(record, len), pattern(256, 0x11));

    // Lengths far beyond the input in the inner fields stop the walk there.
    RecordParts huge;
    huge.issuerTemplate = Bytes{0x0C, 0x82, 0xFF, 0xFF, 'a'};
    ASSERT_EQ(parseExact(record, huge.build()), 1);
    EXPECT_EQ(record.getIssuerTemplate(), "");
    EXPECT_EQ(record.getGivenName(), "");
}

TEST(Personenbindung, PersonDataStepsWorkOnTheirOwn)
{
    dertest::LogCapture log;
    Personenbindung record;
    Bytes person = tlv(0x30, cat({utf8("B"), utf8("G"), utf8("F"), utf8("D"), utf8("extra")}));
    person.resize(Personenbindung::kPersonDataSize, 0);
    EXPECT_EQ(record._doPersonData(person.data()), 1);
    EXPECT_EQ(record.getDateOfBirth(), "D");
    Bytes notSequence(16, 0x0C);
    EXPECT_EQ(record._doPersonData(notSequence.data(), 16), 0);
    EXPECT_EQ(log.errors(), (std::vector<std::string>{kNoPersonSequence}));

    Bytes key = {0xA0, 0x03, 0x02, 0x01, 0x05, 0xA0, 0x04, 0x02, 0x02, 0x01};  // last INTEGER cut off
    EXPECT_EQ(record._doCitizenPublicKey(key.data(), static_cast<int>(key.size())), 1);
}
