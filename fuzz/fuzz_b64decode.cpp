// Fuzz target: the Base64 decoder, both the pointer and the string form.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::vector<unsigned char> decoded = Korvex::b64Decode(text);
    if (decoded.size() > size)
        std::abort();

    // The pointer form reads a C text; callers pass its length as capacity.
    std::unique_ptr<unsigned char[]> cText(new unsigned char[size + 1]);
    std::memcpy(cText.get(), data, size);
    cText[size] = 0;
    int len = static_cast<int>(size);
    unsigned char* out = Korvex::b64Decode(cText.get(), len);
    if (len > static_cast<int>(size))
        std::abort();
    delete[] out;
    return 0;
}
