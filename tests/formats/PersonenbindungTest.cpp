// Identity link parsing: a complete record built field by field, the defined
// results of broken and incomplete records, and every byte corrupted, which
// must never read outside the input (checked by the sanitizer build).
#include "tests/support/TestCommon.h"

#include "formats/Asn1.h"
#include "formats/Personenbindung.h"
#include "tests/formats/DerBuilder.h"
#include "formats/Asn1Log.h"

using namespace Korvex;
using namespace dertest;

namespace {

struct RecordParts {
    Bytes head = cat({Bytes{0x02, 0x01, 0x01}, utf8("urn:publicid:gv.at:cdid+ZMR"), utf8("id-4711"), utf8("2012-03-04")});
    Bytes personData = tlv(0xA0, tlv(0x30, cat({utf8("Ab1Cd2=="), utf8("Maria"), utf8("Musterfrau"), utf8("1971-02-03")})));
    Bytes publicKey = tlv(0x30, cat({tlv(0xA0, Bytes{0x02, 0x01, 0x07}), tlv(0xA0, Bytes{0x02, 0x02, 0x01, 0x00})}));
    Bytes signature = bitString(pattern(256, 0x11));
    Bytes digest0 = tlv(0xA0, bitString(pattern(20, 0x21)));
    Bytes digest1 = tlv(0xA1, bitString(pattern(32, 0x31)));
    Bytes digest2 = tlv(0xA2, bitString(pattern(48, 0x41)));

    Bytes build() const { return tlv(0x30, cat({head, personData, publicKey, signature, digest0, digest1, digest2})); }
};

int parseExact(Personenbindung& record, const Bytes& bytes, std::size_t len)
{
    return record.parse(exactCopy(bytes, len).get(), static_cast<int>(len));
}
int parseExact(Personenbindung& record, const Bytes& bytes) { return parseExact(record, bytes, bytes.size()); }

using Getter = void (Personenbindung::*)(unsigned char*, int&);
Bytes stored(Personenbindung& record, Getter getter)
{
    Bytes out(Personenbindung::kSignatureValueSize, 0xEE);
    int len = -1;
    (record.*getter)(out.data(), len);
    EXPECT_GE(len, 0);
    return Bytes(out.begin(), out.begin() + std::max(len, 0));
}
const Getter kSignature = &Personenbindung::getSignatureValue;
const Getter kDigest0 = &Personenbindung::getReferenceDigest;
const Getter kDigest1 = &Personenbindung::getReferenceManifestDigest;
const Getter kDigest2 = &Personenbindung::getManifestReferenceDigest;

} // namespace

TEST(Personenbindung, ParsesACompleteRecord)
{
    TestSupport::LogCapture log(LibAsn1::acPKCS11_SetErrorLoggingFunc);
    Personenbindung record;
    ASSERT_EQ(parseExact(record, RecordParts().build()), 1);
    // Every text field: IdentityLinkBuilder.RecordParsesBackIntoItsFieldsWithAnExactOuterLength.
    EXPECT_EQ(record.getVersion(), 1);
    EXPECT_EQ(stored(record, kSignature), pattern(256, 0x11));
    EXPECT_EQ(stored(record, kDigest0), pattern(20, 0x21));
    EXPECT_EQ(stored(record, kDigest1), pattern(32, 0x31));
    EXPECT_EQ(stored(record, kDigest2), pattern(48, 0x41));
    EXPECT_TRUE(log.errors().empty());
}

TEST(Personenbindung, DefinedResultsOfBrokenAndIncompleteRecords)
{
    TestSupport::LogCapture log(LibAsn1::acPKCS11_SetErrorLoggingFunc);
    Personenbindung record;
    RecordParts parts;
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    EXPECT_EQ(parseExact(record, Bytes{0x04, 0x02, 0x01, 0x02}), 0);
    EXPECT_EQ(record.getGivenName(), "");
    EXPECT_EQ(stored(record, kSignature), Bytes{});
    EXPECT_EQ(parseExact(record, cat({Bytes{0x30, 0x82, 0x01, 0x00}, pattern(196, 0x0C)})), 0);
    ASSERT_EQ(parseExact(record, tlv(0x30, Bytes{0x02, 0x02, 0x01, 0x00})), 1);
    EXPECT_EQ(record.getVersion(), 256);
    ASSERT_EQ(parseExact(record, tlv(0x30, parts.head)), 1);
    EXPECT_EQ(record.getGivenName(), "");
    EXPECT_EQ(log.errors(), (std::vector<std::string>{"Keine Personenbindungsdaten",
                                                  "Fehler beim Lesen der Personenbindung Lnge passt nicht",
                                                  "Personenbindung::_doPersonData keine Sequence",
                                                  "Personenbindung::_doPersonData keine Sequence"}));

    // The long form of the person data's length gives no names and no message.
    parts.personData = tlv(0xA0, cat({Bytes{0x30, 0x81, 0x0D}, utf8("Base"), utf8("Given")}));
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    EXPECT_EQ(record.getBaseId(), "");
    EXPECT_EQ(log.errors().size(), 4u);

    parts.personData = tlv(0xA0, tlv(0x30, cat({utf8("Base"), utf8("Given")})));
    parts.signature = bitString(pattern(1100, 0x05));
    ASSERT_EQ(parseExact(record, parts.build()), 1);
    EXPECT_EQ(record.getGivenName(), "Given");
    EXPECT_EQ(record.getFamilyName() + record.getDateOfBirth(), "");
    EXPECT_EQ(stored(record, kSignature), Bytes(1024, 0x00));
    EXPECT_EQ(stored(record, kDigest0), pattern(20, 0x21));
}

TEST(Personenbindung, CorruptedBytesFailOnlyInTheOuterHeader)
{
    const Bytes full = RecordParts().build();
    for (std::size_t at = 0; at < full.size(); ++at) {
        for (unsigned char value : {0x00, 0x03, 0x0C, 0x30, 0x7F, 0x81, 0x82, 0xA0, 0xFF}) {
            Bytes broken = full;
            broken[at] = value;
            int pos = 1;
            long outer = 0;
            const bool headerOk = broken[0] == 0x30 && getLen(broken.data(), int(broken.size()), pos, outer) &&
                                  outer <= long(broken.size());
            Personenbindung record;
            ASSERT_EQ(parseExact(record, broken), headerOk ? 1 : 0) << "byte " << at << " = " << int(value);
            EXPECT_LE(stored(record, kSignature).size(), 1024u);
        }
    }
}
