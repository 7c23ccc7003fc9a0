// Byte buffer: construction from texts and raw memory, hex formatting and
// loading of files.
#include "base/ByteArray.h"

#include <cstdio>
#include <stdexcept>

namespace Korvex {

ByteArray::ByteArray(const std::string& text) : m_bytes(text.begin(), text.end()) {}

ByteArray::ByteArray(std::vector<unsigned char> bytes) : m_bytes(std::move(bytes)) {}

ByteArray::ByteArray(const unsigned char* p, unsigned long n)
{
    Add(p, n);
}

ByteArray::ByteArray(const std::wstring& text)
{
    m_bytes.reserve(text.size() * 2);
    for (wchar_t c : text) {
        const unsigned long code = static_cast<unsigned long>(c);
        m_bytes.push_back(static_cast<unsigned char>(code & 0xFF));
        m_bytes.push_back(static_cast<unsigned char>((code >> 8) & 0xFF));
    }
}

bool ByteArray::operator==(const ByteArray& other) const
{
    return m_bytes == other.m_bytes;
}

bool ByteArray::operator!=(const ByteArray& other) const
{
    return !(*this == other);
}

std::string ByteArray::ToHexString(unsigned short flags) const
{
    // Callers never format an empty buffer; treat it as the misuse it is.
    if (m_bytes.empty())
        throw std::out_of_range("ByteArray::ToHexString: empty buffer");

    const char* digits = (flags & 1) ? "0123456789ABCDEF" : "0123456789abcdef";
    const bool separate = (flags & 2) == 0;
    std::string text;
    text.reserve(m_bytes.size() * 3);
    for (std::size_t i = 0; i < m_bytes.size(); ++i) {
        text += digits[m_bytes[i] >> 4];
        text += digits[m_bytes[i] & 0x0F];
        if (separate && i + 1 < m_bytes.size())
            text += ' ';
    }
    return text;
}

void ByteArray::Add(const unsigned char* p, unsigned long n)
{
    if (n == 0 || p == nullptr)
        return;
    m_bytes.insert(m_bytes.end(), p, p + n);
}

bool LoadFromFile(std::string path, ByteArray& out)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return false;
    unsigned char chunk[1024];
    std::size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        out.Add(chunk, got);
    std::fclose(file);
    return true;
}

std::istream& operator>>(std::istream& in, ByteArray& out)
{
    // The length at entry is the number of characters wanted; measuring it
    // after each append would never end.
    const std::size_t wanted = out.size();
    for (std::size_t i = 0; i < wanted; ++i) {
        char c;
        if (!(in >> c))
            break;
        const unsigned char byte = static_cast<unsigned char>(c);
        out.Add(&byte, 1);
    }
    return in;
}

} // namespace Korvex
