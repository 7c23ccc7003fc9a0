// Injected faults and latency as the running module applies them. Rules come
// from the environment, the control file and the control functions; each
// source can be replaced without touching the others.
#pragma once

#include "sim/FaultRules.h"

#include <atomic>
#include <string>
#include <vector>

namespace VessaSim {

enum class FaultSource { Environment, ControlFile, Api };

class FaultTable {
public:
    void add(const FaultRule& rule, FaultSource source, long controlId = 0);
    void removeSource(FaultSource source);
    void removeControlId(long controlId);
    void clear();
    bool empty() const { return m_rules.empty(); }

    // A failing fault for this call: sets rv and uses up one hit. `serial`
    // is null for calls that concern no card.
    bool takeFailure(const char* function, const char* serial, unsigned long slot, CK_RV& rv);
    // A malformed-data fault for this call; uses up one hit.
    bool takeMalformed(const char* function, const char* serial, unsigned long slot);
    // A fixed answer for this vendor call; uses up one hit.
    bool takeAnswer(const char* function, const char* serial, unsigned long slot,
                    std::vector<unsigned char>& answer);

private:
    struct Entry {
        FaultRule rule;
        FaultSource source;
        long controlId;
    };
    enum class Kind { Failure, Malformed, Answer };
    static Kind kindOf(const FaultRule& rule);
    // The first rule of this kind for the call, once its calls to let
    // through are used up.
    Entry* match(const char* function, const char* serial, unsigned long slot, Kind kind);
    void consume(Entry* entry);

    std::vector<Entry> m_rules;
};

// Sleeps that emulate slow readers and chips; read without the module mutex.
class Latency {
public:
    void set(unsigned long callMs, unsigned long apduMs) {
        m_callMs = callMs;
        m_apduMs = apduMs;
    }
    void beforeCardCall() {
        ++m_cardCalls;
        sleepMs(m_callMs.load());
    }
    void perApdu(unsigned count = 1) {
        m_apdus += count;
        sleepMs(m_apduMs.load() * count);
    }
    unsigned long callMs() const { return m_callMs; }
    unsigned long apduMs() const { return m_apduMs; }
    // Calls that reached a card and APDUs sent since the module was loaded:
    // what a real reader would have charged.
    unsigned long cardCalls() const { return m_cardCalls; }
    unsigned long apdus() const { return m_apdus; }

private:
    static void sleepMs(unsigned long ms);
    std::atomic<unsigned long> m_callMs{0};
    std::atomic<unsigned long> m_apduMs{0};
    std::atomic<unsigned long> m_cardCalls{0};
    std::atomic<unsigned long> m_apdus{0};
};

} // namespace VessaSim
