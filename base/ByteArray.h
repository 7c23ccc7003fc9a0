// Growable byte buffer with value semantics, used wherever card data, digests
// and file contents travel between the layers.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace Korvex {

class ByteArray {
public:
    ByteArray() = default;
    // Raw characters, one byte each; no parsing ("0A" gives 0x30 0x41).
    explicit ByteArray(const std::string& text);
    explicit ByteArray(std::vector<unsigned char> bytes);
    ByteArray(const unsigned char* p, unsigned long n);
    // Two bytes per wide character, low byte first; bits 16-31 are dropped.
    explicit ByteArray(const std::wstring& text);

    bool operator==(const ByteArray& other) const;
    bool operator!=(const ByteArray& other) const;

    // Bit 0 of flags: upper-case digits; bit 1: no blank between bytes.
    // Throws std::out_of_range for an empty buffer.
    std::string ToHexString(unsigned short flags) const;

    void Add(const unsigned char* p, unsigned long n);

    // Access for the layers that hand the bytes on to C interfaces.
    const unsigned char* GetData() const { return m_bytes.data(); }
    unsigned long GetLength() const { return static_cast<unsigned long>(m_bytes.size()); }
    bool IsEmpty() const { return m_bytes.empty(); }
    void Clear() { m_bytes.clear(); }
    const std::vector<unsigned char>& ToVector() const { return m_bytes; }
    // Range-checked: throws std::out_of_range beyond the end.
    unsigned char operator[](unsigned long i) const { return m_bytes.at(i); }

    const unsigned char* data() const { return m_bytes.data(); }
    std::size_t size() const { return m_bytes.size(); }
    bool empty() const { return m_bytes.empty(); }

private:
    std::vector<unsigned char> m_bytes;
};

// Appends the file's bytes to `out`; false when the file cannot be opened.
bool LoadFromFile(std::string path, ByteArray& out);

// Reads as many characters (white space skipped) as the buffer holds on entry
// and appends them; an empty buffer reads nothing.
std::istream& operator>>(std::istream& in, ByteArray& out);

} // namespace Korvex
