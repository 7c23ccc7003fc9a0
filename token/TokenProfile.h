// What each token offers the user, from one place: the table of the vendor's
// card generations (how the token information names them, their keys and
// PINs, infobox, identity link, APDU access) and the generic profile any
// other token gets from its own token information.
#pragma once

#include "token/acPKCS11Types.h"

#include <string>

namespace Korvex {

struct CardGeneration {
    TokenType type;
    const char* model;        // prefix of CK_TOKEN_INFO.model
    const char* label;        // prefix of the label; null: any label
    const char* displayName;  // the card list's type column
    int32_t sigAlgo, sigLength, encAlgo, encLength;  // KeyAlgorithm, bits
    bool extended;            // infobox file instead of three data objects
    int sigPinDigits, encPinDigits;
    bool unblock;             // the certificate PINs can be unblocked
    bool identityLinkPin;     // a third PIN guards the identity link
    bool countsTries;         // the module reports tries left per PIN
    bool loginPinIsIdentityLink;  // the token flags describe the identity-link PIN
    bool infobox, identityLink, apdu;
};

// The generations in the order the token information is matched against
// them (a longer model prefix before the shorter one it starts with).
extern const CardGeneration kCardGenerations[7];

// The row of a generation; null for TOKEN_UNKNOWN and anything not a row.
const CardGeneration* FindGeneration(int type);

// What the window offers for one token.
struct TokenProfile {
    // One of the vendor's cards, on a module with the vendor's extensions.
    bool vendor = false;
    bool pinBox[3] = {false, false, false};  // by ApplType
    bool change[3] = {false, false, false};
    bool unblock[3] = {false, false, false};
    bool infobox = false;
    bool identityLink = false;
    // Standard tokens: where the PIN is typed and how long it may be.
    bool protectedPath = false;
    unsigned long minPinLength = 0;
    unsigned long maxPinLength = 0;
};

// Vendor cards keep the rules of their generation; any other token gets one
// PIN box (the user PIN, in the signature group) with change and unblock
// when it needs a login, nothing when it does not.
TokenProfile ProfileOf(TokenType type, bool vendorExtensions, const CK_TOKEN_INFO& info);

// The type column of a standard token: manufacturer and model as reported.
std::string GenericTypeName(const CK_TOKEN_INFO& info);

} // namespace Korvex
