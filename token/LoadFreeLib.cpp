// Dynamic loading of the vendor module with the platform loader.
#include "token/LoadFreeLib.h"

#include <dlfcn.h>
#include <link.h>

namespace Korvex {

const char* const kVendorModuleName = "libVessaP11.so";
const char* PKCS11_LIB_NAME = kVendorModuleName;

namespace {
bool g_namedModule = false;
}

void SetModuleName(const std::string& name)
{
    // The text must outlive every later look at PKCS11_LIB_NAME.
    static std::string named;
    named = name;
    g_namedModule = !named.empty() && named != kVendorModuleName;
    PKCS11_LIB_NAME = g_namedModule ? named.c_str() : kVendorModuleName;
}

bool IsNamedModule()
{
    return g_namedModule;
}

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

std::string ac_dlpath(void* handle)
{
    struct link_map* map = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr ||
        map->l_name == nullptr)
        return std::string();
    return map->l_name;
}

void ac_dlclose(void* handle)
{
    if (handle != nullptr)
        dlclose(handle);
}

} // namespace Korvex
