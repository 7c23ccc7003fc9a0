// The module's own PIN dialogues: asking for one PIN, the change dialogue
// (current PIN, new PIN, repeat) and the unblock dialogue (PUK, new PIN,
// repeat), with German texts naming the card and the PIN.
#pragma once

#include "sim/CardSet.h"
#include "base/PinEntry.h"

#include <string>

namespace VessaSim {

using Korvex::PinEntry;
using Korvex::PinPrompt;

enum class DialogKind { Verify, Change, Unblock };

struct DialogTarget {
    std::string cardLabel;
    std::string serial;
    PinIndex pin = PinSignature;
    int pinLength = 6;
    int triesLeft = 3;
    int maxTries = 3;
    int pukTriesLeft = 10;
    int maxPukTries = 10;
};

struct DialogOutcome {
    PinEntry::Result result = PinEntry::Result::Failed;
    std::string first;   // PIN, current PIN or PUK
    std::string second;  // new PIN
    std::string third;   // repeated new PIN
};

// Blocks until the user has answered every step or cancelled one.
DialogOutcome runPinDialog(DialogKind kind, const DialogTarget& target);

// German name of a PIN ("Signatur-PIN", ...).
std::string pinDisplayName(PinIndex pin);

// Dialogues started in this process.
unsigned long pinDialogCount();

} // namespace VessaSim
