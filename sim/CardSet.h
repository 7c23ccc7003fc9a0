// The readers and cards the simulator offers: read from a card-set file
// (XML), or the built-in demo set, or generated for tests with many cards.
#pragma once

#include "sim/Generation.h"

#include <istream>
#include <memory>
#include <string>
#include <vector>

namespace VessaSim {

enum PinIndex { PinSignature = 0, PinEncryption = 1, PinIdentityLink = 2, PinCount = 3 };

struct CardSpec {
    std::string id;
    Generation generation = Generation::AcosA04;
    std::string serial;  // 16 hex digits
    std::string givenName = "Vorname";
    std::string familyName = "Nachname";
    std::string birthDate = "1970-01-01";
    std::string baseId;  // empty: derived from the serial
    bool personalised = true;
    bool identityLink = true;
    std::string label;   // empty: the generation's label
    std::string pins[PinCount] = {"123456", "1234", "4321"};
    std::string puks[PinCount] = {"12345678", "87654321", "11223344"};
    int pinTries = 3;
    int pukTries = 10;
    // Tries left of the signature PIN on a fresh card (0: all of them).
    int signatureTriesLeft = 0;
    // End of both certificates' validity in days from when they are issued
    // (negative: expired already).
    long certificateValidDays = 1825;

    const GenerationProfile& profile() const { return profileOf(generation); }
    std::string holderName() const { return givenName + " " + familyName; }
    std::string tokenLabel() const { return label.empty() ? profile().label : label; }
};

struct ReaderSpec {
    std::string name;
    bool removable = true;
    std::shared_ptr<CardSpec> card;  // null: empty reader
};

struct CardSetSpec {
    std::vector<ReaderSpec> readers;
    std::vector<CardSpec> spares;

    // A card of the set (in a reader or spare) by id or serial; null if none.
    const CardSpec* findCard(const std::string& idOrSerial) const;
};

// Digits a PIN of this kind must have, and the PUK length.
int pinLength(PinIndex pin);
constexpr int kPukLength = 8;

bool parseCardSet(std::istream& xml, CardSetSpec& out, std::string& error);
bool loadCardSetFile(const std::string& path, CardSetSpec& out, std::string& error);
// VESSA_SIM_CARDS when set, else the demo set.
bool loadConfiguredCardSet(CardSetSpec& out, std::string& error);
CardSetSpec demoCardSet();
// `count` removable readers, each with a personalised card; generations in turn.
CardSetSpec generatedCardSet(int count);
std::string cardSetToXml(const CardSetSpec& set);

// "GENERATION:SERIAL[:Given:Family]"
bool parseAdHocCard(const std::string& text, CardSpec& out, std::string& error);
// A card of the set by id or serial, or an ad-hoc card.
bool resolveCard(const CardSetSpec& set, const std::string& reference, CardSpec& out,
                 std::string& error);
// Checks serial and PIN formats.
bool validateCard(const CardSpec& card, std::string& error);

} // namespace VessaSim
