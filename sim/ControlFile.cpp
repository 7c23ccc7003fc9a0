// Reading and writing the control file.
#include "sim/ControlFile.h"

#include "sim/SimPaths.h"

#include <sstream>

namespace VessaSim {

namespace {

// The same blanks as the word reads below, so a hand-edited file with tabs
// or Windows line ends means what it says.
const char kBlanks[] = " \t\r\n\f\v";

// The text after the first `count` blank-separated words.
std::string restAfterWords(const std::string& line, int count) {
    size_t position = 0;
    for (int i = 0; i < count; ++i) {
        position = line.find_first_not_of(kBlanks, position);
        if (position == std::string::npos) return "";
        position = line.find_first_of(kBlanks, position);
        if (position == std::string::npos) return "";
    }
    position = line.find_first_not_of(kBlanks, position);
    return position == std::string::npos ? "" : line.substr(position);
}

} // namespace

ControlState parseControl(const std::string& text) {
    ControlState state;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        line.erase(line.find_last_not_of(kBlanks) + 1);
        std::istringstream words(line);
        std::string keyword;
        if (!(words >> keyword) || keyword[0] == '#') continue;
        if (keyword == "slot") {
            unsigned long slot;
            std::string action;
            if (!(words >> slot >> action)) continue;
            if (action == "remove") {
                state.slots[slot] = "remove";
            } else if (action == "insert") {
                std::string card = restAfterWords(line, 3);
                if (!card.empty()) state.slots[slot] = "insert " + card;
            }
        } else if (keyword == "fault") {
            long id;
            if (!(words >> id)) continue;
            std::string rule = restAfterWords(line, 2);
            if (!rule.empty()) state.faults[id] = rule;
        } else if (keyword == "latency") {
            unsigned long call, apdu;
            if (words >> call >> apdu) {
                state.hasLatency = true;
                state.callLatencyMs = call;
                state.apduLatencyMs = apdu;
            }
        } else if (keyword == "reset") {
            long epoch;
            std::string target;
            if (words >> epoch >> target) state.resets[epoch] = target;
        }
    }
    return state;
}

std::string controlToText(const ControlState& state) {
    std::ostringstream out;
    out << "# vessa-sim control file; rewritten by the vessa-sim tool\n";
    for (const auto& slot : state.slots) out << "slot " << slot.first << ' ' << slot.second << '\n';
    for (const auto& fault : state.faults) out << "fault " << fault.first << ' ' << fault.second << '\n';
    if (state.hasLatency) {
        out << "latency " << state.callLatencyMs << ' ' << state.apduLatencyMs << '\n';
    }
    for (const auto& reset : state.resets) out << "reset " << reset.first << ' ' << reset.second << '\n';
    return out.str();
}

ControlState loadControlFile(const std::string& path) {
    std::string text;
    if (!readWholeFile(path, text)) return ControlState();
    return parseControl(text);
}

bool saveControlFile(const std::string& path, const ControlState& state) {
    return writeFileAtomically(path, controlToText(state));
}

} // namespace VessaSim
