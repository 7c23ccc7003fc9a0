// Control functions of the test shim module (tests/token/ShimModule.cpp),
// looked up with dlsym by the tests.
#pragma once

#include <p11-kit/pkcs11.h>

extern "C" {
// The nth call of `function` from now on returns rv without reaching the
// simulator (nth = 1: the next call).
typedef void (*shim_fail_call_fn)(const char* function, int nth, CK_RV rv);
// C_CardTransmit / C_CardAttribute answer these bytes (CKR_OK) instead of
// the simulator's until the next shim_reset.
typedef void (*shim_set_output_fn)(const char* function, const unsigned char* bytes,
                                   unsigned long length);
// The nth C_GetAttributeValue from now reports every filled attribute as at
// least 5013 bytes long (more than the token layer's 5012-byte buffers).
typedef void (*shim_inflate_call_fn)(const char* function, int nth);
typedef void (*shim_reset_fn)();
}
