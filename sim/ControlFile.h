// The control file through which the vessa-sim tool changes a running
// module: card insertions and removals, faults, latency and resets. The tool
// rewrites it atomically; the module re-reads it when it changes.
//
//   slot <id> insert <card>      slot <id> remove
//   fault <id> <rule>            latency <call_ms> <apdu_ms>
//   reset <epoch> <serial|*>
#pragma once

#include <map>
#include <string>

namespace VessaSim {

struct ControlState {
    std::map<unsigned long, std::string> slots;  // "insert <card>" or "remove"
    std::map<long, std::string> faults;          // one rule each (fault rule syntax)
    bool hasLatency = false;
    unsigned long callLatencyMs = 0;
    unsigned long apduLatencyMs = 0;
    std::map<long, std::string> resets;          // epoch -> serial or "*"

    long nextFaultId() const { return faults.empty() ? 1 : faults.rbegin()->first + 1; }
    long lastResetEpoch() const { return resets.empty() ? 0 : resets.rbegin()->first; }
};

// Unknown or malformed lines are skipped.
ControlState parseControl(const std::string& text);
std::string controlToText(const ControlState& state);
// A missing file is an empty state.
ControlState loadControlFile(const std::string& path);
bool saveControlFile(const std::string& path, const ControlState& state);

} // namespace VessaSim
