// Texts for PIN states and certificate validity.
#include "gui/CardStatusText.h"

#include "gui/Translate.h"

#include <wx/datetime.h>

namespace {

const std::time_t kSoonSeconds = 90L * 24 * 3600;

wxString LocalDate(std::time_t when, const char* format)
{
    return wxDateTime(static_cast<time_t>(when)).Format(format);
}

} // namespace

PinActions PinActionsFor(int tokenType, Korvex::ApplType appl)
{
    PinActions actions;
    // The e-card generations have no PUK; ACOS 04 and 05 keep their
    // identity-link PIN out of this window.
    if (tokenType >= Korvex::TOKEN_ECARD_G2)
        actions.unblock = false;
    if (appl == Korvex::APPL_IDENTITY_LINK && tokenType != Korvex::TOKEN_ACOS_A03)
        actions.unblock = actions.change = false;
    return actions;
}

wxString PinStatusText(const Korvex::PinStatus& status, PinActions actions)
{
    if (status.unreadable)
        return Tr("PIN-Status unbekannt");
    if (!status.known)
        return wxString();
    if (status.locked) {
        if (actions.unblock)
            return Tr("PIN gesperrt – mit PUK entsperren");
        return actions.change ? Tr("PIN gesperrt – neue Karte beim Kartenaussteller anfordern") : Tr("PIN gesperrt");
    }
    if (status.triesLeft == 1 || status.finalTry)
        return Tr("PIN: nur noch 1 Versuch");
    if (status.triesLeft > 1)
        return wxString::Format(Tr("PIN: noch %d Versuche"), status.triesLeft);
    if (status.countLow)
        return Tr("PIN: schon falsch eingegeben");
    return actions.change ? Tr("PIN: in Ordnung") : Tr("PIN: hier nicht änderbar");
}

ValidityMark CertificateValidity(const ListEntryData& row, std::time_t now)
{
    if (row.validTo == 0)
        return VALIDITY_UNKNOWN;
    if (now > row.validTo || (row.validFrom != 0 && now < row.validFrom))
        return VALIDITY_NOT_VALID;
    return row.validTo - now <= kSoonSeconds ? VALIDITY_EXPIRES_SOON : VALIDITY_GOOD;
}

wxString ValidUntilText(const ListEntryData& row, std::time_t now)
{
    if (row.validTo == 0)
        return wxString();
    const wxString date = LocalDate(row.validTo, "%d.%m.%Y");
    switch (CertificateValidity(row, now)) {
    case VALIDITY_NOT_VALID:
        return date + " " + (now > row.validTo ? Tr("(abgelaufen)") : Tr("(noch nicht gültig)"));
    case VALIDITY_EXPIRES_SOON:
        return date + " " + Tr("(läuft bald ab)");
    default:
        return date;
    }
}

wxString CertificateDetails(const ListEntryData& row)
{
    if (row.validTo == 0)
        return wxString();
    return wxString::Format(Tr("Zertifikat ausgestellt von %s\ngültig von %s bis %s"), row.issuer,
                            LocalDate(row.validFrom, "%d.%m.%Y %H:%M"), LocalDate(row.validTo, "%d.%m.%Y %H:%M"));
}
