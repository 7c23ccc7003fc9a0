// Byte buffer: construction, file loading and stream extraction.
#include "base/ByteArray.h"

#include "tests/support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <sstream>
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
