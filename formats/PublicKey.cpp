// Parsing of raw public keys read from the card. The key bytes are untrusted,
// so every number is checked against both the input and its array.
#include "formats/PublicKey.h"

#include <cstring>

#include "formats/Asn1.h"

namespace Korvex {

namespace {

constexpr int kMaxCoordinateLen = 128;
const char* const kCurveP192 = "1.2.840.10045.3.1.1";
const char* const kCurveP256 = "1.2.840.10045.3.1.7";

// Reads the INTEGER at pos into out without its leading zero bytes. False
// when there is no INTEGER, it runs past the input or its significant bytes
// do not fit the array. The zero octet that DER puts before a number with
// the high bit set does not count, so a 4096-bit modulus fits 512 bytes.
bool readUnsignedInteger(const unsigned char* key, int end, int& pos, unsigned char* out, int capacity,
                         int& outLen)
{
    if (pos >= end || key[pos] != 0x02)
        return false;
    ++pos;
    long valueLen = 0;
    if (!getLen(key, end, pos, valueLen))
        return false;
    if (valueLen > end - pos)
        return false;
    if (valueLen <= capacity) {
        outLen = static_cast<int>(valueLen);
        std::memcpy(out, key + pos, static_cast<size_t>(outLen));
        RemoveLeadingNulls(out, outLen);
    } else {
        long zeros = 0;
        while (zeros < valueLen && key[pos + zeros] == 0)
            ++zeros;
        if (valueLen - zeros > capacity)
            return false;
        outLen = static_cast<int>(valueLen - zeros);
        std::memcpy(out, key + pos + zeros, static_cast<size_t>(outLen));
    }
    pos += static_cast<int>(valueLen);
    return true;
}

} // namespace

ParsedPublicKey ParseKey(unsigned char* buf, int offset, int len)
{
    if (buf != nullptr && offset >= 0 && len > 0 && buf[offset] == 0x30)
        return ParseRsaKey(buf, offset, len);
    return ParseEccKey(buf, offset, len);
}

ParsedPublicKey ParseRsaKey(unsigned char* buf, int offset, int len)
{
    ParsedPublicKey key;
    if (buf == nullptr || offset < 0 || len <= 0 || buf[offset] != 0x30)
        return key;
    key.keyType = ParsedPublicKey::kKeyTypeRsa;
    const unsigned char* der = buf + offset;
    int pos = 1;
    long sequenceLen = 0;
    if (!getLen(der, len, pos, sequenceLen))
        return key;
    if (!readUnsignedInteger(der, len, pos, key.modulus, ParsedPublicKey::kModulusSize, key.modulusLen))
        return key;
    readUnsignedInteger(der, len, pos, key.exponent, ParsedPublicKey::kExponentSize, key.exponentLen);
    return key;
}

ParsedPublicKey ParseEccKey(unsigned char* buf, int offset, int len)
{
    ParsedPublicKey key;
    key.keyType = ParsedPublicKey::kKeyTypeEc;
    if (len == 49) {
        key.coordinateLen = 24;
        key.curve = kCurveP192;
    } else if (len == 65) {
        key.coordinateLen = 32;
        key.curve = kCurveP256;
    } else {
        // Every other size is reported as P-256; only the coordinate length
        // follows the point's size.
        key.coordinateLen = (len - 1) / 2;
        key.curve = kCurveP256;
    }
    if (key.coordinateLen > kMaxCoordinateLen) {
        LibAsn1::LogError("ParseEccKey: coordinate too long", static_cast<unsigned long>(key.coordinateLen));
        return key;
    }
    if (buf == nullptr || offset < 0 || key.coordinateLen <= 0)
        return key;
    // The format byte (04 for an uncompressed point) is not checked.
    const unsigned char* xBytes = buf + offset + 1;
    const unsigned char* yBytes = xBytes + key.coordinateLen;
    const int xDigits = bin2decStr(xBytes, key.coordinateLen, key.x, ParsedPublicKey::kCoordinateTextSize);
    const int yDigits = bin2decStr(yBytes, key.coordinateLen, key.y, ParsedPublicKey::kCoordinateTextSize);
    if (xDigits < 0 || yDigits < 0)
        LibAsn1::LogError("ParseEccKey: coordinate does not fit", static_cast<unsigned long>(key.coordinateLen));
    return key;
}

} // namespace Korvex
