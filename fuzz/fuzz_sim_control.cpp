// Fuzz target: the simulator's control file and fault-rule texts. Both come
// from files another process writes; any text must parse without harm, and
// what is understood must come back the same through its own text form.
#include "sim/ControlFile.h"
#include "sim/FaultRules.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);

    const VessaSim::ControlState state = VessaSim::parseControl(text);
    const VessaSim::ControlState reread = VessaSim::parseControl(VessaSim::controlToText(state));
    if (reread.slots != state.slots || reread.faults != state.faults || reread.resets != state.resets ||
        reread.hasLatency != state.hasLatency)
        std::abort();

    std::vector<VessaSim::FaultRule> rules;
    std::string error;
    if (VessaSim::parseFaultRules(text, rules, error)) {
        for (const VessaSim::FaultRule& rule : rules) {
            std::vector<VessaSim::FaultRule> one;
            if (!VessaSim::parseFaultRules(VessaSim::faultRuleToString(rule), one, error) || one.size() != 1)
                std::abort();
        }
    }
    return 0;
}
