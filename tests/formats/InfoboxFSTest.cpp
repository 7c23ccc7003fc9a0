// Infobox file: parsing (header, versions, end conditions, broken entries),
// writing back byte for byte, the entry list operations and the tag labels.
#include <gtest/gtest.h>

#include <vector>

#include "formats/InfoboxFS.h"

using Korvex::ByteArray;
using LibInfobox::InfoboxFS;
using Bytes = std::vector<unsigned char>;

namespace {

ByteArray bytesOf(const Bytes& b)
{
    return ByteArray(b);
}

Bytes vectorOf(const ByteArray& b)
{
    return b.ToVector();
}

Bytes entry(unsigned char tag, unsigned char type, const Bytes& data)
{
    Bytes out = {tag, type, static_cast<unsigned char>(data.size() & 0xFF),
                 static_cast<unsigned char>((data.size() >> 8) & 0xFF)};
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

Bytes file(unsigned char version, std::initializer_list<Bytes> entries)
{
    Bytes out = {'A', 'I', 'K', version};
    for (const Bytes& e : entries)
        out.insert(out.end(), e.begin(), e.end());
    return out;
}

} // namespace

TEST(InfoboxFS, ParsesOneEntryEndedByZeroTag)
{
    InfoboxFS fs;
    Bytes raw = {0x41, 0x49, 0x4B, 0x01, 0x01, 0x00, 0x03, 0x00, 0x61, 0x62, 0x63, 0x00};
    ASSERT_TRUE(fs.ParseInfoboxData(bytesOf(raw)));
    ASSERT_EQ(fs.GetEntryCount(), 1u);
    unsigned char type = 0xEE;
    ByteArray data;
    ASSERT_TRUE(fs.GetEntry(1, type, data));
    EXPECT_EQ(type, 0);
    EXPECT_EQ(vectorOf(data), (Bytes{0x61, 0x62, 0x63}));
}

TEST(InfoboxFS, AcceptsVersionsZeroAndOneOnly)
{
    const Bytes entries = entry(2, 1, {0x10, 0x20});
    for (unsigned char version : {0, 1, 2, 0xFF}) {
        InfoboxFS fs;
        Bytes raw = file(version, {entries});
        EXPECT_EQ(fs.ParseInfoboxData(bytesOf(raw)), version <= 1) << "version " << int(version);
        EXPECT_EQ(fs.GetEntryCount(), version <= 1 ? 1u : 0u);
    }
}

TEST(InfoboxFS, RefusesBadHeaders)
{
    InfoboxFS fs;
    EXPECT_FALSE(fs.ParseInfoboxData(ByteArray()));
    EXPECT_FALSE(fs.ParseInfoboxData(bytesOf({'A', 'I', 'K'})));
    EXPECT_FALSE(fs.ParseInfoboxData(bytesOf({'A', 'I'})));
    EXPECT_FALSE(fs.ParseInfoboxData(bytesOf({'a', 'I', 'K', 1, 1, 0, 1, 0, 1})));
    EXPECT_FALSE(fs.ParseInfoboxData(bytesOf({'A', 'I', 'X', 1, 1, 0, 1, 0, 1})));
    EXPECT_EQ(fs.GetEntryCount(), 0u);
    // A bare header is a valid, empty file.
    EXPECT_TRUE(fs.ParseInfoboxData(bytesOf({'A', 'I', 'K', 1})));
    EXPECT_EQ(fs.GetEntryCount(), 0u);
}

TEST(InfoboxFS, EntryNeedsFiveBytesToBeRead)
{
    // An empty entry as the very last four bytes is not read.
    InfoboxFS fs;
    Bytes raw = file(1, {entry(1, 0, {0x61}), entry(2, 0, {})});
    ASSERT_TRUE(fs.ParseInfoboxData(bytesOf(raw)));
    EXPECT_EQ(fs.GetTagList(), (Bytes{1}));

    // With one more byte behind it, it is.
    InfoboxFS padded;
    raw.push_back(0x00);
    ASSERT_TRUE(padded.ParseInfoboxData(bytesOf(raw)));
    EXPECT_EQ(padded.GetTagList(), (Bytes{1, 2}));
    EXPECT_EQ(padded.GetEntries()[1]->GetData().GetLength(), 0u);
}

TEST(InfoboxFS, EntryRunningPastTheEndFailsAndKeepsEarlierEntries)
{
    InfoboxFS fs;
    Bytes raw = file(1, {entry(1, 0, {0x61}), entry(5, 0, {0x62, 0x63})});
    raw.resize(raw.size() - 1);  // last entry claims two bytes, has one
    EXPECT_FALSE(fs.ParseInfoboxData(bytesOf(raw)));
    EXPECT_EQ(fs.GetTagList(), (Bytes{1}));

    // A length near 64 KiB in a small file.
    InfoboxFS big;
    Bytes huge = {'A', 'I', 'K', 1, 3, 0, 0xFF, 0xFF, 0x00, 0x00};
    EXPECT_FALSE(big.ParseInfoboxData(bytesOf(huge)));
    EXPECT_EQ(big.GetEntryCount(), 0u);
}

TEST(InfoboxFS, ParsingAgainWithoutClearAppends)
{
    InfoboxFS fs;
    Bytes raw = file(1, {entry(1, 0, {0x61}), entry(2, 1, {0x62})});
    ASSERT_TRUE(fs.ParseInfoboxData(bytesOf(raw)));
    ASSERT_TRUE(fs.ParseInfoboxData(bytesOf(raw)));
    EXPECT_EQ(fs.GetTagList(), (Bytes{1, 2, 1, 2}));
    fs.Clear();
    EXPECT_EQ(fs.GetEntryCount(), 0u);
}

TEST(InfoboxFS, WritesAParsedFileBackByteForByte)
{
    Bytes big(0x1234, 0x5A);  // both length bytes in use
    for (unsigned char version : {0, 1}) {
        Bytes raw = file(version, {entry(1, 0x01, {0x30, 0x03, 0x02, 0x01, 0x01}), entry(2, 0x00, {}),
                                   entry(0x80, 0xFF, big), entry(1, 0x02, {0x77})});
        InfoboxFS fs;
        ASSERT_TRUE(fs.ParseInfoboxData(bytesOf(raw)));
        ASSERT_EQ(fs.GetEntryCount(), 4u);
        Bytes expected = raw;
        expected[3] = 1;  // always written as version 1
        EXPECT_EQ(vectorOf(fs.GetCompleteFile()), expected);

        // GetCompleteFile appends to what is already there.
        ByteArray out(Bytes{0xDE, 0xAD});
        ASSERT_TRUE(fs.GetCompleteFile(out));
        Bytes prefixed = {0xDE, 0xAD};
        prefixed.insert(prefixed.end(), expected.begin(), expected.end());
        EXPECT_EQ(vectorOf(out), prefixed);
    }
}

TEST(InfoboxFS, PaddingIsDroppedOnWriting)
{
    Bytes raw = file(1, {entry(3, 0, {0x01, 0x02})});
    Bytes padded = raw;
    padded.resize(raw.size() + 32, 0x00);
    InfoboxFS fs;
    ASSERT_TRUE(fs.ParseInfoboxData(bytesOf(padded)));
    EXPECT_EQ(vectorOf(fs.GetCompleteFile()), raw);
}

TEST(InfoboxFS, BuildsAFileFromAddedEntries)
{
    InfoboxFS fs;
    ASSERT_TRUE(fs.AddEntry(1, 0x01, bytesOf({0xAA})));
    ASSERT_TRUE(fs.AddEntry(2, 0x00, bytesOf({0xBB, 0xCC})));
    // Adding an existing tag replaces type and data in place.
    ASSERT_TRUE(fs.AddEntry(1, 0x00, bytesOf({0x11, 0x22, 0x33})));
    EXPECT_EQ(fs.GetTagList(), (Bytes{1, 2}));
    EXPECT_EQ(vectorOf(fs.GetCompleteFile()), file(1, {entry(1, 0, {0x11, 0x22, 0x33}), entry(2, 0, {0xBB, 0xCC})}));

    InfoboxFS reread;
    ASSERT_TRUE(reread.ParseInfoboxData(fs.GetCompleteFile()));
    unsigned char type = 0xEE;
    ByteArray data;
    ASSERT_TRUE(reread.GetEntry(2, type, data));
    EXPECT_EQ(vectorOf(data), (Bytes{0xBB, 0xCC}));
}

TEST(InfoboxFS, LengthAbove64KiBKeepsOnlyItsLow16Bits)
{
    InfoboxFS fs;
    Bytes data(65536 + 3, 0x42);
    fs.AddEntry(4, 0, ByteArray(data));
    Bytes out = vectorOf(fs.GetCompleteFile());
    ASSERT_EQ(out.size(), 4u + 4u + data.size());
    EXPECT_EQ(out[6], 3);
    EXPECT_EQ(out[7], 0);
}

TEST(InfoboxFS, LookupsFindTheFirstEntryOfATag)
{
    InfoboxFS fs;
    Bytes raw = file(1, {entry(7, 0x01, {0x01}), entry(1, 0x00, {0x02}), entry(7, 0x02, {0x03})});
    ASSERT_TRUE(fs.ParseInfoboxData(bytesOf(raw)));
    unsigned long index = 99;
    EXPECT_TRUE(fs.GetEntryId(7, index));
    EXPECT_EQ(index, 0u);
    EXPECT_TRUE(fs.GetEntryId(1, index));
    EXPECT_EQ(index, 1u);
    EXPECT_FALSE(fs.GetEntryId(2, index));
    EXPECT_EQ(index, 3u);

    unsigned char type = 0xEE;
    ByteArray data(Bytes{0x99});
    EXPECT_TRUE(fs.GetEntry(7, type, data));
    EXPECT_EQ(type, 0x01);
    EXPECT_EQ(vectorOf(data), (Bytes{0x01}));
    type = 0xEE;
    EXPECT_FALSE(fs.GetEntry(9, type, data));
    EXPECT_EQ(type, 0xEE);
    EXPECT_EQ(vectorOf(data), (Bytes{0x01}));

    EXPECT_TRUE(fs.HasEntry(static_cast<unsigned char>(1)));
    EXPECT_FALSE(fs.HasEntry(static_cast<unsigned char>(2)));
    EXPECT_TRUE(fs.HasEntry(std::string("PERSONENBINDUNG")));
    EXPECT_FALSE(fs.HasEntry(std::string("RFU")));
}

TEST(InfoboxFS, TagLabelsAndTheirNonInverseMapping)
{
    EXPECT_EQ(InfoboxFS::TagToLabel(1), "PERSONENBINDUNG");
    EXPECT_EQ(InfoboxFS::TagToLabel(2), "RFU1");
    EXPECT_EQ(InfoboxFS::TagToLabel(7), "RFU2");
    EXPECT_EQ(InfoboxFS::TagToLabel(0), "RFU2");
    EXPECT_EQ(InfoboxFS::LabelToTag("PERSONENBINDUNG"), 1);
    EXPECT_EQ(InfoboxFS::LabelToTag("RFU"), 2);
    EXPECT_EQ(InfoboxFS::LabelToTag("RFU1"), 0);
    EXPECT_EQ(InfoboxFS::LabelToTag("RFU2"), 0);
    EXPECT_EQ(InfoboxFS::LabelToTag("personenbindung"), 0);
    EXPECT_EQ(InfoboxFS::LabelToTag("RF"), 0);
    EXPECT_EQ(InfoboxFS::LabelToTag(""), 0);
}
