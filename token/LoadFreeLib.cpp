// Dynamic loading of the vendor module with the platform loader.
#include "token/LoadFreeLib.h"

#include <dlfcn.h>

namespace Korvex {

const char* PKCS11_LIB_NAME = "libVessaP11.so";

void* ac_dlopen()
{
    return dlopen(PKCS11_LIB_NAME, RTLD_LAZY);
}

void* ac_dlsym(void* handle, const char* symbol)
{
    if (handle == nullptr || symbol == nullptr)
        return nullptr;
    return dlsym(handle, symbol);
}

const char* ac_dlerror()
{
    const char* text = dlerror();
    return text != nullptr ? text : "";
}

void ac_dlclose(void* handle)
{
    if (handle != nullptr)
        dlclose(handle);
}

} // namespace Korvex
