// PIN change and unblock on a token that is not one of the vendor's cards:
// the reader's PIN pad asks when the token has one, otherwise the desktop's
// pinentry program does (VESSACARDS_PINENTRY names another one, as the tests'
// stand-in). Runs on the card-work thread; the PINs never leave this unit
// except into the module and are wiped after use.
#pragma once

#include "token/TokenProfile.h"
#include "token/acPKCS11Types.h"

#include <string>

namespace Korvex {
class acPKCS11;
}

// The texts of the dialogue, made on the GUI thread (they are translated).
struct StandardPinTexts {
    std::string title;
    std::string first;   // current PIN, or PUK
    std::string second;  // new PIN
    std::string repeat;  // new PIN again
    std::string mismatch;
    std::string lengths; // the lengths the token allows, shown when one is outside
    std::string login;   // the PIN for a login
};

StandardPinTexts MakeStandardPinTexts(bool unblock, const Korvex::TokenProfile& profile, const std::string& token);

// Logs the user in for the signature test (one PIN asked, or the pad's).
Korvex::PKCS11Return LoginStandardToken(Korvex::acPKCS11& p11, const Korvex::TokenProfile& profile,
                                        const StandardPinTexts& texts);

// In a read-write session on the token.
Korvex::PKCS11Return RunStandardPinCommand(Korvex::acPKCS11& p11, bool unblock, const Korvex::TokenProfile& profile,
                                           const StandardPinTexts& texts);
