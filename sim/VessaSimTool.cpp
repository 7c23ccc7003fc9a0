// vessa-sim: changes the simulated card readers of running programs (and of
// the next start) through the control file, resets card state, uses a card
// as a second program would (write, verify) and prints card-set files.
#include "sim/CardSessionCommands.h"
#include "sim/CardSet.h"
#include "sim/CardStateFile.h"
#include "sim/ControlFile.h"
#include "sim/FaultRules.h"
#include "sim/SimPaths.h"

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <vector>

using namespace VessaSim;

namespace {

void usage() {
    std::cerr << "usage: vessa-sim list\n"
                 "       vessa-sim insert <reader> <card>\n"
                 "       vessa-sim remove <reader>\n"
                 "       vessa-sim reset [<serial>]\n"
                 "       vessa-sim write <slot> <label> <text> [<times>]\n"
                 "       vessa-sim verify <slot> <p2> [<pin>] [<times>]\n"
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

// What every control-file command works on.
struct ToolState {
    CardSetSpec set;
    std::string path;
    ControlState control;
};

int usageError() {
    usage();
    return 1;
}

int saveControl(const ToolState& tool) {
    if (!saveControlFile(tool.path, tool.control)) return fail("cannot write " + tool.path);
    return 0;
}

// The reader named by text, when its card can be changed.
int removableReader(const ToolState& tool, const std::string& text, unsigned long& slot) {
    if (!findReader(tool.set, text, slot)) return fail("no reader '" + text + "'");
    if (!tool.set.readers[slot].removable) return fail("reader " + text + " is not removable");
    return 0;
}

int insertCommand(ToolState& tool, const std::vector<std::string>& args) {
    if (args.size() != 2) return usageError();
    unsigned long slot;
    if (int status = removableReader(tool, args[0], slot)) return status;
    CardSpec card;
    std::string error;
    if (!resolveCard(tool.set, args[1], card, error)) return fail(error);
    // A card is in one reader at a time.
    const auto cards = effectiveCards(tool.set, tool.control);
    for (size_t i = 0; i < cards.size(); ++i) {
        if (i != slot && cards[i] && cards[i]->serial == card.serial) tool.control.slots[i] = "remove";
    }
    tool.control.slots[slot] = "insert " + args[1];
    return saveControl(tool);
}

int removeCommand(ToolState& tool, const std::vector<std::string>& args) {
    if (args.size() != 1) return usageError();
    unsigned long slot;
    if (int status = removableReader(tool, args[0], slot)) return status;
    tool.control.slots[slot] = "remove";
    return saveControl(tool);
}

int resetCommand(ToolState& tool, const std::vector<std::string>& args) {
    if (args.size() > 1) return usageError();
    const std::string target = args.empty() ? "*" : args[0];
    if (target == "*") {
        removeAllCardStates();
    } else {
        removeCardState(target);
    }
    tool.control.resets[tool.control.lastResetEpoch() + 1] = target;
    while (tool.control.resets.size() > 20) tool.control.resets.erase(tool.control.resets.begin());
    return saveControl(tool);
}

int faultCommand(ToolState& tool, const std::vector<std::string>& args) {
    if (args.size() != 1) return usageError();
    if (args[0] == "clear") {
        tool.control.faults.clear();
    } else {
        std::vector<FaultRule> rules;
        std::string error;
        if (!parseFaultRules(args[0], rules, error)) return fail(error);
        for (auto& rule : rules)
            if (!cardOfFaultRule(tool.set, rule.card, error)) return fail(error);
        for (const auto& rule : rules) tool.control.faults[tool.control.nextFaultId()] = faultRuleToString(rule);
    }
    return saveControl(tool);
}

int latencyCommand(ToolState& tool, const std::vector<std::string>& args) {
    if (args.size() != 1 && args.size() != 2) return usageError();
    tool.control.hasLatency = true;
    tool.control.callLatencyMs = std::strtoul(args[0].c_str(), nullptr, 10);
    tool.control.apduLatencyMs = args.size() == 2 ? std::strtoul(args[1].c_str(), nullptr, 10) : 0;
    return saveControl(tool);
}

int clearCommand(ToolState& tool, const std::vector<std::string>& args) {
    if (!args.empty()) return usageError();
    ControlState cleared;
    cleared.resets = tool.control.resets;  // running modules count resets by these numbers
    tool.control = cleared;
    return saveControl(tool);
}

int listCommand(ToolState& tool, const std::vector<std::string>& args) {
    if (!args.empty()) return usageError();
    return list(tool.set, tool.control);
}

int cardsetCommand(const std::vector<std::string>& args) {
    int count = args.size() == 1 ? std::atoi(args[0].c_str()) : 0;
    if (count < 1 || count > 4096) return usageError();
    std::cout << cardSetToXml(generatedCardSet(count));
    return 0;
}

using ControlCommand = int (*)(ToolState&, const std::vector<std::string>&);

const std::map<std::string, ControlCommand> kControlCommands = {
    {"list", listCommand},     {"insert", insertCommand},   {"remove", removeCommand},
    {"reset", resetCommand},   {"fault", faultCommand},     {"latency", latencyCommand},
    {"clear", clearCommand},
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usageError();
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);

    if (command == "cardset") return cardsetCommand(args);
    if (command == "write" || command == "verify") {
        const int status = runCardSessionCommand(command, args);
        return status == 2 ? usageError() : status;
    }
    const auto found = kControlCommands.find(command);
    if (found == kControlCommands.end()) return usageError();

    ToolState tool;
    std::string error;
    if (!loadConfiguredCardSet(tool.set, error)) return fail(error);
    tool.path = controlFilePath();
    tool.control = loadControlFile(tool.path);
    return found->second(tool, args);
}
