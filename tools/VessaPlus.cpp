// Companion program for the simulated cards: writes a freshly made identity
// link onto a card that has none, so that the card manager's "no identity
// link" path can be followed to its end. The card manager starts it as
// `VessaPlus -z`; the PIN is asked by the module's own PIN dialogue.
//
//   VessaPlus -z [CIN] [--birth-date YYYY-MM-DD]
//
// Without a CIN the first card without an identity link is used. Without a
// date the simulator's card set gives the holder's; elsewhere it must be
// given. Exit status: 0 written (one line on standard output), 1 failed,
// 2 wrong call (the reason as the last line on standard error).
#include "formats/Personenbindung.h"
#include "token/LoadFreeLib.h"
#include "token/acPKCS11.h"
#include "tools/IdentityLinkBuilder.h"

#include <dlfcn.h>
#include <openssl/objects.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace {


// An object whose first bytes are all zero holds no identity link.
constexpr std::size_t kEmptyProbeBytes = 128;
constexpr std::size_t kSignatureBytes = 64;
const char kIssuerTemplate[] = "urn:vessa:identity-link:template:1";

struct Options {
    bool write = false;
    std::string cin;
    std::string birth;
};

void LogError(const char* text) { std::fprintf(stderr, "VessaPlus: %s\n", text); }

int Usage() {
    std::fprintf(stderr, "Aufruf: VessaPlus -z [CIN] [--birth-date JJJJ-MM-TT]\n");
    return 2;
}

// A calendar date as YYYY-MM-DD.
bool IsDate(const std::string& text) {
    int year = 0, month = 0, day = 0;
    char end = 0;
    if (text.size() != 10 || std::sscanf(text.c_str(), "%4d-%2d-%2d%c", &year, &month, &day, &end) != 3 ||
        text[4] != '-' || text[7] != '-' || month < 1 || month > 12 || day < 1)
        return false;
    static const int days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return day <= days[month - 1] && (month != 2 || day <= 28 || leap);
}

// The holder's birth date as the simulator's card set has it; empty on a
// real module, which offers no such attribute.
std::string BirthDateFromSimulator(Korvex::acPKCS11& p11, int position) {
    typedef CK_RV (*CardAttribute)(CK_SESSION_HANDLE, const char*, CK_BYTE_PTR, CK_ULONG_PTR);
    void* module = dlopen(Korvex::PKCS11_LIB_NAME, RTLD_LAZY | RTLD_NOLOAD);
    if (module == nullptr) return {};
    const auto read = reinterpret_cast<CardAttribute>(dlsym(module, "C_CardAttribute"));
    std::string date;
    if (read != nullptr && p11.OpenSession(position, false)) {
        char buffer[16];
        CK_ULONG length = sizeof buffer;
        if (read(p11.GetSessionHandle(), "Simulator/Geburtsdatum", reinterpret_cast<CK_BYTE_PTR>(buffer),
                 &length) == CKR_OK && length <= sizeof buffer)
            date.assign(buffer, length);
        p11.CloseSession();
    }
    dlclose(module);
    return IsDate(date) ? date : std::string();
}

bool ParseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-z") {
            options.write = true;
        } else if ((arg == "--birth-date" || arg == "--birth") && i + 1 < argc) {
            options.birth = argv[++i];
            if (!IsDate(options.birth)) return false;
        } else if (!arg.empty() && arg[0] != '-' && options.cin.empty()) {
            options.cin = arg;
        } else {
            return false;
        }
    }
    return options.write;
}

bool HasIdentityLink(Korvex::acPKCS11& p11, int position) {
    if (!p11.OpenSession(position, false)) return false;
    std::vector<unsigned char> value;
    const bool read = p11.ReadDataObject("PERSONENBINDUNG", value);
    p11.CloseSession();
    const std::size_t probe = std::min(value.size(), kEmptyProbeBytes);
    return read && std::any_of(value.begin(), value.begin() + static_cast<long>(probe),
                               [](unsigned char b) { return b != 0; });
}

std::string NameEntry(X509_NAME* name, int nid) {
    const int index = X509_NAME_get_index_by_NID(name, nid, -1);
    if (index < 0) return {};
    unsigned char* utf8 = nullptr;
    const int length =
        ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
    if (length < 0) return {};
    std::string text(reinterpret_cast<char*>(utf8), static_cast<std::size_t>(length));
    OPENSSL_free(utf8);
    return text;
}

// Given and family name of the holder from the card's signature certificate:
// the dedicated name attributes where present, else the common name split
// at its first blank.
bool HolderFromCertificate(Korvex::acPKCS11& p11, int position, std::string& given,
                           std::string& family) {
    if (!p11.OpenSession(position, false)) return false;
    std::vector<unsigned char> der(Korvex::acPKCS11::CERT_BUFFER_SIZE);
    unsigned long length = der.size();
    const bool loaded =
        p11.LoadSigningCertificate(true) && p11.GetSigningCertificate(der.data(), length);
    p11.CloseSession();
    if (!loaded) return false;

    const unsigned char* cursor = der.data();
    std::unique_ptr<X509, decltype(&X509_free)> cert(
        d2i_X509(nullptr, &cursor, static_cast<long>(length)), X509_free);
    if (!cert) return false;
    X509_NAME* subject = X509_get_subject_name(cert.get());
    given = NameEntry(subject, NID_givenName);
    family = NameEntry(subject, NID_surname);
    if (!given.empty() && !family.empty()) return true;
    const std::string common = NameEntry(subject, NID_commonName);
    const std::size_t blank = common.find(' ');
    if (blank == std::string::npos) {
        given.clear();
        family = common;
    } else {
        given = common.substr(0, blank);
        family = common.substr(blank + 1);
    }
    return !family.empty();
}

std::string RandomDigits(std::size_t count) {
    std::vector<unsigned char> bytes(count);
    RAND_bytes(bytes.data(), static_cast<int>(count));
    std::string digits;
    for (unsigned char b : bytes) digits += static_cast<char>('0' + b % 10);
    return digits;
}

std::string IssueInstantNow() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) return Usage();
    Korvex::acPKCS11::SetErrorLoggingFunc(LogError);

    Korvex::acPKCS11 p11;
    if (!p11.init()) {
        std::fprintf(stderr, "VessaPlus: Die PKCS#11-Bibliothek kann nicht geladen werden.\n");
        return 1;
    }

    std::vector<Korvex::SlotStruct*> slots;
    if (!p11.GetSlots(slots)) {
        std::fprintf(stderr, "VessaPlus: Die Kartenliste kann nicht gelesen werden.\n");
        return 1;
    }
    // The records belong to p11 and change with the next enumeration.
    std::vector<std::string> serials;
    for (const Korvex::SlotStruct* slot : slots) serials.push_back(slot->serial);

    int position = -1;
    if (!options.cin.empty()) {
        position = p11.findSlotForCin(options.cin);
        if (position >= 0 && HasIdentityLink(p11, position)) {
            std::fprintf(stderr, "VessaPlus: Die Karte %s hat bereits eine Personenbindung.\n",
                         options.cin.c_str());
            return 1;
        }
    } else {
        for (int i = 0; i < static_cast<int>(serials.size()) && position < 0; ++i)
            if (!HasIdentityLink(p11, i)) position = i;
    }
    if (position < 0 || position >= static_cast<int>(serials.size())) {
        std::fprintf(stderr, "VessaPlus: Keine Karte ohne Personenbindung gefunden.\n");
        return 1;
    }
    const std::string cin = serials[static_cast<std::size_t>(position)];

    VessaPlus::IdentityLinkFields fields;
    if (!HolderFromCertificate(p11, position, fields.givenName, fields.familyName)) {
        std::fprintf(stderr, "VessaPlus: Das Zertifikat der Karte %s kann nicht gelesen werden.\n",
                     cin.c_str());
        return 1;
    }
    fields.issuerTemplate = kIssuerTemplate;
    fields.assertionId = "vessaplus-" + cin + "-" + RandomDigits(8);
    fields.issueInstant = IssueInstantNow();
    fields.baseId = RandomDigits(12);
    // Holder certificates carry no date of birth: it is given, or the
    // simulator knows it. A made-up date would end up on the card.
    fields.dateOfBirth = options.birth.empty() ? BirthDateFromSimulator(p11, position) : options.birth;
    if (fields.dateOfBirth.empty()) {
        std::fprintf(stderr, "VessaPlus: Das Geburtsdatum für Karte %s ist unbekannt: bitte mit --birth-date JJJJ-MM-TT angeben.\n",
                     cin.c_str());
        return 2;
    }
    // No register signs for the simulated cards; the card stores the value
    // without checking it.
    fields.signatureValue.resize(kSignatureBytes);
    RAND_bytes(fields.signatureValue.data(), static_cast<int>(kSignatureBytes));

    std::vector<unsigned char> der;
    std::string error;
    if (!VessaPlus::BuildIdentityLink(fields, der, error)) {
        std::fprintf(stderr, "VessaPlus: %s\n", error.c_str());
        return 1;
    }

    if (!p11.UpdatePersonenbindung(cin, der, error)) {
        std::fprintf(stderr, "VessaPlus: %s\n", error.c_str());
        return 1;
    }
    std::printf("Personenbindung für %s %s (geboren %s) auf Karte %s geschrieben.\n", fields.givenName.c_str(),
                fields.familyName.c_str(), fields.dateOfBirth.c_str(), cin.c_str());
    return 0;
}
