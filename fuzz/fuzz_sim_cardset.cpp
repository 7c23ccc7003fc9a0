// Fuzz target: the simulator's card-set file parser; what it accepts must
// write back to XML that parses to the same readers and cards.
#include "sim/CardSet.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    VessaSim::CardSetSpec set;
    std::string error;
    if (!VessaSim::parseCardSet(in, set, error))
        return 0;
    std::istringstream again(VessaSim::cardSetToXml(set));
    VessaSim::CardSetSpec reread;
    if (!VessaSim::parseCardSet(again, reread, error) || reread.readers.size() != set.readers.size() ||
        reread.spares.size() != set.spares.size())
        std::abort();
    for (size_t i = 0; i < set.readers.size(); ++i) {
        const auto& a = set.readers[i].card;
        const auto& b = reread.readers[i].card;
        if ((a == nullptr) != (b == nullptr) || (a && a->serial != b->serial))
            std::abort();
    }
    return 0;
}
