// The exported control functions tests use to drive the simulator from
// inside the process (see SimControl.h).
#include "sim/SimControl.h"

#include "sim/Module.h"
#include "sim/PinDialog.h"
#include "sim/Guarded.h"

#include <new>
#include <string>

using namespace VessaSim;

namespace {

std::string cardArgument(const char* card) { return (card && *card) ? card : "*"; }

// A fault rule set through the API for `function` on `card` ("*": every
// card), `times` calls long (0 or less: until cleared).
template <typename Shape>
CK_RV addApiFault(const char* function, const char* card, int times, Shape shape) {
    return guarded([&] {
        if (!function || !*function) return CKR_ARGUMENTS_BAD;
        FaultRule rule;
        rule.function = function;
        rule.card = cardArgument(card);
        rule.times = times > 0 ? times : -1;
        shape(rule);
        Module& module = Module::instance();
        std::lock_guard<std::mutex> guard(module.mutex);
        module.faults.add(rule, FaultSource::Api);
        return CKR_OK;
    });
}

} // namespace

extern "C" {

CK_RV vsim_set_fault(const char* function, const char* serial, CK_RV rv, int times) {
    return addApiFault(function, serial, times, [rv](FaultRule& rule) { rule.rv = rv; });
}

CK_RV vsim_set_malformed(const char* function, const char* serial, int times) {
    return addApiFault(function, serial, times, [](FaultRule& rule) { rule.malformed = true; });
}

CK_RV vsim_add_faults(const char* ruleText) {
    return guarded([&] {
        if (!ruleText) return CKR_ARGUMENTS_BAD;
        std::vector<FaultRule> rules;
        std::string error;
        if (!parseFaultRules(ruleText, rules, error)) return CKR_ARGUMENTS_BAD;
        Module& module = Module::instance();
        std::lock_guard<std::mutex> guard(module.mutex);
        for (const auto& rule : rules) module.faults.add(rule, FaultSource::Api);
        return CKR_OK;
    });
}

void vsim_clear_faults(void) {
    guarded([] {
        Module& module = Module::instance();
        std::lock_guard<std::mutex> guard(module.mutex);
        module.faults.clear();
        return CKR_OK;
    });
}

void vsim_set_latency(unsigned long call_ms, unsigned long apdu_ms) {
    Module::instance().latency.set(call_ms, apdu_ms);
}

void vsim_card_calls(unsigned long* calls, unsigned long* apdus) {
    const Latency& latency = Module::instance().latency;
    if (calls) *calls = latency.cardCalls();
    if (apdus) *apdus = latency.apdus();
}

CK_RV vsim_insert_card(CK_SLOT_ID slot, const char* card) {
    return guarded([&] {
        if (!card) return CKR_ARGUMENTS_BAD;
        Module& module = Module::instance();
        std::lock_guard<std::mutex> guard(module.mutex);
        if (!module.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
        CardSpec description;
        std::string error;
        if (!resolveCard(module.cardSet, card, description, error)) return CKR_ARGUMENTS_BAD;
        return module.insertCard(slot, description);
    });
}

CK_RV vsim_remove_card(CK_SLOT_ID slot) {
    return guarded([&] {
        Module& module = Module::instance();
        std::lock_guard<std::mutex> guard(module.mutex);
        if (!module.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
        return module.removeCard(slot);
    });
}

CK_RV vsim_reset_state(const char* serial) {
    return guarded([&] {
        Module& module = Module::instance();
        std::lock_guard<std::mutex> guard(module.mutex);
        if (!module.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
        module.resetCards(cardArgument(serial));
        return CKR_OK;
    });
}

CK_RV vsim_get_pin_tries(const char* serial, int pin, int* tries, int* pukTries) {
    return guarded([&] {
        if (!serial || pin < 0 || pin >= PinCount || !tries || !pukTries) return CKR_ARGUMENTS_BAD;
        Module& module = Module::instance();
        std::lock_guard<std::mutex> guard(module.mutex);
        if (!module.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
        Card* card = module.cardBySerial(serial);
        if (!card) return CKR_TOKEN_NOT_PRESENT;
        card->refreshFromDisk();
        const PinState& state = card->pin(static_cast<PinIndex>(pin));
        *tries = state.tries;
        *pukTries = state.hasPuk ? state.pukTries : -1;
        return CKR_OK;
    });
}

unsigned long vsim_pin_dialog_count(void) { return pinDialogCount(); }

} // extern "C"
