// The signature test of a standard token: every private key that may sign,
// with each mechanism the token lists among RSA PKCS #1 v1.5, RSA-PSS and
// ECDSA (all over SHA-256), signs a fixed text; the signature is checked
// with OpenSSL against the certificate of the same key identifier.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace Korvex {

class acPKCS11;

struct SignatureCheckResult {
    std::string key;        // the key's label
    std::string mechanism;  // "RSA PKCS#1 v1.5", "RSA-PSS", "ECDSA"
    bool signedOk = false;
    bool verified = false;  // false also when no certificate matches the key
};

// In a session on the token with the user logged in.
std::vector<SignatureCheckResult> RunStandardSignatureTest(acPKCS11& p11, CK_SLOT_ID slot);

} // namespace Korvex
