// Opening a session on the card a command is for, on the card-work thread:
// in the reader the last refresh saw the card in (one token query), and by
// the full look-up of its number only when another card is there now.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

namespace Korvex {
class acPKCS11;
}

// How the worker got at the card.
enum class CardSession { OPEN, CARD_GONE, LIST_UNREADABLE, SESSION_FAILED };

CardSession OpenCardSession(Korvex::acPKCS11& p11, CK_SLOT_ID slot, bool slotKnown, const std::string& number,
                            bool readWrite = false);
