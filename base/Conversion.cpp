// Hexadecimal, binary-digit and UTF-8 conversions, byte tools, random texts
// and the byte search.
#include "base/Conversion.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>

namespace Korvex {

const char VALUES[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz123456789";

namespace {

const unsigned long kBufferTooSmall = static_cast<unsigned long>(-1);

// Size query, too-small check and copy shared by the pointer forms.
unsigned long CopyOut(const void* src, unsigned long n, unsigned char* out, unsigned long& outLen)
{
    if (out == nullptr || outLen == 0)
        return n;
    if (outLen < n)
        return kBufferTooSmall;
    if (n > 0)
        std::memcpy(out, src, n);
    outLen = n;
    return n;
}

} // namespace

unsigned long BinData2HexStr(std::vector<unsigned char> data, std::string& out)
{
    static const char digits[] = "0123456789ABCDEF";
    out.clear();
    out.reserve(data.size() * 2);
    for (unsigned char byte : data) {
        out += digits[byte >> 4];
        out += digits[byte & 0x0F];
    }
    return static_cast<unsigned long>(out.size());
}

unsigned long BinData2HexStr(unsigned char* data, int len, unsigned char* out, unsigned long& outLen)
{
    std::vector<unsigned char> bytes;
    if (data && len > 0)
        bytes.assign(data, data + len);
    std::string text;
    const unsigned long n = BinData2HexStr(bytes, text);
    return CopyOut(text.data(), n, out, outLen);
}

unsigned long HexStr2BinData(std::string text, std::vector<unsigned char>& out)
{
    for (std::size_t i = 0; i < text.size(); i += 2) {
        // at() on the partner of an unpaired last character throws
        // std::out_of_range after the complete pairs are appended.
        char pair[3] = {text.at(i), text.at(i + 1), '\0'};
        out.push_back(static_cast<unsigned char>(hex2int(pair)));
    }
    return static_cast<unsigned long>(out.size());
}

unsigned long HexStr2BinData(char* text, unsigned long /*textLen*/, unsigned char* out, unsigned long& outLen)
{
    std::vector<unsigned char> bytes;
    if (text)
        HexStr2BinData(std::string(text), bytes);
    return CopyOut(bytes.data(), static_cast<unsigned long>(bytes.size()), out, outLen);
}

unsigned long HexStr2BinData(char* text, unsigned char* out, unsigned long& outLen)
{
    return HexStr2BinData(text, text ? static_cast<unsigned long>(std::strlen(text)) : 0, out, outLen);
}

int hex2int(char* text)
{
    if (!text)
        return 0;
    return static_cast<int>(std::strtol(text, nullptr, 16));
}

std::string int2bin(unsigned int v)
{
    // The value has always been handled as a signed number, so anything with
    // the top bit set comes out as "1".
    if (v & 0x80000000u)
        return "1";
    std::string digits;
    while (v != 0) {
        digits.insert(digits.begin(), (v & 1) ? '1' : '0');
        v >>= 1;
    }
    return digits;
}

unsigned long long bin2int(std::string digits)
{
    unsigned long long sum = 0;
    const std::size_t n = digits.size();
    for (std::size_t i = 0; i < n; ++i) {
        const char one[2] = {digits[i], '\0'};
        const unsigned long long digit = static_cast<unsigned long long>(std::strtol(one, nullptr, 10));
        const std::size_t exponent = n - 1 - i;
        // Powers beyond 2^63 vanish in 64-bit arithmetic.
        if (exponent < 64)
            sum += digit << exponent;
    }
    return sum;
}

int bin2dec(char* digits)
{
    if (!digits)
        return 0;
    unsigned int value = 0;
    for (const char* p = digits; *p; ++p) {
        if (*p != '0' && *p != '1')
            return -1;
        value = (value << 1) | static_cast<unsigned int>(*p - '0');
    }
    return static_cast<int>(value);
}

std::string int2str(int codePoint)
{
    std::string out;
    if (codePoint < 128) {
        // Negative values keep only their low byte.
        // Built as a C string: a zero byte gives the empty text.
        const char byte = static_cast<char>(codePoint & 0xFF);
        if (byte != '\0')
            out += byte;
        return out;
    }
    const unsigned int cp = static_cast<unsigned int>(codePoint);
    if (cp < 2048) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 65536) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | ((cp >> 18) & 0x07));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return out;
}

bool isdigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isalpha(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

void ReverseBytes(unsigned char* p, int n)
{
    if (!p || n < 2)
        return;
    for (int i = 0, j = n - 1; i < j; ++i, --j) {
        const unsigned char t = p[i];
        p[i] = p[j];
        p[j] = t;
    }
}

unsigned long SwitchEndian(unsigned long v)
{
    const unsigned long low = v & 0xFFFFFFFFul;
    return ((low & 0x000000FFul) << 24) | ((low & 0x0000FF00ul) << 8) |
           ((low & 0x00FF0000ul) >> 8) | ((low & 0xFF000000ul) >> 24);
}

std::string GenerateRandomString(int n)
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    std::string text;
    if (n <= 0)
        return text;
    text.reserve(static_cast<std::size_t>(n) + 1);
    const int alphabet = static_cast<int>(sizeof VALUES - 1);
    for (int i = 0; i < n; ++i)
        text += VALUES[std::rand() % alphabet];
    return text;
}

std::string GenerateRandomString()
{
    return GenerateRandomString(10);
}

long MyMemfind(char* haystack, long haystackLength, char* needle, long needleLength, long start)
{
    if (start < 0)
        start = 0;
    if (needleLength < 0 || haystackLength < 0 || haystackLength <= start || needleLength > haystackLength ||
        needleLength > haystackLength - start)
        return -1;
    if (!haystack || (!needle && needleLength > 0))
        return -1;
    if (needleLength == 0)
        return start;

    const char* end = haystack + haystackLength;
    const char* from = haystack + start;
    while (from < end) {
        const char* hit = static_cast<const char*>(std::memchr(from, needle[0], static_cast<std::size_t>(end - from)));
        if (!hit || end - hit < needleLength)
            return -1;
        if (std::memcmp(hit, needle, static_cast<std::size_t>(needleLength)) == 0)
            return static_cast<long>(hit - haystack);
        from = hit + 1;
    }
    return -1;
}

} // namespace Korvex
