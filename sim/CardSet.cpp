// Card-set files: reading, writing, the demo set and generated sets.
#include "sim/CardSet.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace VessaSim {

namespace pt = boost::property_tree;

namespace {

const char* const kPinNames[PinCount] = {"sig", "enc", "link"};

bool allDigits(const std::string& text) {
    if (text.empty()) return false;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

bool allHex(const std::string& text) {
    for (char c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    }
    return true;
}

bool parseBool(const std::string& text, bool fallback) {
    if (text == "true" || text == "1" || text == "yes") return true;
    if (text == "false" || text == "0" || text == "no") return false;
    return fallback;
}

bool readCard(const pt::ptree& node, CardSpec& card, std::string& error) {
    const pt::ptree empty;
    const pt::ptree& attrs = node.get_child("<xmlattr>", empty);
    std::string generation = attrs.get<std::string>("generation", "");
    if (!generationFromName(generation, card.generation)) {
        error = "unknown generation '" + generation + "'";
        return false;
    }
    card.serial = attrs.get<std::string>("serial", "");
    card.id = attrs.get<std::string>("id", card.serial);
    card.givenName = attrs.get<std::string>("given", card.givenName);
    card.familyName = attrs.get<std::string>("family", card.familyName);
    card.birthDate = attrs.get<std::string>("birth", card.birthDate);
    card.baseId = attrs.get<std::string>("baseid", "");
    bool blankSerial = card.serial == "0000000000000000";
    card.personalised = parseBool(attrs.get<std::string>("personalised", ""),
                                  !blankSerial && card.profile().isCard);
    card.identityLink = parseBool(attrs.get<std::string>("identitylink", ""), true);
    card.label = attrs.get<std::string>("label", "");
    for (int i = 0; i < PinCount; ++i) {
        card.pins[i] = attrs.get<std::string>(std::string(kPinNames[i]) + "-pin", card.pins[i]);
        card.puks[i] = attrs.get<std::string>(std::string(kPinNames[i]) + "-puk", card.puks[i]);
    }
    card.pinTries = attrs.get<int>("pin-tries", card.pinTries);
    card.pukTries = attrs.get<int>("puk-tries", card.pukTries);
    card.signatureTriesLeft = attrs.get<int>("sig-tries-left", 0);
    card.certificateValidDays = attrs.get<long>("cert-valid-days", card.certificateValidDays);
    return validateCard(card, error);
}

void writeCard(pt::ptree& parent, const CardSpec& card) {
    pt::ptree& node = parent.add("card", "");
    node.put("<xmlattr>.id", card.id);
    node.put("<xmlattr>.generation", card.profile().name);
    node.put("<xmlattr>.serial", card.serial);
    if (card.personalised) {
        node.put("<xmlattr>.given", card.givenName);
        node.put("<xmlattr>.family", card.familyName);
        node.put("<xmlattr>.birth", card.birthDate);
    } else {
        node.put("<xmlattr>.personalised", "false");
    }
    if (!card.identityLink) node.put("<xmlattr>.identitylink", "false");
    if (card.signatureTriesLeft != 0) node.put("<xmlattr>.sig-tries-left", card.signatureTriesLeft);
    if (card.certificateValidDays != CardSpec().certificateValidDays)
        node.put("<xmlattr>.cert-valid-days", card.certificateValidDays);
}

CardSpec makeCard(const char* id, Generation generation, const char* serial, const char* given,
                  const char* family, const char* birth) {
    CardSpec card;
    card.id = id;
    card.generation = generation;
    card.serial = serial;
    card.givenName = given;
    card.familyName = family;
    card.birthDate = birth;
    return card;
}

ReaderSpec makeReader(const std::string& name, const CardSpec* card, bool removable = true) {
    ReaderSpec reader;
    reader.name = name;
    reader.removable = removable;
    if (card) reader.card = std::make_shared<CardSpec>(*card);
    return reader;
}

} // namespace

int pinLength(PinIndex pin) { return pin == PinSignature ? 6 : 4; }

bool validateCard(const CardSpec& card, std::string& error) {
    if (card.serial.size() != 16 || !allHex(card.serial)) {
        error = "serial '" + card.serial + "' is not 16 hexadecimal digits";
        return false;
    }
    for (const std::string* text : {&card.id, &card.givenName, &card.familyName, &card.birthDate, &card.baseId,
                                    &card.label}) {
        if (hasControlCharacter(*text)) {
            error = "card " + card.serial + " has a control character in a text";
            return false;
        }
    }
    if (card.tokenLabel().size() > 32) {
        error = "label of card " + card.serial + " is longer than 32 bytes";
        return false;
    }
    for (int i = 0; i < PinCount; ++i) {
        PinIndex pin = static_cast<PinIndex>(i);
        if (card.pins[i].size() != static_cast<size_t>(pinLength(pin)) || !allDigits(card.pins[i])) {
            error = std::string(kPinNames[i]) + "-pin of card " + card.serial + " must be " +
                    std::to_string(pinLength(pin)) + " digits";
            return false;
        }
        if (card.puks[i].size() != kPukLength || !allDigits(card.puks[i])) {
            error = std::string(kPinNames[i]) + "-puk of card " + card.serial + " must be 8 digits";
            return false;
        }
    }
    if (card.signatureTriesLeft < 0 || card.signatureTriesLeft > card.pinTries ||
        card.certificateValidDays < -36500 || card.certificateValidDays > 36500) {
        error = "signature PIN tries or certificate validity of card " + card.serial + " out of range";
        return false;
    }
    if (card.pinTries < 1 || card.pinTries > 15 || card.pukTries < 1 || card.pukTries > 15) {
        error = "tries of card " + card.serial + " must be 1 to 15";
        return false;
    }
    return true;
}

const CardSpec* CardSetSpec::findCard(const std::string& idOrSerial) const {
    for (const auto& reader : readers) {
        if (reader.card && (reader.card->id == idOrSerial || reader.card->serial == idOrSerial)) {
            return reader.card.get();
        }
    }
    for (const auto& card : spares) {
        if (card.id == idOrSerial || card.serial == idOrSerial) return &card;
    }
    return nullptr;
}

bool parseCardSet(std::istream& xml, CardSetSpec& out, std::string& error) {
    pt::ptree tree;
    try {
        pt::read_xml(xml, tree, pt::xml_parser::trim_whitespace);
    } catch (const pt::ptree_error& e) {
        error = e.what();
        return false;
    }
    auto root = tree.get_child_optional("cardset");
    if (!root) {
        error = "no <cardset> element";
        return false;
    }
    CardSetSpec result;
    for (const auto& child : *root) {
        if (child.first == "reader") {
            ReaderSpec reader;
            reader.name = child.second.get<std::string>("<xmlattr>.name", "");
            if (reader.name.empty() || reader.name.size() > 64 || hasControlCharacter(reader.name)) {
                error = "reader without a name, with a name longer than 64 bytes or with a control character";
                return false;
            }
            reader.removable = parseBool(child.second.get<std::string>("<xmlattr>.removable", ""), true);
            int cards = 0;
            for (const auto& inner : child.second) {
                if (inner.first != "card") continue;
                if (++cards > 1) {
                    error = "reader '" + reader.name + "' holds more than one card";
                    return false;
                }
                CardSpec card;
                if (!readCard(inner.second, card, error)) return false;
                reader.card = std::make_shared<CardSpec>(card);
            }
            result.readers.push_back(reader);
        } else if (child.first == "spare") {
            for (const auto& inner : child.second) {
                if (inner.first != "card") continue;
                CardSpec card;
                if (!readCard(inner.second, card, error)) return false;
                result.spares.push_back(card);
            }
        }
    }
    if (result.readers.empty()) {
        error = "card set without readers";
        return false;
    }
    out = std::move(result);
    return true;
}

bool loadCardSetFile(const std::string& path, CardSetSpec& out, std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot open card set " + path;
        return false;
    }
    if (!parseCardSet(in, out, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

bool loadConfiguredCardSet(CardSetSpec& out, std::string& error) {
    const char* path = std::getenv("VESSA_SIM_CARDS");
    if (path && *path) return loadCardSetFile(path, out, error);
    out = demoCardSet();
    return true;
}

CardSetSpec demoCardSet() {
    CardSetSpec set;
    const CardSpec maria = makeCard("maria", Generation::AcosA04, "1204000000004711", "Maria",
                                    "Musterfrau", "1975-04-12");
    // Max's signature PIN is on its last try, Erika's certificates have
    // expired and Franz's expires soon: the list shows each of them.
    CardSpec max = makeCard("max", Generation::ECardG4, "3014000000000815", "Max", "Mustermann",
                            "1968-11-03");
    max.signatureTriesLeft = 1;
    CardSpec erika = makeCard("erika", Generation::ECardG2, "3002000000004242", "Erika",
                              "Beispiel", "1982-07-21");
    erika.certificateValidDays = -30;
    const CardSpec johann = makeCard("johann", Generation::AcosA03, "1203000000001111", "Johann",
                                     "\xC3\x96sterreicher", "1959-01-30");
    CardSpec blank = makeCard("blank", Generation::AcosA05, "0000000000000000", "", "", "");
    blank.personalised = false;
    blank.identityLink = false;
    CardSpec internal = makeCard("internal", Generation::Internal, "0000000000000001", "", "", "");
    internal.personalised = false;
    internal.identityLink = false;
    // Shows the way of a card that still needs its identity link written.
    CardSpec franz = makeCard("franz", Generation::AcosA03, "1203000000007777", "Franz", "Neubauer",
                              "1993-05-17");
    franz.identityLink = false;
    franz.certificateValidDays = 45;

    set.readers.push_back(makeReader("Vessa Reader 0", &maria));
    set.readers.push_back(makeReader("Vessa Reader 1", &max));
    set.readers.push_back(makeReader("Vessa Reader 2", &erika));
    set.readers.push_back(makeReader("Vessa Reader 3", &johann));
    set.readers.push_back(makeReader("Vessa Reader 4", &blank));
    set.readers.push_back(makeReader("Vessa Reader 5", nullptr));
    set.readers.push_back(makeReader("Vessa Reader 6", &franz));
    // The internal slot comes last, as on most machines: a program that counts
    // positions among present tokens sees the removable readers first.
    set.readers.push_back(makeReader("Vessa Internal Slot", &internal, false));

    set.spares.push_back(makeCard("anna", Generation::AcosA05, "1205000000000505", "Anna", "Gruber",
                                  "1990-03-15"));
    set.spares.push_back(makeCard("lukas", Generation::ECardG3A, "3031000000003333", "Lukas",
                                  "Huber", "1971-09-09"));
    set.spares.push_back(makeCard("sophie", Generation::ECardG3B, "3032000000003434", "Sophie",
                                  "Wagner", "1988-12-24"));
    return set;
}

CardSetSpec generatedCardSet(int count) {
    static const char* const kGivenNames[] = {"Anna",  "Bernd", "Clara", "David",
                                              "Eva",   "Franz", "Greta", "Hans"};
    const std::vector<Generation> generations = allCardGenerations();
    CardSetSpec set;
    for (int i = 0; i < count; ++i) {
        Generation generation = generations[static_cast<size_t>(i) % generations.size()];
        char serial[32];
        std::snprintf(serial, sizeof serial, "99%d%013d", static_cast<int>(generation), i);
        char family[32];
        std::snprintf(family, sizeof family, "Test%03d", i);
        char birth[16];
        std::snprintf(birth, sizeof birth, "19%02d-%02d-%02d", 50 + i % 50, 1 + i % 12, 1 + i % 28);
        CardSpec card = makeCard(serial, generation, serial, kGivenNames[i % 8], family, birth);
        card.id = "card" + std::to_string(i);
        set.readers.push_back(makeReader("Vessa Reader " + std::to_string(i), &card));
    }
    return set;
}

std::string cardSetToXml(const CardSetSpec& set) {
    pt::ptree tree;
    pt::ptree& root = tree.add("cardset", "");
    for (const auto& reader : set.readers) {
        pt::ptree& node = root.add("reader", "");
        node.put("<xmlattr>.name", reader.name);
        if (!reader.removable) node.put("<xmlattr>.removable", "false");
        if (reader.card) writeCard(node, *reader.card);
    }
    if (!set.spares.empty()) {
        pt::ptree& spare = root.add("spare", "");
        for (const auto& card : set.spares) writeCard(spare, card);
    }
    std::ostringstream out;
    pt::write_xml(out, tree, pt::xml_writer_make_settings<std::string>(' ', 2));
    return out.str();
}

bool parseAdHocCard(const std::string& text, CardSpec& out, std::string& error) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, ':')) parts.push_back(part);
    if (parts.size() != 2 && parts.size() != 4) {
        error = "'" + text + "' is neither a known card nor GENERATION:SERIAL[:Given:Family]";
        return false;
    }
    CardSpec card;
    if (!generationFromName(parts[0], card.generation)) {
        error = "unknown generation '" + parts[0] + "'";
        return false;
    }
    card.serial = parts[1];
    card.id = parts[1];
    if (parts.size() == 4) {
        card.givenName = parts[2];
        card.familyName = parts[3];
    }
    card.personalised = card.serial != "0000000000000000" && card.profile().isCard;
    if (!validateCard(card, error)) return false;
    out = card;
    return true;
}

bool resolveCard(const CardSetSpec& set, const std::string& reference, CardSpec& out,
                 std::string& error) {
    if (const CardSpec* known = set.findCard(reference)) {
        out = *known;
        return true;
    }
    return parseAdHocCard(reference, out, error);
}

} // namespace VessaSim
