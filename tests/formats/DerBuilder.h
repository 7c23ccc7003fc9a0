// Test data for the DER readers, written with the product's DER writer (on
// OpenSSL's encoders, independent of the readers), and a few byte helpers.
#pragma once

#include "formats/DerWriter.h"

#include "tests/support/TestCommon.h"

namespace dertest {

using Bytes = Korvex::Der::Bytes;
using Korvex::Der::tlv;
using Korvex::Der::utf8;

inline Bytes cat(std::initializer_list<Bytes> parts) { return Korvex::Der::concat(parts); }
inline Bytes bitString(const Bytes& value) { return Korvex::Der::bits(value); }

inline Bytes pattern(std::size_t n, unsigned char seed)
{
    Bytes out(n);
    for (std::size_t i = 0; i < n; ++i)
        out[i] = static_cast<unsigned char>(seed + i * 7);
    return out;
}

// A heap copy of exactly the first len bytes, so that the address sanitizer
// reports any read beyond them.
inline std::unique_ptr<unsigned char[]> exactCopy(const Bytes& bytes, std::size_t len)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[len == 0 ? 1 : len]);
    std::copy(bytes.begin(), bytes.begin() + static_cast<long>(len), copy.get());
    return copy;
}

} // namespace dertest
