// Fuzz target: the public-key parser on arbitrary key bytes. The first input
// byte is no key byte: it picks how many filler bytes stand before the key,
// so that keys are also read at an offset inside a larger buffer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "formats/PublicKey.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0 || size > 4096)
        return 0;
    const size_t filler = data[0] % 8;
    const int offset = static_cast<int>(1 + filler < size ? 1 + filler : 1);
    std::unique_ptr<unsigned char[]> copy(new unsigned char[size]);
    std::memcpy(copy.get(), data, size);
    const int len = static_cast<int>(size) - offset;
    const Korvex::ParsedPublicKey key = Korvex::ParseKey(copy.get(), offset, len);
    if (key.modulusLen < 0 || key.modulusLen > Korvex::ParsedPublicKey::kModulusSize ||
        key.exponentLen < 0 || key.exponentLen > Korvex::ParsedPublicKey::kExponentSize ||
        std::memchr(key.x, 0, sizeof key.x) == nullptr || std::memchr(key.y, 0, sizeof key.y) == nullptr)
        std::abort();
    return 0;
}
