// A tiny DER writer for the tests, so that the readers are checked against
// independently encoded data rather than hand-copied byte dumps.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace dertest {

using Bytes = std::vector<unsigned char>;

inline Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

inline Bytes tlv(unsigned char tag, const Bytes& content)
{
    const std::size_t n = content.size();
    Bytes head = n < 0x80 ? Bytes{tag, static_cast<unsigned char>(n)}
               : n <= 0xFF ? Bytes{tag, 0x81, static_cast<unsigned char>(n)}
                           : Bytes{tag, 0x82, static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n)};
    return cat({head, content});
}

inline Bytes utf8(const std::string& text) { return tlv(0x0C, Bytes(text.begin(), text.end())); }
inline Bytes bitString(const Bytes& value) { return tlv(0x03, cat({Bytes{0x00}, value})); }

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
