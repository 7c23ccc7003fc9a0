// Cursor readers for DER lengths and values; see Asn1.h for the contract.
// The classic forms are the bounded ones with an end that is never reached.
#include "formats/Asn1.h"

#include <climits>
#include <cstring>
#include <memory>

#include <openssl/bn.h>
#include <openssl/crypto.h>

namespace Korvex {

namespace {

constexpr int kNoEnd = INT_MAX;

// Moves pos forward by n but never beyond end (only input that claims more
// bytes than it has is affected).
void advance(int& pos, long n, int end)
{
    const long target = static_cast<long>(pos) + n;
    pos = target > end ? end : static_cast<int>(target);
}

bool tagToType(unsigned char tag, eASN1Type& type)
{
    switch (tag) {
    case 0x04: type = ASN1TypeOctetString; return true;
    case 0x12: type = ASN1TypeNumericString; return true;
    case 0x18: type = ASN1TypeGeneralizedTime; return true;
    case 0x0C: type = ASN1TypeUtf8String; return true;
    case 0x02: type = ASN1TypeInteger; return true;
    case 0x13: type = ASN1TypePrintableString; return true;
    default: return false;
    }
}

// Bytes left in the input from pos, never negative.
long remaining(int pos, int end)
{
    return pos >= end ? 0 : static_cast<long>(end) - pos;
}

} // namespace

bool getLen(const unsigned char* buf, int end, int& pos, long& len)
{
    if (buf == nullptr || pos < 0 || pos >= end) {
        pos = end;
        return false;
    }
    const unsigned char first = buf[pos];
    const int extraOctets = first == 0x82 ? 2 : (first == 0x81 ? 1 : 0);
    if (remaining(pos, end) < 1 + extraOctets) {
        pos = end;
        return false;
    }
    if (extraOctets == 2)
        len = (static_cast<long>(buf[pos + 1]) << 8) | buf[pos + 2];
    else if (extraOctets == 1)
        len = buf[pos + 1];
    else
        len = first;
    pos += 1 + extraOctets;
    return true;
}

long getLen(unsigned char* buf, int& pos)
{
    long len = 0;
    getLen(buf, kNoEnd, pos, len);
    return len;
}

void RemoveLeadingNulls(unsigned char* buf, int& len)
{
    if (buf == nullptr || len <= 0 || buf[0] != 0)
        return;
    int zeros = 0;
    while (zeros < len && buf[zeros] == 0)
        ++zeros;
    std::memmove(buf, buf + zeros, static_cast<size_t>(len - zeros));
    len -= zeros;
}

int bin2decStr(const unsigned char* bin, int len, unsigned char* out, int outCapacity)
{
    if (bin == nullptr || len <= 0 || out == nullptr)
        return -1;
    std::unique_ptr<BIGNUM, decltype(&BN_free)> number(BN_bin2bn(bin, len, nullptr), &BN_free);
    if (!number)
        return -1;
    char* text = BN_bn2dec(number.get());
    if (text == nullptr)
        return -1;
    const size_t digits = std::strlen(text);
    int result = -1;
    if (digits + 2 <= static_cast<size_t>(outCapacity < 0 ? 0 : outCapacity)) {
        std::memcpy(out, text, digits);
        out[digits] = 0;
        out[digits + 1] = 0;
        result = static_cast<int>(digits);
    }
    OPENSSL_free(text);
    return result;
}

int bin2decStr(unsigned char* bin, int len, unsigned char* out)
{
    return bin2decStr(bin, len, out, kNoEnd);
}

int ReadBitString(const unsigned char* buf, int end, int& pos, unsigned char* out, int& outLen)
{
    long valueLen = 0;
    if (!getLen(buf, end, pos, valueLen))
        return false;
    if (valueLen > outLen) {
        advance(pos, valueLen, end);
        return false;
    }
    if (valueLen > remaining(pos, end)) {
        pos = end;
        return false;
    }
    const unsigned char* content = buf + pos;
    pos += static_cast<int>(valueLen);
    if (valueLen == 0) {
        // No unused-bits octet at all: not a bit string that can be read.
        outLen = 0;
        return false;
    }
    outLen = static_cast<int>(valueLen - 1);
    if (content[0] != 0 || (outLen > 0 && out == nullptr))
        return false;
    // The value may come from the caller's own output buffer.
    std::memmove(out, content + 1, static_cast<size_t>(outLen));
    return true;
}

int ReadBitString(unsigned char* buf, int& pos, unsigned char* out, int& outLen)
{
    return ReadBitString(buf, kNoEnd, pos, out, outLen);
}

std::string ReadUtf8String(const unsigned char* buf, int end, int& pos)
{
    long valueLen = 0;
    if (!getLen(buf, end, pos, valueLen))
        return {};
    if (valueLen > remaining(pos, end)) {
        pos = end;
        return {};
    }
    const char* content = reinterpret_cast<const char*>(buf + pos);
    pos += static_cast<int>(valueLen);
    const void* zero = std::memchr(content, 0, static_cast<size_t>(valueLen));
    const size_t used = zero ? static_cast<size_t>(static_cast<const char*>(zero) - content)
                             : static_cast<size_t>(valueLen);
    return std::string(content, used);
}

std::string ReadUtf8String(unsigned char* buf, int& pos)
{
    return ReadUtf8String(buf, kNoEnd, pos);
}

std::string OID2Str(unsigned char* oid, int len, char sep)
{
    if (oid == nullptr || len <= 0)
        return {};
    std::string text = std::to_string(oid[0] / 40) + sep + std::to_string(oid[0] % 40);
    for (int i = 1; i < len; ++i) {
        text += sep;
        text += std::to_string(oid[i]);
    }
    return text;
}

int parseValue(const unsigned char* buf, int end, int& pos, eASN1Type& type, unsigned char* out, int& outLen,
               int outCapacity)
{
    if (buf == nullptr || pos < 0 || pos >= end)
        return 0;
    eASN1Type found;
    if (!tagToType(buf[pos], found))
        return 0;
    int valuePos = pos + 1;
    long valueLen = 0;
    if (!getLen(buf, end, valuePos, valueLen))
        return 0;
    if (valueLen > outCapacity || valueLen > remaining(valuePos, end) || (valueLen > 0 && out == nullptr))
        return 0;
    std::memcpy(out, buf + valuePos, static_cast<size_t>(valueLen));
    type = found;
    outLen = static_cast<int>(valueLen);
    pos = valuePos + static_cast<int>(valueLen);
    return 1;
}

int parseValue(unsigned char* buf, int& pos, eASN1Type& type, unsigned char* out, int& outLen)
{
    return parseValue(buf, kNoEnd, pos, type, out, outLen, kNoEnd);
}

} // namespace Korvex
