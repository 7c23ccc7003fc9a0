// The standard's names of PKCS#11 return codes, for messages that a user or
// a module vendor must be able to look up.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

namespace Korvex {

// "CKR_DEVICE_ERROR" and so on; an unknown code as "0x" and its hex value.
std::string ReturnCodeName(CK_RV rv);

} // namespace Korvex
