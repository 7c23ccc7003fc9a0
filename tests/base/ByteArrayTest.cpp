// Byte buffer: construction, comparison, hex formatting and file loading.
#include "base/ByteArray.h"

#include "tests/support/TestCommon.h"

#include <stdexcept>

using Korvex::ByteArray;

namespace {

ByteArray Bytes(std::initializer_list<unsigned char> list)
{
    return ByteArray(std::vector<unsigned char>(list));
}

} // namespace

TEST(ByteArray, ConstructorsCopyRawBytesAndWideTextsLowByteFirst)
{
    EXPECT_EQ(Bytes({0x30, 0x41}), ByteArray(std::string("0A"))) << "a text is copied, never parsed";
    const unsigned char raw[] = {1, 2, 3};
    EXPECT_EQ(Bytes({1, 2, 3}), ByteArray(raw, 3));
    EXPECT_TRUE(ByteArray(raw, 0).IsEmpty());
    EXPECT_EQ(ByteArray(std::string("a\0b", 3)).GetLength(), 3u) << "embedded NUL is a byte like any other";
    // Wide texts: low byte first, higher bits dropped.
    EXPECT_EQ(Bytes({0x41, 0x00, 0xAC, 0x20}), ByteArray(std::wstring(L"A\u20AC")));
    EXPECT_EQ(Bytes({0x00, 0xF6}), ByteArray(std::wstring(1, static_cast<wchar_t>(0x1F600))));
    EXPECT_TRUE(ByteArray(std::wstring()).IsEmpty());
}

TEST(ByteArray, EqualityComparesLengthAndContentAndAddAppends)
{
    const ByteArray a = Bytes({1, 2});
    EXPECT_TRUE(a == a);
    EXPECT_TRUE(ByteArray() == ByteArray());
    EXPECT_TRUE(a != Bytes({1, 2, 0}));
    EXPECT_TRUE(a != Bytes({1, 3}));
    EXPECT_FALSE(a != Bytes({1, 2}));

    ByteArray grown = a;
    const unsigned char more[] = {3, 4};
    grown.Add(more, 2);
    grown.Add(more, 0);
    EXPECT_EQ(Bytes({1, 2, 3, 4}), grown);
    EXPECT_EQ(Bytes({1, 2}), a) << "copies are deep";
}

TEST(ByteArray, ToHexStringFlags)
{
    const ByteArray b = Bytes({0x0A, 0xFF, 0x10});
    EXPECT_EQ("0a ff 10", b.ToHexString(0));
    EXPECT_EQ("0A FF 10", b.ToHexString(1));
    EXPECT_EQ("0aff10", b.ToHexString(2));
    EXPECT_EQ("0AFF10", b.ToHexString(3));
    EXPECT_EQ("0A FF 10", b.ToHexString(0xFFF1)) << "only the two low bits count";
    EXPECT_EQ("00 01 ab", Bytes({0x00, 0x01, 0xAB}).ToHexString(0));
    EXPECT_EQ("FF", Bytes({0xFF}).ToHexString(1));
    EXPECT_THROW(ByteArray().ToHexString(1), std::out_of_range);
}

TEST(ByteArray, LoadFromFileAppendsAfterExistingContent)
{
    TestSupport::TempDir dir;
    std::string big(2500, '\0');
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 7);
    TestSupport::WriteText(dir.file("data"), big);

    ByteArray out = Bytes({0xEE});
    ASSERT_TRUE(Korvex::LoadFromFile(dir.file("data"), out));
    ASSERT_EQ(out.GetLength(), 2501u) << "chunks of 1024 bytes must all arrive";
    EXPECT_EQ(out[0], 0xEE);
    EXPECT_EQ(out[1], 0x00);
    EXPECT_EQ(out[2500], static_cast<unsigned char>(2499 * 7));

    ByteArray untouched = Bytes({1});
    EXPECT_FALSE(Korvex::LoadFromFile(dir.file("missing"), untouched));
    EXPECT_EQ(Bytes({1}), untouched);
}

TEST(ByteArray, StreamExtractionReadsAsManyAsTheBufferHolds)
{
    std::istringstream in("x y z w");
    ByteArray b = Bytes({1, 2});
    in >> b;
    EXPECT_EQ(Bytes({1, 2, 'x', 'y'}), b);

    std::istringstream none("abc");
    ByteArray empty;
    none >> empty;
    EXPECT_TRUE(empty.IsEmpty());
}
