// DER encoding of tags, lengths and the few value types the cards use.
#include "sim/Der.h"

namespace VessaSim {
namespace Der {

Bytes length(size_t size) {
    if (size < 0x80) return Bytes{static_cast<unsigned char>(size)};
    Bytes octets;
    for (size_t rest = size; rest > 0; rest >>= 8) {
        octets.insert(octets.begin(), static_cast<unsigned char>(rest & 0xFF));
    }
    octets.insert(octets.begin(), static_cast<unsigned char>(0x80 | octets.size()));
    return octets;
}

Bytes tlv(unsigned char tag, const Bytes& content) {
    Bytes out{tag};
    Bytes size = length(content.size());
    out.insert(out.end(), size.begin(), size.end());
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

Bytes integer(long value) {
    Bytes content;
    // Two's complement, minimal: drop leading bytes that only repeat the sign.
    for (int shift = 56; shift >= 0; shift -= 8) {
        content.push_back(static_cast<unsigned char>((static_cast<unsigned long>(value) >> shift) & 0xFF));
    }
    while (content.size() > 1 && ((content[0] == 0x00 && !(content[1] & 0x80)) ||
                                  (content[0] == 0xFF && (content[1] & 0x80)))) {
        content.erase(content.begin());
    }
    return tlv(Integer, content);
}

Bytes unsignedInteger(const Bytes& magnitude) {
    Bytes content = magnitude;
    while (content.size() > 1 && content[0] == 0) content.erase(content.begin());
    if (content.empty()) content.push_back(0);
    if (content[0] & 0x80) content.insert(content.begin(), 0x00);
    return tlv(Integer, content);
}

Bytes utf8(const std::string& text) { return tlv(Utf8String, Bytes(text.begin(), text.end())); }

Bytes printable(const std::string& text) { return tlv(PrintableString, Bytes(text.begin(), text.end())); }

Bytes octets(const Bytes& content) { return tlv(OctetString, content); }

Bytes bits(const Bytes& content) {
    Bytes value{0x00};
    value.insert(value.end(), content.begin(), content.end());
    return tlv(BitString, value);
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

Bytes sequence(std::initializer_list<Bytes> parts) { return tlv(Sequence, concat(parts)); }

Bytes context(unsigned n, const Bytes& content, bool constructed) {
    unsigned char tag = static_cast<unsigned char>(0x80 | (constructed ? 0x20 : 0x00) | (n & 0x1F));
    return tlv(tag, content);
}

} // namespace Der
} // namespace VessaSim
