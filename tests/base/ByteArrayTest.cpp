// Byte buffer: construction, comparison, hex formatting and file loading.
#include "base/ByteArray.h"

#include "TempDir.h"

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
