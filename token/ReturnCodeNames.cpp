// Names of the return codes a module may give at start-up or on a card call.
#include "token/ReturnCodeNames.h"

#include <cstdio>

namespace Korvex {

std::string ReturnCodeName(CK_RV rv)
{
    struct Name {
        CK_RV rv;
        const char* text;
    };
    static const Name names[] = {
        {CKR_OK, "CKR_OK"},
        {CKR_CANCEL, "CKR_CANCEL"},
        {CKR_HOST_MEMORY, "CKR_HOST_MEMORY"},
        {CKR_SLOT_ID_INVALID, "CKR_SLOT_ID_INVALID"},
        {CKR_GENERAL_ERROR, "CKR_GENERAL_ERROR"},
        {CKR_FUNCTION_FAILED, "CKR_FUNCTION_FAILED"},
        {CKR_ARGUMENTS_BAD, "CKR_ARGUMENTS_BAD"},
        {CKR_NO_EVENT, "CKR_NO_EVENT"},
        {CKR_NEED_TO_CREATE_THREADS, "CKR_NEED_TO_CREATE_THREADS"},
        {CKR_CANT_LOCK, "CKR_CANT_LOCK"},
        {CKR_DEVICE_ERROR, "CKR_DEVICE_ERROR"},
        {CKR_DEVICE_MEMORY, "CKR_DEVICE_MEMORY"},
        {CKR_DEVICE_REMOVED, "CKR_DEVICE_REMOVED"},
        {CKR_FUNCTION_NOT_SUPPORTED, "CKR_FUNCTION_NOT_SUPPORTED"},
        {CKR_PIN_INCORRECT, "CKR_PIN_INCORRECT"},
        {CKR_PIN_LOCKED, "CKR_PIN_LOCKED"},
        {CKR_SESSION_HANDLE_INVALID, "CKR_SESSION_HANDLE_INVALID"},
        {CKR_TOKEN_NOT_PRESENT, "CKR_TOKEN_NOT_PRESENT"},
        {CKR_TOKEN_NOT_RECOGNIZED, "CKR_TOKEN_NOT_RECOGNIZED"},
        {CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN"},
        {CKR_BUFFER_TOO_SMALL, "CKR_BUFFER_TOO_SMALL"},
        {CKR_CRYPTOKI_NOT_INITIALIZED, "CKR_CRYPTOKI_NOT_INITIALIZED"},
        {CKR_CRYPTOKI_ALREADY_INITIALIZED, "CKR_CRYPTOKI_ALREADY_INITIALIZED"},
    };
    for (const Name& name : names)
        if (name.rv == rv)
            return name.text;
    char hex[32];
    std::snprintf(hex, sizeof(hex), "0x%lx", static_cast<unsigned long>(rv));
    return hex;
}

} // namespace Korvex
