// Looks the control functions up in the loaded module; see SimControls.h.
#include "tests/support/SimControls.h"

#include "tests/support/TestCommon.h"

#include <dlfcn.h>

namespace TestSupport::Sim {

namespace {

template <typename Fn>
Fn Control(const char* name)
{
    // The code under test has loaded the module by its name; reach that copy.
    void* module = dlopen("libVessaP11.so", RTLD_LAZY | RTLD_NOLOAD);
    Fn fn = module != nullptr ? reinterpret_cast<Fn>(dlsym(module, name)) : nullptr;
    if (module != nullptr)
        dlclose(module);
    if (fn == nullptr)
        ADD_FAILURE() << "simulator control function " << name << " not found";
    return fn;
}

#define SIM_CONTROL(name) Control<decltype(&name)>(#name)

void Tries(const char* serial, int pin, int& pinTries, int& pukTries)
{
    pinTries = pukTries = -100;
    if (auto tries = SIM_CONTROL(vsim_get_pin_tries))
        tries(serial, pin, &pinTries, &pukTries);
}

} // namespace

CK_RV InsertCard(CK_SLOT_ID slot, const char* card)
{
    auto fn = SIM_CONTROL(vsim_insert_card);
    return fn != nullptr ? fn(slot, card) : CKR_GENERAL_ERROR;
}

CK_RV RemoveCard(CK_SLOT_ID slot)
{
    auto fn = SIM_CONTROL(vsim_remove_card);
    return fn != nullptr ? fn(slot) : CKR_GENERAL_ERROR;
}

CK_RV SetFault(const char* function, const char* serial, CK_RV rv, int times)
{
    auto fn = SIM_CONTROL(vsim_set_fault);
    return fn != nullptr ? fn(function, serial, rv, times) : CKR_GENERAL_ERROR;
}

CK_RV SetMalformed(const char* function, const char* serial, int times)
{
    auto fn = SIM_CONTROL(vsim_set_malformed);
    return fn != nullptr ? fn(function, serial, times) : CKR_GENERAL_ERROR;
}

CK_RV AddFaults(const char* rules)
{
    auto fn = SIM_CONTROL(vsim_add_faults);
    return fn != nullptr ? fn(rules) : CKR_GENERAL_ERROR;
}

void ClearFaults()
{
    if (auto fn = SIM_CONTROL(vsim_clear_faults))
        fn();
}

CK_RV ResetState(const char* serial)
{
    auto fn = SIM_CONTROL(vsim_reset_state);
    return fn != nullptr ? fn(serial) : CKR_GENERAL_ERROR;
}

void SetLatency(unsigned long callMs, unsigned long apduMs)
{
    if (auto fn = SIM_CONTROL(vsim_set_latency))
        fn(callMs, apduMs);
}

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

unsigned long PinDialogCount()
{
    auto fn = SIM_CONTROL(vsim_pin_dialog_count);
    return fn != nullptr ? fn() : 0;
}

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
