// Fuzz target: hex text to bytes, the string and the pointer forms.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/Conversion.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<unsigned char> bytes;
    try {
        Korvex::HexStr2BinData(text, bytes);
    } catch (const std::out_of_range&) {
        // An odd-length text ends this way by definition.
    }
    if (bytes.size() > size / 2 + 1)
        std::abort();

    std::unique_ptr<char[]> cText(new char[size + 1]);
    std::memcpy(cText.get(), data, size);
    cText[size] = 0;
    try {
        unsigned long queryLen = 0;
        Korvex::HexStr2BinData(cText.get(), nullptr, queryLen);  // size query
        std::vector<unsigned char> out(size / 2 + 1);
        unsigned long outLen = static_cast<unsigned long>(out.size());
        const unsigned long written =
            Korvex::HexStr2BinData(cText.get(), static_cast<unsigned long>(size), out.data(), outLen);
        if (written != static_cast<unsigned long>(-1) && outLen > out.size())
            std::abort();
    } catch (const std::out_of_range&) {
        // Odd length again.
    }
    return 0;
}
