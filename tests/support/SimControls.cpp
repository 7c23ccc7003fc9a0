// Looks the control functions up in the loaded module; see SimControls.h.
#include "tests/support/SimControls.h"

#include "tests/support/TestCommon.h"

#include <dlfcn.h>

#include <type_traits>
#include <variant>

namespace TestSupport::Sim {

namespace {

const char* g_controlledModule = "libVessaP11.so";

template <typename Fn>
Fn Control(const char* name)
{
    // The code under test has loaded the module (by its name, unless told
    // otherwise); reach that copy.
    void* module = dlopen(g_controlledModule, RTLD_LAZY | RTLD_NOLOAD);
    Fn fn = module != nullptr ? reinterpret_cast<Fn>(dlsym(module, name)) : nullptr;
    if (module != nullptr)
        dlclose(module);
    if (fn == nullptr)
        ADD_FAILURE() << "simulator control function " << name << " not found";
    return fn;
}

// Calls a control function by name; `fallback` when the module lacks it.
template <typename Fn, typename Result, typename... Args>
Result CallControl(const char* name, Result fallback, Args... args)
{
    Fn fn = Control<Fn>(name);
    if (fn == nullptr)
        return fallback;
    if constexpr (std::is_void_v<decltype(fn(args...))>) {
        fn(args...);
        return fallback;
    } else {
        return fn(args...);
    }
}

} // namespace

void ControlModule(const char* path) { g_controlledModule = path; }

namespace {

#define SIM_CALL(name, fallback, ...) CallControl<decltype(&name)>(#name, fallback, ##__VA_ARGS__)

void Tries(const char* serial, int pin, int& pinTries, int& pukTries)
{
    pinTries = pukTries = -100;
    SIM_CALL(vsim_get_pin_tries, CKR_GENERAL_ERROR, serial, pin, &pinTries, &pukTries);
}

} // namespace

CK_RV InsertCard(CK_SLOT_ID slot, const char* card) { return SIM_CALL(vsim_insert_card, CKR_GENERAL_ERROR, slot, card); }
CK_RV RemoveCard(CK_SLOT_ID slot) { return SIM_CALL(vsim_remove_card, CKR_GENERAL_ERROR, slot); }
CK_RV SetFault(const char* function, const char* serial, CK_RV rv, int times)
{
    return SIM_CALL(vsim_set_fault, CKR_GENERAL_ERROR, function, serial, rv, times);
}
CK_RV SetMalformed(const char* function, const char* serial, int times)
{
    return SIM_CALL(vsim_set_malformed, CKR_GENERAL_ERROR, function, serial, times);
}
CK_RV AddFaults(const char* rules) { return SIM_CALL(vsim_add_faults, CKR_GENERAL_ERROR, rules); }
void ClearFaults() { SIM_CALL(vsim_clear_faults, std::monostate()); }
CK_RV ResetState(const char* serial) { return SIM_CALL(vsim_reset_state, CKR_GENERAL_ERROR, serial); }
void SetLatency(unsigned long callMs, unsigned long apduMs) { SIM_CALL(vsim_set_latency, std::monostate(), callMs, apduMs); }

int PinTries(const char* serial, int pin)
{
    int pinTries, pukTries;
    Tries(serial, pin, pinTries, pukTries);
    return pinTries;
}

int PukTries(const char* serial, int pin)
{
    int pinTries, pukTries;
    Tries(serial, pin, pinTries, pukTries);
    return pukTries;
}

unsigned long PinDialogCount() { return SIM_CALL(vsim_pin_dialog_count, 0ul); }

long OpenSessions(CK_SLOT_ID slot)
{
    CK_FUNCTION_LIST_PTR functions = nullptr;
    auto list = Control<CK_C_GetFunctionList>("C_GetFunctionList");
    CK_TOKEN_INFO info;
    if (list == nullptr || list(&functions) != CKR_OK || functions->C_GetTokenInfo(slot, &info) != CKR_OK)
        return -1;
    return static_cast<long>(info.ulSessionCount);
}

} // namespace TestSupport::Sim
