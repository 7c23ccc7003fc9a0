// Infobox file: header and versions, end conditions, broken entries, writing
// back byte for byte, the entry list operations and the tag labels.
#include "tests/support/TestCommon.h"

#include "formats/InfoboxFS.h"

using Korvex::ByteArray;
using LibInfobox::InfoboxFS;
using Bytes = std::vector<unsigned char>;

namespace {

Bytes entry(unsigned char tag, unsigned char type, const Bytes& data)
{
    Bytes out = {tag, type, static_cast<unsigned char>(data.size()), static_cast<unsigned char>(data.size() >> 8)};
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

bool parse(InfoboxFS& fs, const Bytes& raw) { return fs.ParseInfoboxData(ByteArray(raw)); }

} // namespace

TEST(InfoboxFS, HeaderAndVersions)
{
    for (unsigned char version : {0, 1, 2, 0xFF}) {
        InfoboxFS fs;
        EXPECT_EQ(parse(fs, file(version, {entry(2, 1, {0x10})})), version <= 1);
        EXPECT_EQ(fs.GetEntryCount(), version <= 1 ? 1u : 0u);
    }
    InfoboxFS fs;
    for (const Bytes& bad : {Bytes{}, Bytes{'A', 'I'}, Bytes{'A', 'I', 'K'}, Bytes{'a', 'I', 'K', 1, 1, 0, 0, 0, 0},
                             Bytes{'A', 'I', 'X', 1, 1, 0, 0, 0, 0}})
        EXPECT_FALSE(parse(fs, bad));
    EXPECT_TRUE(parse(fs, {'A', 'I', 'K', 1}));
    EXPECT_EQ(fs.GetEntryCount(), 0u);
}

TEST(InfoboxFS, EndConditionsAndBrokenEntries)
{
    // An empty entry as the last four bytes is not read; one more byte and it is.
    Bytes raw = file(1, {entry(1, 0, {0x61}), entry(2, 0, {})});
    InfoboxFS fs;
    ASSERT_TRUE(parse(fs, raw));
    EXPECT_EQ(fs.GetTagList(), (Bytes{1}));
    raw.push_back(0x00);
    InfoboxFS padded;
    ASSERT_TRUE(parse(padded, raw));
    EXPECT_EQ(padded.GetTagList(), (Bytes{1, 2}));

    // An entry running past the end fails; the entries before it stay.
    Bytes cut = file(1, {entry(1, 0, {0x61}), entry(5, 0, {0x62, 0x63})});
    cut.pop_back();
    InfoboxFS broken;
    EXPECT_FALSE(parse(broken, cut));
    EXPECT_EQ(broken.GetTagList(), (Bytes{1}));
    EXPECT_FALSE(parse(broken, {'A', 'I', 'K', 1, 3, 0, 0xFF, 0xFF, 0x00, 0x00}));

    // Parsing again without Clear() appends.
    EXPECT_TRUE(parse(padded, raw));
    EXPECT_EQ(padded.GetTagList(), (Bytes{1, 2, 1, 2}));
    padded.Clear();
    EXPECT_EQ(padded.GetEntryCount(), 0u);
}

TEST(InfoboxFS, WritesAParsedFileBackByteForByte)
{
    for (unsigned char version : {0, 1}) {
        Bytes raw = file(version, {entry(1, 0x01, {0x30, 0x00}), entry(2, 0x00, {}), entry(0x80, 0xFF, Bytes(0x1234, 0x5A)),
                                   entry(1, 0x02, {0x77})});
        Bytes padded = raw;
        padded.resize(raw.size() + 16, 0x00);
        InfoboxFS fs;
        ASSERT_TRUE(parse(fs, padded));
        raw[3] = 1;  // always written as version 1, without the padding
        EXPECT_EQ(fs.GetCompleteFile().ToVector(), raw);
        ByteArray out(Bytes{0xDE, 0xAD});  // appends to what is there
        ASSERT_TRUE(fs.GetCompleteFile(out));
        EXPECT_EQ(out.GetLength(), 2 + raw.size());
        EXPECT_EQ(out[0], 0xDE);
    }
}

TEST(InfoboxFS, AddEntryReplacesOrAppendsAndLengthKeepsLow16Bits)
{
    InfoboxFS fs;
    fs.AddEntry(1, 0x01, ByteArray(Bytes{0xAA}));
    fs.AddEntry(2, 0x00, ByteArray(Bytes{0xBB, 0xCC}));
    fs.AddEntry(1, 0x00, ByteArray(Bytes{0x11, 0x22}));
    EXPECT_EQ(fs.GetCompleteFile().ToVector(), file(1, {entry(1, 0, {0x11, 0x22}), entry(2, 0, {0xBB, 0xCC})}));

    fs.AddEntry(4, 0, ByteArray(Bytes(65536 + 3, 0x42)));
    const Bytes out = fs.GetCompleteFile().ToVector();
    const std::size_t at = file(1, {entry(1, 0, {0x11, 0x22}), entry(2, 0, {0xBB, 0xCC})}).size();
    EXPECT_EQ(Bytes(out.begin() + at, out.begin() + at + 4), (Bytes{4, 0, 3, 0}));
    EXPECT_EQ(out.size(), at + 4 + 65539);
}

TEST(InfoboxFS, LookupsFindTheFirstEntryOfATag)
{
    InfoboxFS fs;
    ASSERT_TRUE(parse(fs, file(1, {entry(7, 0x01, {0x01}), entry(1, 0x00, {0x02}), entry(7, 0x02, {0x03})})));
    unsigned long index = 99;
    EXPECT_TRUE(fs.GetEntryId(1, index));
    EXPECT_EQ(index, 1u);
    EXPECT_FALSE(fs.GetEntryId(2, index));
    EXPECT_EQ(index, 3u);
    unsigned char type = 0xEE;
    ByteArray data(Bytes{0x99});
    EXPECT_TRUE(fs.GetEntry(7, type, data));
    EXPECT_EQ(type, 0x01);
    EXPECT_EQ(data.ToVector(), (Bytes{0x01}));
    EXPECT_FALSE(fs.GetEntry(9, type, data));
    EXPECT_EQ(type, 0x01);
    EXPECT_TRUE(fs.HasEntry(std::string("PERSONENBINDUNG")));
    EXPECT_FALSE(fs.HasEntry(std::string("RFU")));
    EXPECT_FALSE(fs.HasEntry(static_cast<unsigned char>(2)));
}

TEST(InfoboxFS, TagLabelsAndTheirNonInverseMapping)
{
    // TagToLabel: InfoboxBereichTest.InfoboxFileListsEntriesByTagAndLabel lists tags 1 to 3.
    EXPECT_EQ(InfoboxFS::LabelToTag("PERSONENBINDUNG"), 1);
    EXPECT_EQ(InfoboxFS::LabelToTag("RFU"), 2);
    for (const char* other : {"RFU1", "RFU2", "personenbindung", "RF", ""})
        EXPECT_EQ(InfoboxFS::LabelToTag(other), 0) << other;
}
