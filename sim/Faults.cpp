// Matching and using up injected faults.
#include "sim/Faults.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace VessaSim {

void FaultTable::add(const FaultRule& rule, FaultSource source, long controlId) {
    m_rules.push_back({rule, source, controlId});
}

void FaultTable::removeSource(FaultSource source) {
    m_rules.erase(std::remove_if(m_rules.begin(), m_rules.end(),
                                 [source](const Entry& entry) { return entry.source == source; }),
                  m_rules.end());
}

void FaultTable::removeControlId(long controlId) {
    m_rules.erase(std::remove_if(m_rules.begin(), m_rules.end(),
                                 [controlId](const Entry& entry) {
                                     return entry.source == FaultSource::ControlFile &&
                                            entry.controlId == controlId;
                                 }),
                  m_rules.end());
}

void FaultTable::clear() { m_rules.clear(); }

FaultTable::Kind FaultTable::kindOf(const FaultRule& rule) {
    if (rule.answers) return Kind::Answer;
    return rule.malformed ? Kind::Malformed : Kind::Failure;
}

FaultTable::Entry* FaultTable::match(const char* function, const char* serial, unsigned long slot, Kind kind) {
    for (auto& entry : m_rules) {
        FaultRule& rule = entry.rule;
        if (kindOf(rule) != kind || rule.times == 0) continue;
        if (rule.function != "*" && rule.function != function) continue;
        if (rule.card != "*") {
            if (!serial) continue;
            if (rule.card.compare(0, 5, "slot:") == 0) {
                if (std::strtoul(rule.card.c_str() + 5, nullptr, 10) != slot) continue;
            } else if (rule.card != serial) {
                continue;
            }
        }
        if (rule.skip > 0) {
            --rule.skip;
            continue;
        }
        return &entry;
    }
    return nullptr;
}

void FaultTable::consume(Entry* entry) {
    // A used-up control-file rule stays (with 0 hits left) so that re-reading
    // the file does not arm it again.
    if (entry->rule.times > 0) --entry->rule.times;
    if (entry->rule.times == 0 && entry->source != FaultSource::ControlFile) {
        m_rules.erase(m_rules.begin() + (entry - m_rules.data()));
    }
}

bool FaultTable::takeFailure(const char* function, const char* serial, unsigned long slot, CK_RV& rv) {
    if (m_rules.empty()) return false;
    Entry* entry = match(function, serial, slot, Kind::Failure);
    if (!entry) return false;
    rv = entry->rule.rv;
    consume(entry);
    return true;
}

bool FaultTable::takeMalformed(const char* function, const char* serial, unsigned long slot) {
    if (m_rules.empty()) return false;
    Entry* entry = match(function, serial, slot, Kind::Malformed);
    if (!entry) return false;
    consume(entry);
    return true;
}

bool FaultTable::takeAnswer(const char* function, const char* serial, unsigned long slot,
                            std::vector<unsigned char>& answer) {
    if (m_rules.empty()) return false;
    Entry* entry = match(function, serial, slot, Kind::Answer);
    if (!entry) return false;
    answer = entry->rule.answer;
    consume(entry);
    return true;
}

void Latency::sleepMs(unsigned long ms) {
    if (ms == 0) return;
    struct timespec pause;
    pause.tv_sec = static_cast<time_t>(ms / 1000);
    pause.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    while (nanosleep(&pause, &pause) != 0) {
    }
}

} // namespace VessaSim
