// The card's answers to raw ISO 7816-4 command APDUs: file selection,
// reading the card-number file, PIN verification, random challenges, and
// the status words a card gives for everything else.
#pragma once

#include "sim/Card.h"

#include <vector>

namespace VessaSim {

// Processes one command APDU and returns the response with its status word.
std::vector<unsigned char> processApdu(Card& card, const unsigned char* command, size_t length);

// Content of EF D0 01: card number (the serial as 8 bytes) and card serial
// number (8 bytes).
std::vector<unsigned char> cardNumberFile(const Card& card);

} // namespace VessaSim
