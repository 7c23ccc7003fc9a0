// DER encoding through OpenSSL: the header from ASN1_put_object, the typed
// values from their i2d_ encoders, so no length arithmetic is written here.
#include "formats/DerWriter.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>

#include <algorithm>
#include <memory>

namespace Korvex {
namespace Der {

namespace {

struct Asn1StringFree {
    void operator()(ASN1_STRING* s) const { ASN1_STRING_free(s); }
};
using Asn1StringPtr = std::unique_ptr<ASN1_STRING, Asn1StringFree>;

// The DER of one object through its i2d_ encoder; empty when it fails.
template <typename T, typename Encoder>
Bytes encode(const T* object, Encoder i2d)
{
    const int size = object ? i2d(object, nullptr) : -1;
    if (size <= 0)
        return {};
    Bytes out(static_cast<size_t>(size));
    unsigned char* cursor = out.data();
    i2d(object, &cursor);
    return out;
}

template <typename Encoder>
Bytes stringOfType(int type, Encoder i2d, const unsigned char* data, size_t size)
{
    Asn1StringPtr value(ASN1_STRING_type_new(type));
    if (!value || ASN1_STRING_set(value.get(), data, static_cast<int>(size)) != 1)
        return {};
    if (type == V_ASN1_BIT_STRING) {
        // Without this flag OpenSSL drops trailing zero bytes and counts
        // unused bits from the last one; digests and signatures keep theirs.
        value->flags &= ~0x07L;
        value->flags |= ASN1_STRING_FLAG_BITS_LEFT;
    }
    return encode(value.get(), i2d);
}

} // namespace

Bytes tlv(unsigned char tag, const Bytes& content)
{
    // OpenSSL would spread tag number 31 over more octets; the header is
    // built for a one-octet tag and that octet written as given.
    const int number = std::min(tag & 0x1F, 30);
    const int length = static_cast<int>(content.size());
    const int size = ASN1_object_size(0, length, number);
    if (size < 0)
        return {};
    Bytes out(static_cast<size_t>(size));
    unsigned char* cursor = out.data();
    ASN1_put_object(&cursor, tag & V_ASN1_CONSTRUCTED, length, number, tag & 0xC0);
    out[0] = tag;
    std::copy(content.begin(), content.end(), cursor);
    return out;
}

Bytes integer(long value)
{
    Asn1StringPtr number(ASN1_INTEGER_new());
    if (!number || ASN1_INTEGER_set_int64(number.get(), value) != 1)
        return {};
    return encode(number.get(), i2d_ASN1_INTEGER);
}

Bytes unsignedInteger(const Bytes& magnitude)
{
    std::unique_ptr<BIGNUM, decltype(&BN_free)> number(
        BN_bin2bn(magnitude.data(), static_cast<int>(magnitude.size()), nullptr), BN_free);
    if (!number)
        return {};
    Asn1StringPtr value(BN_to_ASN1_INTEGER(number.get(), nullptr));
    return encode(value.get(), i2d_ASN1_INTEGER);
}

Bytes utf8(const std::string& text)
{
    return stringOfType(V_ASN1_UTF8STRING, i2d_ASN1_UTF8STRING,
                        reinterpret_cast<const unsigned char*>(text.data()),
                        text.size());
}

Bytes printable(const std::string& text)
{
    return stringOfType(V_ASN1_PRINTABLESTRING, i2d_ASN1_PRINTABLESTRING,
                        reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

Bytes octets(const Bytes& content)
{
    return stringOfType(V_ASN1_OCTET_STRING, i2d_ASN1_OCTET_STRING, content.data(), content.size());
}

Bytes bits(const Bytes& content)
{
    return stringOfType(V_ASN1_BIT_STRING, i2d_ASN1_BIT_STRING, content.data(), content.size());
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

Bytes sequence(std::initializer_list<Bytes> parts)
{
    return tlv(Sequence, concat(parts));
}

Bytes context(unsigned n, const Bytes& content, bool constructed)
{
    const unsigned char tag = static_cast<unsigned char>(
        V_ASN1_CONTEXT_SPECIFIC | (constructed ? V_ASN1_CONSTRUCTED : 0) | (n & 0x1F));
    return tlv(tag, content);
}

} // namespace Der
} // namespace Korvex
