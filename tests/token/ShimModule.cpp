// A tiny PKCS#11 module for the token tests: it forwards the standard entry
// points to the card simulator and lets a test make the Nth call of a
// function fail or replace what a vendor call delivers. Built in variants:
//   SHIM_WITH_VENDOR  - also exports C_CardTransmit / C_CardAttribute
//   SHIM_NO_INITIALIZE - lacks C_Initialize (a broken module)
// so the token layer can be run against a plain standard module too.
#include "tests/token/ShimControl.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace {

struct PlannedFailure {
    int callsLeft;  // fail when this reaches 1
    CK_RV rv;
};

struct ShimState {
    std::mutex lock;
    void* simulator = nullptr;
    CK_FUNCTION_LIST_PTR functions = nullptr;
    std::map<std::string, PlannedFailure> failures;
    std::map<std::string, std::vector<unsigned char>> cannedOutput;
    std::map<std::string, int> inflations;  // calls left until the inflated one
};

ShimState& state()
{
    static ShimState shared;
    return shared;
}

CK_FUNCTION_LIST_PTR simulator()
{
    ShimState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (s.functions == nullptr) {
        s.simulator = dlopen("libVessaP11.so", RTLD_LAZY);
        if (s.simulator == nullptr)
            return nullptr;
        auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(s.simulator, "C_GetFunctionList"));
        if (getList == nullptr || getList(&s.functions) != CKR_OK)
            s.functions = nullptr;
    }
    return s.functions;
}

// The planned result of this call, or CKR_OK to forward it.
CK_RV plannedFailure(const char* function)
{
    ShimState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto found = s.failures.find(function);
    if (found == s.failures.end())
        return CKR_OK;
    if (--found->second.callsLeft > 0)
        return CKR_OK;
    CK_RV rv = found->second.rv;
    s.failures.erase(found);
    return rv;
}

// Whether this call's reported lengths are to be inflated.
bool plannedInflation(const char* function)
{
    ShimState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto found = s.inflations.find(function);
    if (found == s.inflations.end() || --found->second > 0)
        return false;
    s.inflations.erase(found);
    return true;
}

} // namespace

#define SHIM_EXPORT extern "C" __attribute__((visibility("default")))
#define SHIM_FORWARD(name, params, args)                                      \
    SHIM_EXPORT CK_RV name params                                              \
    {                                                                          \
        if (CK_RV planned = plannedFailure(#name))                             \
            return planned;                                                    \
        CK_FUNCTION_LIST_PTR list = simulator();                               \
        return list != nullptr ? list->name args : CKR_GENERAL_ERROR;          \
    }

#ifndef SHIM_NO_INITIALIZE
SHIM_FORWARD(C_Initialize, (void* a), (a))
#endif
SHIM_FORWARD(C_Finalize, (void* a), (a))
SHIM_FORWARD(C_GetInfo, (CK_INFO_PTR a), (a))
SHIM_FORWARD(C_GetSlotList, (CK_BBOOL a, CK_SLOT_ID_PTR b, CK_ULONG_PTR c), (a, b, c))
SHIM_FORWARD(C_GetSlotInfo, (CK_SLOT_ID a, CK_SLOT_INFO_PTR b), (a, b))
SHIM_FORWARD(C_GetTokenInfo, (CK_SLOT_ID a, CK_TOKEN_INFO_PTR b), (a, b))
SHIM_FORWARD(C_GetMechanismInfo, (CK_SLOT_ID a, CK_MECHANISM_TYPE b, CK_MECHANISM_INFO_PTR c), (a, b, c))
SHIM_FORWARD(C_OpenSession, (CK_SLOT_ID a, CK_FLAGS b, void* c, CK_NOTIFY d, CK_SESSION_HANDLE_PTR e),
             (a, b, c, d, e))
SHIM_FORWARD(C_CloseSession, (CK_SESSION_HANDLE a), (a))
SHIM_FORWARD(C_Login, (CK_SESSION_HANDLE a, CK_USER_TYPE b, CK_UTF8CHAR_PTR c, CK_ULONG d), (a, b, c, d))
SHIM_FORWARD(C_Logout, (CK_SESSION_HANDLE a), (a))
SHIM_FORWARD(C_FindObjectsInit, (CK_SESSION_HANDLE a, CK_ATTRIBUTE_PTR b, CK_ULONG c), (a, b, c))
SHIM_FORWARD(C_FindObjects, (CK_SESSION_HANDLE a, CK_OBJECT_HANDLE_PTR b, CK_ULONG c, CK_ULONG_PTR d),
             (a, b, c, d))
SHIM_FORWARD(C_FindObjectsFinal, (CK_SESSION_HANDLE a), (a))

SHIM_EXPORT CK_RV
C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR attributes,
                    CK_ULONG count)
{
    if (CK_RV planned = plannedFailure("C_GetAttributeValue"))
        return planned;
    CK_FUNCTION_LIST_PTR list = simulator();
    if (list == nullptr)
        return CKR_GENERAL_ERROR;
    CK_RV rv = list->C_GetAttributeValue(session, object, attributes, count);
    // A broken module: claims one byte more than the buffer it filled.
    if (rv == CKR_OK && plannedInflation("C_GetAttributeValue"))
        for (CK_ULONG i = 0; i < count; ++i)
            if (attributes[i].pValue != nullptr)
                attributes[i].ulValueLen = std::max<CK_ULONG>(attributes[i].ulValueLen + 1, 5013);
    return rv;
}
SHIM_FORWARD(C_SetAttributeValue, (CK_SESSION_HANDLE a, CK_OBJECT_HANDLE b, CK_ATTRIBUTE_PTR c, CK_ULONG d),
             (a, b, c, d))
SHIM_FORWARD(C_SignInit, (CK_SESSION_HANDLE a, CK_MECHANISM_PTR b, CK_OBJECT_HANDLE c), (a, b, c))
SHIM_FORWARD(C_Sign, (CK_SESSION_HANDLE a, CK_BYTE_PTR b, CK_ULONG c, CK_BYTE_PTR d, CK_ULONG_PTR e),
             (a, b, c, d, e))
SHIM_FORWARD(C_VerifyInit, (CK_SESSION_HANDLE a, CK_MECHANISM_PTR b, CK_OBJECT_HANDLE c), (a, b, c))
SHIM_FORWARD(C_Verify, (CK_SESSION_HANDLE a, CK_BYTE_PTR b, CK_ULONG c, CK_BYTE_PTR d, CK_ULONG e),
             (a, b, c, d, e))

#ifdef SHIM_WITH_VENDOR
namespace {

// Canned output replaces the simulator's answer entirely (result CKR_OK).
bool cannedAnswer(const char* function, CK_BYTE_PTR out, CK_ULONG_PTR outLength)
{
    ShimState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto found = s.cannedOutput.find(function);
    if (found == s.cannedOutput.end())
        return false;
    CK_ULONG length = std::min<CK_ULONG>(*outLength, found->second.size());
    if (out != nullptr)
        std::memcpy(out, found->second.data(), length);
    *outLength = length;
    return true;
}

// A vendor call: planned failure, canned answer, or the simulator's own.
template <typename Fn, typename... Args>
CK_RV forwardVendor(const char* function, CK_BYTE_PTR out, CK_ULONG_PTR outLength, Args... args)
{
    if (CK_RV planned = plannedFailure(function))
        return planned;
    if (cannedAnswer(function, out, outLength))
        return CKR_OK;
    simulator();
    auto real = reinterpret_cast<Fn>(dlsym(state().simulator, function));
    return real != nullptr ? real(args..., out, outLength) : CKR_FUNCTION_NOT_SUPPORTED;
}

} // namespace

SHIM_EXPORT CK_RV
C_CardTransmit(CK_SESSION_HANDLE session, CK_BYTE_PTR command, CK_ULONG commandLength,
               CK_BYTE_PTR response, CK_ULONG_PTR responseLength)
{
    return forwardVendor<CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR)>(
        "C_CardTransmit", response, responseLength, session, command, commandLength);
}

SHIM_EXPORT CK_RV
C_CardAttribute(CK_SESSION_HANDLE session, const char* name, CK_BYTE_PTR out, CK_ULONG_PTR outLength)
{
    return forwardVendor<CK_RV (*)(CK_SESSION_HANDLE, const char*, CK_BYTE_PTR, CK_ULONG_PTR)>(
        "C_CardAttribute", out, outLength, session, name);
}
#endif

SHIM_EXPORT void shim_fail_call(const char* function, int nth, CK_RV rv)
{
    std::lock_guard<std::mutex> guard(state().lock);
    state().failures[function] = PlannedFailure{nth, rv};
}

SHIM_EXPORT void shim_set_output(const char* function, const unsigned char* bytes, unsigned long length)
{
    std::lock_guard<std::mutex> guard(state().lock);
    state().cannedOutput[function].assign(bytes, bytes + length);
}

SHIM_EXPORT void shim_inflate_call(const char* function, int nth)
{
    std::lock_guard<std::mutex> guard(state().lock);
    state().inflations[function] = nth;
}

SHIM_EXPORT void shim_reset()
{
    ShimState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.failures.clear();
    s.cannedOutput.clear();
    s.inflations.clear();
}
