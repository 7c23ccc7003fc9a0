// Every exported function of the module runs its body through guarded(), so
// no C++ exception ever crosses into the calling program: running out of
// memory becomes CKR_HOST_MEMORY, anything else CKR_GENERAL_ERROR.
#pragma once

#include <p11-kit/pkcs11.h>

#include <new>

namespace VessaSim {

template <typename Function>
CK_RV guarded(Function function) {
    try {
        return function();
    } catch (const std::bad_alloc&) {
        return CKR_HOST_MEMORY;
    } catch (...) {
        return CKR_GENERAL_ERROR;
    }
}

} // namespace VessaSim
