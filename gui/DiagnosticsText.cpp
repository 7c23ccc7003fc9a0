// Formatting of the diagnostics report; see DiagnosticsText.h.
#include "gui/DiagnosticsText.h"

#include "app/VessaCardsLogger.h"
#include "base/Config.h"
#include "base/FileAndDirectory.h"
#include "gui/Translate.h"

#include <wx/translation.h>
#include "token/ReturnCodeNames.h"

#include <cstdio>
#include <iterator>

namespace {

struct FlagName {
    CK_FLAGS flag;
    const char* name;
};

// PKCS#11's own words for the flags, as support tools print them.
const FlagName kSlotFlags[] = {
    {CKF_TOKEN_PRESENT, "token present"},
    {CKF_REMOVABLE_DEVICE, "removable device"},
    {CKF_HW_SLOT, "hardware slot"},
};

const FlagName kTokenFlags[] = {
    {CKF_RNG, "rng"},
    {CKF_WRITE_PROTECTED, "write protected"},
    {CKF_LOGIN_REQUIRED, "login required"},
    {CKF_USER_PIN_INITIALIZED, "PIN initialized"},
    {CKF_PROTECTED_AUTHENTICATION_PATH, "PIN pad present"},
    {CKF_TOKEN_INITIALIZED, "token initialized"},
    {CKF_USER_PIN_COUNT_LOW, "user PIN count low"},
    {CKF_USER_PIN_FINAL_TRY, "final user PIN try"},
    {CKF_USER_PIN_LOCKED, "user PIN locked"},
    {CKF_USER_PIN_TO_BE_CHANGED, "user PIN to be changed"},
    {CKF_SO_PIN_COUNT_LOW, "SO PIN count low"},
    {CKF_SO_PIN_FINAL_TRY, "final SO PIN try"},
    {CKF_SO_PIN_LOCKED, "SO PIN locked"},
    {CKF_SO_PIN_TO_BE_CHANGED, "SO PIN to be changed"},
};

template <size_t N>
std::string FlagNames(CK_FLAGS flags, const FlagName (&table)[N])
{
    std::string text;
    CK_FLAGS rest = flags;
    for (const FlagName& entry : table) {
        if ((flags & entry.flag) == 0)
            continue;
        text += (text.empty() ? "" : ", ") + std::string(entry.name);
        rest &= ~entry.flag;
    }
    if (rest != 0) {
        char hex[32];
        std::snprintf(hex, sizeof hex, "0x%lx", static_cast<unsigned long>(rest));
        text += (text.empty() ? "" : ", ") + std::string(hex);
    }
    return text.empty() ? "-" : text;
}

wxString U8(const std::string& text) { return wxString::FromUTF8(text.c_str()); }

wxString Version(const CK_VERSION& version)
{
    return wxString::Format("%u.%u", static_cast<unsigned>(version.major), static_cast<unsigned>(version.minor));
}

// `name` is a catalogue key (marked where it is written) or a PKCS#11 call.
void Line(wxString& out, const wxString& indent, const char* name, const wxString& value)
{
    out << indent << Tr(name) << ": " << value << "\n";
}

wxString Failure(CK_RV rv)
{
    return wxString::Format(Tr("nicht lesbar (%s)"), U8(Korvex::ReturnCodeName(rv)));
}

} // namespace

std::string SlotFlagNames(CK_FLAGS flags) { return FlagNames(flags, kSlotFlags); }

std::string TokenFlagNames(CK_FLAGS flags) { return FlagNames(flags, kTokenFlags); }

wxString FormatDiagnostics(const Korvex::ModuleDiagnostics& module, const DiagnosticsContext& context)
{
    wxString out;
    // The configured version (the title's), and the build's own.
    Line(out, "", wxTRANSLATE("Programmversion"),
         (context.programVersion.empty() ? wxString() : context.programVersion + " / ") + KORVEX_BUILD_VERSION);
    Line(out, "", wxTRANSLATE("Moduldatei"), U8(module.modulePath.empty() ? std::string("-") : module.modulePath));
    if (!context.moduleFailure.empty()) {
        Line(out, "", wxTRANSLATE("Modulfehler"), context.moduleFailure);
    } else if (module.infoRv != CKR_OK) {
        Line(out, "", "C_GetInfo", Failure(module.infoRv));
    } else {
        Line(out, "", wxTRANSLATE("Cryptoki-Version"), Version(module.cryptokiVersion));
        Line(out, "", wxTRANSLATE("Modulhersteller"), U8(module.manufacturer));
        Line(out, "", wxTRANSLATE("Modulbeschreibung"), U8(module.description));
        Line(out, "", wxTRANSLATE("Modulversion"), Version(module.libraryVersion));
    }
    if (context.moduleFailure.empty() && module.slotListRv != CKR_OK)
        Line(out, "", "C_GetSlotList", Failure(module.slotListRv));

    for (const Korvex::SlotDiagnostics& slot : module.slots) {
        out << "\n" << wxString::Format(Tr("Steckplatz %lu"), static_cast<unsigned long>(slot.id)) << "\n";
        const wxString in = "  ";
        if (slot.slotRv != CKR_OK) {
            Line(out, in, "C_GetSlotInfo", Failure(slot.slotRv));
            continue;
        }
        Line(out, in, wxTRANSLATE("Leser"), U8(slot.description));
        Line(out, in, wxTRANSLATE("Leserhersteller"), U8(slot.manufacturer));
        Line(out, in, wxTRANSLATE("Leser-Flags"), U8(SlotFlagNames(slot.flags)));
        if (!slot.tokenPresent) {
            out << in << Tr("keine Karte") << "\n";
            continue;
        }
        if (slot.tokenRv != CKR_OK) {
            Line(out, in, "C_GetTokenInfo", Failure(slot.tokenRv));
            continue;
        }
        const Korvex::TokenDiagnostics& token = slot.token;
        Line(out, in, wxTRANSLATE("Kartenbezeichnung"), U8(token.label));
        Line(out, in, wxTRANSLATE("Kartenhersteller"), U8(token.manufacturer));
        Line(out, in, wxTRANSLATE("Modell"), U8(token.model));
        Line(out, in, wxTRANSLATE("Seriennummer"), U8(token.serial));
        Line(out, in, wxTRANSLATE("Hardwareversion"), Version(token.hardware));
        Line(out, in, wxTRANSLATE("Firmwareversion"), Version(token.firmware));
        Line(out, in, wxTRANSLATE("Karten-Flags"), U8(TokenFlagNames(token.flags)));
        Line(out, in, wxTRANSLATE("PIN-Länge"), wxString::Format("%lu-%lu", static_cast<unsigned long>(token.minPinLength),
                                                     static_cast<unsigned long>(token.maxPinLength)));
    }

    out << "\n";
    if (context.settingsFiles.empty())
        Line(out, "", wxTRANSLATE("Einstellungsdatei"), "-");
    for (const std::string& file : context.settingsFiles)
        Line(out, "", wxTRANSLATE("Einstellungsdatei"), U8(file));
    Line(out, "", wxTRANSLATE("Protokollordner"), context.logFolder.empty() ? Tr("kein Protokoll") : U8(context.logFolder));
    return out;
}

DiagnosticsContext CurrentDiagnosticsContext(const wxString& programVersion)
{
    DiagnosticsContext context;
    context.programVersion = programVersion;
    if (Korvex::Config* config = Korvex::Config::GetHandle(0)) {
        for (Korvex::ConfigType type : {Korvex::CONFIG_ALL_USERS, Korvex::CONFIG_CURRENT_USER}) {
            const std::string file = config->GetFileName(type);
            if (!file.empty() && Korvex::FileExists(file))
                context.settingsFiles.push_back(file);
        }
    }
    const std::string logFile = AppLog()->GetFileName();
    if (!logFile.empty())
        context.logFolder = Korvex::RemoveLastPartFromPath(logFile);
    return context;
}
