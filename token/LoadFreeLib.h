// Thin wrappers around the dynamic loader, so the token module is opened and
// resolved in one place and by one configurable file name.
#pragma once

#include <string>

namespace Korvex {

// File name of the vendor module, opened by bare name so that the loader's
// search path (LD_LIBRARY_PATH) decides which copy is used.
extern const char* PKCS11_LIB_NAME;
// The vendor module's file name, what PKCS11_LIB_NAME holds unless a
// setting names another module.
extern const char* const kVendorModuleName;

// Points PKCS11_LIB_NAME at the module a setting names (a bare name for the
// loader's search path, or a path); an empty name keeps the vendor's module.
void SetModuleName(const std::string& name);
// Whether a setting named a module other than the vendor's (SetModuleName).
bool IsNamedModule();

void* ac_dlopen();
void* ac_dlsym(void* handle, const char* symbol);
const char* ac_dlerror();
void ac_dlclose(void* handle);
// The file the loader actually opened for this handle; empty when unknown.
std::string ac_dlpath(void* handle);

} // namespace Korvex
