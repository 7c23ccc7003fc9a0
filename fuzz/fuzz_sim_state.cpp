// Fuzz target: a card's state file, which every process using the simulated
// card reads and writes. Any text must leave each PIN well-formed with its
// counters in range, and what was read must come back the same through the
// file's own written form.
#include "sim/CardStateText.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using namespace VessaSim;

void FactoryPins(PinState (&pins)[PinCount])
{
    const char* values[PinCount] = {"123456", "1234", "4321"};
    for (int i = 0; i < PinCount; ++i) {
        pins[i] = PinState();
        pins[i].value = values[i];
        pins[i].length = static_cast<int>(pins[i].value.size());
    }
}

bool Valid(const PinState& pin)
{
    return isPinFormat(pin.value, pin.length) && pin.tries >= 0 && pin.tries <= pin.maxTries &&
           pin.pukTries >= 0 && pin.pukTries <= pin.maxPukTries;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    PinState pins[PinCount];
    FactoryPins(pins);
    SavedDataObjects objects;
    if (!readCardState(std::string(reinterpret_cast<const char*>(data), size), pins, objects))
        return 0;
    for (const PinState& pin : pins)
        if (!Valid(pin))
            std::abort();
    for (const auto& object : objects)
        if (object.first.empty() || object.second.value.size() > kMaxDataObjectSize)
            std::abort();

    PinState again[PinCount];
    FactoryPins(again);
    SavedDataObjects reread;
    if (!readCardState(writeCardState("1204000000004711", pins, objects), again, reread) || reread != objects)
        std::abort();
    for (int i = 0; i < PinCount; ++i)
        if (again[i].value != pins[i].value || again[i].tries != pins[i].tries || again[i].pukTries != pins[i].pukTries)
            std::abort();
    return 0;
}
