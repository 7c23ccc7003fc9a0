// The one DER writer of this system, on OpenSSL's ASN.1 encoders: the
// identity link the companion writes, the records the simulated cards carry,
// and the test data for the DER readers.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace Korvex {
namespace Der {

using Bytes = std::vector<unsigned char>;

enum Tag : unsigned char {
    Integer = 0x02,
    BitString = 0x03,
    OctetString = 0x04,
    Utf8String = 0x0C,
    PrintableString = 0x13,
    Sequence = 0x30,
};

// Tag, length octets (short form below 128, else 81 xx, 82 xx xx, ...) and
// content; any tag byte, so that readers can be fed what a card never writes.
Bytes tlv(unsigned char tag, const Bytes& content);
Bytes integer(long value);
// Big-endian magnitude; a leading zero is added when the top bit is set.
Bytes unsignedInteger(const Bytes& magnitude);
Bytes utf8(const std::string& text);
Bytes printable(const std::string& text);
Bytes octets(const Bytes& content);
// No unused bits, trailing zero bytes kept.
Bytes bits(const Bytes& content);
Bytes sequence(std::initializer_list<Bytes> parts);
// Context-specific tag [n]; constructed unless told otherwise.
Bytes context(unsigned n, const Bytes& content, bool constructed = true);
Bytes concat(std::initializer_list<Bytes> parts);

} // namespace Der
} // namespace Korvex
