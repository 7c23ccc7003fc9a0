// A tiny DER writer for the tests: enough to build identity links and keys
// field by field, so that the readers are tested against independently
// encoded data rather than against hand-copied byte dumps.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace dertest {

using Bytes = std::vector<unsigned char>;

inline Bytes encodeLength(std::size_t n)
{
    if (n < 0x80)
        return {static_cast<unsigned char>(n)};
    if (n <= 0xFF)
        return {0x81, static_cast<unsigned char>(n)};
    return {0x82, static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n & 0xFF)};
}

inline Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

inline Bytes tlv(unsigned char tag, const Bytes& content)
{
    return cat({Bytes{tag}, encodeLength(content.size()), content});
}

inline Bytes utf8(const std::string& text)
{
    return tlv(0x0C, Bytes(text.begin(), text.end()));
}

// A BIT STRING without unused bits.
inline Bytes bitString(const Bytes& value)
{
    return tlv(0x03, cat({Bytes{0x00}, value}));
}

inline Bytes pattern(std::size_t n, unsigned char seed)
{
    Bytes out(n);
    for (std::size_t i = 0; i < n; ++i)
        out[i] = static_cast<unsigned char>(seed + i * 7);
    return out;
}

} // namespace dertest
