// Builders for the identity link, the e-card records and the factory infobox.
#include "sim/CardData.h"

#include "base/base64.h"
#include "crypto/Hash.h"
#include "formats/DerWriter.h"
#include "sim/OpenSslPtr.h"

#include <openssl/evp.h>

namespace VessaSim {

namespace Der = Korvex::Der;

namespace {

Bytes sha1(const Bytes& data) {
    Bytes digest;
    unsigned char buffer[20];
    unsigned long length = sizeof buffer;
    static const unsigned char kEmpty = 0;
    if (Korvex::Hash(data.empty() ? &kEmpty : data.data(), data.size(), buffer, length, Korvex::HashSha1)) {
        digest.assign(buffer, buffer + length);
    }
    return digest;
}

// The reference digests of the identity link are SHA-256, as the companion
// writes them: the reader keeps up to 256 bytes of each and checks none, so
// the choice is free, and SHA-1 is no longer fit for new references. The
// simulated cards and a card the companion has written then look alike.
Bytes sha256(const Bytes& data) {
    Bytes digest;
    Korvex::Hash(data, digest, Korvex::HashSha256, false);
    return digest;
}

Bytes textBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

// Cuts a UTF-8 text to at most `limit` bytes without splitting a character.
std::string cutUtf8(const std::string& text, size_t limit) {
    if (text.size() <= limit) return text;
    size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

// "1975-04-12" -> "120475"
std::string birthDigits(const std::string& birth) {
    if (birth.size() != 10) return "010170";
    return birth.substr(8, 2) + birth.substr(5, 2) + birth.substr(2, 2);
}

} // namespace

Bytes signWithCa(EVP_PKEY* caKey, const Bytes& data) {
    MdCtxPtr context(EVP_MD_CTX_new());
    size_t size = 0;
    if (!caKey || !context ||
        EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, caKey) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &size, data.data(), data.size()) != 1) {
        return Bytes(256, 0);
    }
    Bytes signature(size);
    if (EVP_DigestSign(context.get(), signature.data(), &size, data.data(), data.size()) != 1) {
        return Bytes(256, 0);
    }
    signature.resize(size);
    return signature;
}

std::string defaultBaseId(const std::string& serial) {
    return Korvex::b64Encode(sha1(textBytes("vessa-sim-stammzahl:" + serial)));
}

Bytes buildIdentityLink(const CardSpec& card, EVP_PKEY* caKey) {
    return buildIdentityLink(card, [caKey](const Bytes& data) { return signWithCa(caKey, data); });
}

Bytes buildIdentityLink(const CardSpec& card, const std::function<Bytes(const Bytes&)>& sign) {
    const std::string baseId = card.baseId.empty() ? defaultBaseId(card.serial) : card.baseId;
    // The reader expects the person data in one short-form SEQUENCE, so the
    // names are cut if a card set gives very long ones.
    std::string given = cutUtf8(card.givenName, 36);
    std::string family = cutUtf8(card.familyName, 36);
    Bytes personData = Der::sequence({Der::utf8(cutUtf8(baseId, 32)), Der::utf8(given),
                                      Der::utf8(family), Der::utf8(cutUtf8(card.birthDate, 10))});
    const std::string issuerTemplate = "https://vessa.example/templates/Personenbindung-1.2.xslt";
    const std::string assertionId = "vessa-sim-" + card.serial + "-1";
    const std::string issueInstant = "2024-03-01T10:15:00+01:00";
    Bytes citizenKeyReferences = Der::concat({Der::context(0, Der::integer(1)),
                                              Der::context(0, Der::integer(2))});
    Bytes signature = sign(personData);
    return Der::sequence({
        Der::integer(1),
        Der::utf8(issuerTemplate),
        Der::utf8(assertionId),
        Der::utf8(issueInstant),
        Der::context(0, personData),
        Der::tlv(Der::Sequence, citizenKeyReferences),
        Der::bits(signature),
        Der::context(0, Der::bits(sha256(personData))),
        Der::context(1, Der::bits(sha256(textBytes(issuerTemplate)))),
        Der::context(2, Der::bits(sha256(textBytes(assertionId)))),
    });
}

std::string insuranceNumber(const CardSpec& card) {
    // Four serial digits and the birth date (DDMMYY), as the numbers look.
    return card.serial.substr(12, 4) + birthDigits(card.birthDate);
}

Bytes buildEhicRecord(const CardSpec& card) {
    return Der::sequence({
        Der::context(0, Der::printable("AT")),
        Der::context(1, Der::utf8(card.familyName)),
        Der::context(2, Der::utf8(card.givenName)),
        Der::context(3, Der::printable(card.birthDate)),
        Der::context(4, Der::printable(insuranceNumber(card))),
        Der::context(5, Der::printable("1100")),
        Der::context(6, Der::utf8("Simulierte Gesundheitskasse")),
        Der::context(7, Der::printable("8040" + card.serial)),
        Der::context(8, Der::printable("2030-12-31")),
    });
}

Bytes buildBasicPersonalDataRecord(const CardSpec& card) {
    std::string birth = card.birthDate;
    std::string compactBirth;
    for (char c : birth) {
        if (c != '-') compactBirth += c;
    }
    return Der::sequence({
        Der::context(0, Der::printable(insuranceNumber(card))),
        Der::context(1, Der::utf8(card.givenName)),
        Der::context(2, Der::utf8(card.familyName)),
        Der::context(3, Der::printable(compactBirth)),
        Der::context(4, Der::printable("16")),
    });
}

std::vector<InfoboxEntrySpec> factoryInfobox(const CardSpec& card, const Bytes& identityLink) {
    std::vector<InfoboxEntrySpec> entries;
    if (card.identityLink) entries.push_back({1, 0x00, identityLink});
    entries.push_back({2, 0x00, textBytes("Notiz: Karte aus dem vessa Kartensimulator, Inhaber " +
                                          card.holderName() + ".")});
    entries.push_back({3, 0x01, textBytes("Gesch\xC3\xBCtzte Daten von " + card.holderName() +
                                          ": Blutgruppe 0+, Notfallkontakt +43 1 234567.")});
    return entries;
}

} // namespace VessaSim
