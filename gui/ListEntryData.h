// One row of the card list as the refresh thread reads it; shared between the
// thread and the window through shared pointers.
#pragma once

#include "token/CardPinStates.h"
#include "token/TokenProfile.h"
#include "token/acPKCS11Types.h"

#include <wx/string.h>

#include <ctime>
#include <memory>
#include <vector>

struct ListEntryData {
    wxString number;   // card number (token serial)
    wxString holder;   // common name of the signing certificate, or "unbekannt"
    wxString typeName; // display name of the card type, empty when unknown
    int type = Korvex::TOKEN_UNKNOWN; // TokenType, stored as the row's item data
};

// The row as this program keeps it: the card list's record and what the
// window shows beside it (PIN lines, validity, tooltip, the token's profile).
struct CardRow : ListEntryData {
    unsigned long slotId = 0;          // the reader the card was read in
    Korvex::CardPinStates pins;        // what the card told about its PINs
    // Validity of the signature certificate (UTC seconds), 0 when unknown.
    std::time_t validFrom = 0;
    std::time_t validTo = 0;
    wxString issuer;                   // common name of its issuer
    Korvex::TokenProfile profile;      // what the window offers for this token
    wxString module;                   // the slot's maker, named in the tooltip
    std::vector<wxString> certificates; // standard tokens: certificate labels, in token order
};

typedef std::vector<std::shared_ptr<CardRow>> ListEntryVector;

// Display name of a card generation (from the generation table); empty for
// any other value.
wxString TokenTypeDisplayName(int type);
