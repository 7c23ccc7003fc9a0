// A small DER encoder for the records the simulated cards carry (identity
// link, social-insurance data, key and certificate attributes).
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace VessaSim {
namespace Der {

using Bytes = std::vector<unsigned char>;

enum Tag : unsigned char {
    Boolean = 0x01,
    Integer = 0x02,
    BitString = 0x03,
    OctetString = 0x04,
    Null = 0x05,
    ObjectIdentifier = 0x06,
    Utf8String = 0x0C,
    PrintableString = 0x13,
    GeneralizedTime = 0x18,
    Sequence = 0x30,
    Set = 0x31,
};

// Length octets: short form below 128, else 81 xx, 82 xx xx, ...
Bytes length(size_t size);
Bytes tlv(unsigned char tag, const Bytes& content);
Bytes integer(long value);
// Big-endian magnitude; a leading zero is added when the top bit is set.
Bytes unsignedInteger(const Bytes& magnitude);
Bytes utf8(const std::string& text);
Bytes printable(const std::string& text);
Bytes octets(const Bytes& content);
// No unused bits.
Bytes bits(const Bytes& content);
Bytes sequence(std::initializer_list<Bytes> parts);
// Context-specific tag [n]; constructed unless told otherwise.
Bytes context(unsigned n, const Bytes& content, bool constructed = true);
Bytes concat(std::initializer_list<Bytes> parts);

} // namespace Der
} // namespace VessaSim
