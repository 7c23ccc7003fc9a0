// The words and marks the window shows for a card's state: PIN tries left in
// each application's box and the signature certificate's validity in the
// list. Unknown states give empty texts rather than a guess.
#pragma once

#include "gui/ListEntryData.h"

#include <wx/string.h>

#include <ctime>

// What the holder can do about a PIN in this window.
struct PinActions {
    bool unblock = true; // a PUK unblocks it
    bool change = true;  // it is changed here
};
PinActions PinActionsFor(int tokenType, Korvex::ApplType appl);

// "PIN: noch 2 Versuche", "PIN gesperrt – mit PUK entsperren", ...; a locked
// PIN says what the holder can do about it; "PIN-Status unbekannt" when the
// card's answer could not be read; empty when the card does not tell.
wxString PinStatusText(const Korvex::PinStatus& status, PinActions actions = PinActions());

enum ValidityMark { VALIDITY_UNKNOWN, VALIDITY_GOOD, VALIDITY_EXPIRES_SOON, VALIDITY_NOT_VALID };

// Expired or not yet valid, within 90 days of its end, or good.
ValidityMark CertificateValidity(const CardRow& row, std::time_t now);
// The "Gültig bis" cell: local date of the end, with a word when marked.
wxString ValidUntilText(const CardRow& row, std::time_t now);
// Issuer and exact validity period of the certificate the refresh read (a
// card's two certificates are issued together), for the row's tooltip.
wxString CertificateDetails(const CardRow& row);
