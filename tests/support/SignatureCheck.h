// Checks a card's signature with OpenSSL alone, against the public key of
// the certificate that goes with the key, so no test trusts the module's own
// C_Verify to judge its C_Sign.
#pragma once

#include "tests/support/TestCommon.h"

namespace TestSupport {

// `mdName` (an OpenSSL digest name) null: `data` is what was signed as it is
// (a digest, or for RSA the exact block). ECDSA signatures come as r || s.
bool verifyWithCertificate(const std::vector<unsigned char>& certificateDer, const char* mdName,
                           const std::vector<unsigned char>& data, const std::vector<unsigned char>& signature);

} // namespace TestSupport
