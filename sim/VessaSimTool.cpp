// vessa-sim: changes the simulated card readers of running programs (and of
// the next start) through the control file, resets card state and prints
// card-set files for tests.
#include "sim/CardSet.h"
#include "sim/CardStateFile.h"
#include "sim/ControlFile.h"
#include "sim/FaultRules.h"
#include "sim/SimPaths.h"

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

using namespace VessaSim;

namespace {

void usage() {
    std::cerr << "usage: vessa-sim list\n"
                 "       vessa-sim insert <reader> <card>\n"
                 "       vessa-sim remove <reader>\n"
                 "       vessa-sim reset [<serial>]\n"
                 "       vessa-sim fault <FUNCTION[@CARD]=RESULT[*TIMES];...> | fault clear\n"
                 "       vessa-sim latency <call_ms> [<apdu_ms>]\n"
                 "       vessa-sim clear\n"
                 "       vessa-sim cardset <count>\n"
                 "Readers: slot id or reader name. Cards: id or serial of the card set,\n"
                 "or GENERATION:SERIAL[:Given:Family]. Fault CARD: id, serial or slot:N.\n";
}

int fail(const std::string& message) {
    std::cerr << "vessa-sim: " << message << "\n";
    return 2;
}

bool findReader(const CardSetSpec& set, const std::string& text, unsigned long& slot) {
    char* end = nullptr;
    unsigned long number = std::strtoul(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0' && number < set.readers.size()) {
        slot = number;
        return true;
    }
    for (size_t i = 0; i < set.readers.size(); ++i) {
        if (set.readers[i].name == text) {
            slot = i;
            return true;
        }
    }
    return false;
}

// A fault rule's card as the module matches it: a card of the set given by
// its id becomes its serial; "*", "slot:N" and bare serials (also of cards
// made up on insertion) stay as they are. Anything else is refused.
bool cardOfFaultRule(const CardSetSpec& set, std::string& card, std::string& error) {
    if (card == "*" || card.compare(0, 5, "slot:") == 0) return true;
    if (const CardSpec* known = set.findCard(card)) {
        card = known->serial;
        return true;
    }
    if (!card.empty() && card.find_first_not_of("0123456789") == std::string::npos) return true;
    error = "no card '" + card + "' in the card set (give its id or serial)";
    return false;
}

// The card each reader holds once the control file's changes are applied.
std::vector<std::shared_ptr<CardSpec>> effectiveCards(const CardSetSpec& set, const ControlState& control) {
    std::vector<std::shared_ptr<CardSpec>> cards;
    for (const auto& reader : set.readers) cards.push_back(reader.card);
    for (const auto& entry : control.slots) {
        if (entry.first >= cards.size() || !set.readers[entry.first].removable) continue;
        if (entry.second == "remove") {
            cards[entry.first].reset();
            continue;
        }
        CardSpec card;
        std::string error;
        if (entry.second.compare(0, 7, "insert ") != 0 || !resolveCard(set, entry.second.substr(7), card, error)) {
            continue;
        }
        for (auto& other : cards) {
            if (other && other->serial == card.serial) other.reset();
        }
        cards[entry.first] = std::make_shared<CardSpec>(card);
    }
    return cards;
}

std::string describe(const CardSpec& card) {
    std::string text = std::string(card.profile().name) + "  " + card.serial;
    if (card.personalised) text += "  " + card.holderName();
    if (!card.id.empty() && card.id != card.serial) text += "  (" + card.id + ")";
    return text;
}

int list(const CardSetSpec& set, const ControlState& control) {
    const auto cards = effectiveCards(set, control);
    std::cout << "Readers:\n";
    for (size_t i = 0; i < set.readers.size(); ++i) {
        std::cout << "  " << i << "  " << set.readers[i].name << (set.readers[i].removable ? "" : " [fixed]") << ": "
                  << (cards[i] ? describe(*cards[i]) : std::string("empty")) << "\n";
    }
    std::vector<const CardSpec*> outside;
    auto placed = [&](const std::string& serial) {
        for (const auto& card : cards) {
            if (card && card->serial == serial) return true;
        }
        return false;
    };
    for (const auto& reader : set.readers) {
        if (reader.card && !placed(reader.card->serial)) outside.push_back(reader.card.get());
    }
    for (const auto& card : set.spares) {
        if (!placed(card.serial)) outside.push_back(&card);
    }
    std::cout << "Cards outside a reader:\n";
    for (const CardSpec* card : outside) std::cout << "  " << describe(*card) << "\n";
    if (!control.faults.empty()) {
        std::cout << "Faults:\n";
        for (const auto& fault : control.faults) std::cout << "  " << fault.second << "\n";
    }
    if (control.hasLatency) {
        std::cout << "Latency: " << control.callLatencyMs << " ms per call, " << control.apduLatencyMs
                  << " ms per APDU\n";
    }
    std::cout << "State: " << stateDirectory() << "\n";
    return 0;
}

void removeAllCardStates() {
    const std::string directory = stateDirectory() + "/cards";
    if (DIR* listing = opendir(directory.c_str())) {
        while (struct dirent* entry = readdir(listing)) {
            if (entry->d_name[0] != '.') removeCardState(entry->d_name);
        }
        closedir(listing);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        usage();
        return 1;
    }
    const std::string command = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);

    if (command == "cardset") {
        int count = args.size() == 1 ? std::atoi(args[0].c_str()) : 0;
        if (count < 1 || count > 4096) {
            usage();
            return 1;
        }
        std::cout << cardSetToXml(generatedCardSet(count));
        return 0;
    }

    CardSetSpec set;
    std::string error;
    if (!loadConfiguredCardSet(set, error)) return fail(error);
    const std::string path = controlFilePath();
    ControlState control = loadControlFile(path);

    if (command == "list" && args.empty()) return list(set, control);

    if (command == "insert" && args.size() == 2) {
        unsigned long slot;
        if (!findReader(set, args[0], slot)) return fail("no reader '" + args[0] + "'");
        if (!set.readers[slot].removable) return fail("reader " + args[0] + " is not removable");
        CardSpec card;
        if (!resolveCard(set, args[1], card, error)) return fail(error);
        const auto cards = effectiveCards(set, control);
        for (size_t i = 0; i < cards.size(); ++i) {
            if (i != slot && cards[i] && cards[i]->serial == card.serial) control.slots[i] = "remove";
        }
        control.slots[slot] = "insert " + args[1];
    } else if (command == "remove" && args.size() == 1) {
        unsigned long slot;
        if (!findReader(set, args[0], slot)) return fail("no reader '" + args[0] + "'");
        if (!set.readers[slot].removable) return fail("reader " + args[0] + " is not removable");
        control.slots[slot] = "remove";
    } else if (command == "reset" && args.size() <= 1) {
        const std::string target = args.empty() ? "*" : args[0];
        if (target == "*") {
            removeAllCardStates();
        } else {
            removeCardState(target);
        }
        control.resets[control.lastResetEpoch() + 1] = target;
        while (control.resets.size() > 20) control.resets.erase(control.resets.begin());
    } else if (command == "fault" && args.size() == 1) {
        if (args[0] == "clear") {
            control.faults.clear();
        } else {
            std::vector<FaultRule> rules;
            if (!parseFaultRules(args[0], rules, error)) return fail(error);
            for (auto& rule : rules)
                if (!cardOfFaultRule(set, rule.card, error)) return fail(error);
            for (const auto& rule : rules) control.faults[control.nextFaultId()] = faultRuleToString(rule);
        }
    } else if (command == "latency" && (args.size() == 1 || args.size() == 2)) {
        control.hasLatency = true;
        control.callLatencyMs = std::strtoul(args[0].c_str(), nullptr, 10);
        control.apduLatencyMs = args.size() == 2 ? std::strtoul(args[1].c_str(), nullptr, 10) : 0;
    } else if (command == "clear" && args.empty()) {
        ControlState cleared;
        cleared.resets = control.resets;  // running modules count resets by these numbers
        control = cleared;
    } else {
        usage();
        return 1;
    }
    if (!saveControlFile(path, control)) return fail("cannot write " + path);
    return 0;
}
