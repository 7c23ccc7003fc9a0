// Texts for PIN states and certificate validity.
#include "gui/CardStatusText.h"

#include "app/I18N.h"
#include "gui/Translate.h"

#include <wx/datetime.h>
#include <wx/intl.h>

#include <clocale>
#include <string>

namespace {

const std::time_t kSoonSeconds = 90L * 24 * 3600;

// The desktop's own date format where its locale is installed; without one
// (C, POSIX) the window's language decides: day.month.year in German,
// year-month-day, which no reader misreads, in any other.
wxString LocalDate(std::time_t when)
{
    const char* timeLocale = std::setlocale(LC_TIME, nullptr);
    const std::string name = timeLocale != nullptr ? timeLocale : "C";
    const bool installed = !(name == "C" || name == "POSIX" || name.rfind("C.", 0) == 0);
    // German is the window's own language: any catalogue means another.
    const wxLocale* window = wxGetLocale();
    const bool german = window == nullptr || !window->IsLoaded(CATALOG_NAME);
    return wxDateTime(static_cast<time_t>(when)).Format(installed ? "%x" : german ? "%d.%m.%Y" : "%Y-%m-%d");
}

wxString LocalTime(std::time_t when)
{
    return LocalDate(when) + wxDateTime(static_cast<time_t>(when)).Format(" %H:%M");
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

ValidityMark CertificateValidity(const CardRow& row, std::time_t now)
{
    if (row.validTo == 0)
        return VALIDITY_UNKNOWN;
    if (now > row.validTo || (row.validFrom != 0 && now < row.validFrom))
        return VALIDITY_NOT_VALID;
    return row.validTo - now <= kSoonSeconds ? VALIDITY_EXPIRES_SOON : VALIDITY_GOOD;
}

wxString ValidUntilText(const CardRow& row, std::time_t now)
{
    if (row.validTo == 0)
        return wxString();
    const wxString date = LocalDate(row.validTo);
    switch (CertificateValidity(row, now)) {
    case VALIDITY_NOT_VALID:
        return date + " " + (now > row.validTo ? Tr("(abgelaufen)") : Tr("(noch nicht gültig)"));
    case VALIDITY_EXPIRES_SOON:
        return date + " " + Tr("(läuft bald ab)");
    default:
        return date;
    }
}

wxString CertificateDetails(const CardRow& row)
{
    if (row.validTo == 0)
        return wxString();
    return wxString::Format(Tr("Zertifikat ausgestellt von %s\ngültig von %s bis %s"), row.issuer,
                            LocalTime(row.validFrom), LocalTime(row.validTo));
}
