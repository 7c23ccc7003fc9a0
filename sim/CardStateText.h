// The written form of a card's state file: its PINs with their counters and
// the data objects written to it. Other processes using the same card write
// the file too, and it may be damaged; whatever it holds, reading it keeps
// every PIN well-formed and every counter within its card's limits.
#pragma once

#include "sim/CardSet.h"
#include "sim/PinState.h"

#include <map>
#include <string>
#include <vector>

namespace VessaSim {

// Largest data object a card stores (the identity link's buffer).
constexpr size_t kMaxDataObjectSize = 1024;

struct SavedDataObject {
    std::vector<unsigned char> value;
    bool isPrivate = false;
    unsigned char type = 0;

    bool operator==(const SavedDataObject& other) const {
        return value == other.value && isPrivate == other.isPrivate && type == other.type;
    }
};
using SavedDataObjects = std::map<std::string, SavedDataObject>;  // by label

// Applies the state text to `pins`, which come in with their factory values:
// a PIN value of the wrong format and counters out of range keep what the
// PIN had. Objects without a label or larger than a card stores are skipped.
// False, with `pins` and `objects` untouched, when the text is no XML.
bool readCardState(const std::string& text, PinState (&pins)[PinCount], SavedDataObjects& objects);

std::string writeCardState(const std::string& serial, const PinState (&pins)[PinCount],
                           const SavedDataObjects& objects);

} // namespace VessaSim
