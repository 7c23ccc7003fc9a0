// The cryptography behind the token: which mechanisms the cards offer,
// streaming digests, and raw RSA PKCS #1 / ECDSA signing and verification
// with OpenSSL. Signatures come out in PKCS#11 form (EC: r || s).
#pragma once

#include "crypto/HashAlgorithm.h"
#include "sim/Generation.h"
#include "sim/OpenSslPtr.h"

#include <p11-kit/pkcs11.h>

#include <vector>

namespace VessaSim {

using Bytes = std::vector<unsigned char>;

struct MechanismEntry {
    CK_MECHANISM_TYPE type;
    bool digestOnly;                 // a plain digest mechanism
    KeyAlgorithm keyAlgorithm;       // for signature mechanisms
    Korvex::HashAlgorithm hash;      // HashNone: sign the input as it is
};

const MechanismEntry* findMechanism(CK_MECHANISM_TYPE type);
// Digest mechanisms, plus the signature mechanisms of the key types present.
std::vector<CK_MECHANISM_TYPE> mechanismsFor(bool hasRsaKey, bool hasEcKey);
bool mechanismInfo(CK_MECHANISM_TYPE type, CK_MECHANISM_INFO& info);

KeyAlgorithm keyAlgorithmOf(EVP_PKEY* key);
size_t signatureLength(EVP_PKEY* key);
// The largest input CKM_RSA_PKCS accepts for this key (k - 11).
size_t maxRawRsaInput(EVP_PKEY* key);

class Digest {
public:
    bool init(Korvex::HashAlgorithm algorithm);
    bool update(const unsigned char* data, size_t length);
    bool final(Bytes& out);
    size_t length() const { return m_length; }

private:
    MdCtxPtr m_context;
    size_t m_length = 0;
};

// The DigestInfo header for RSA signing with a hash mechanism; empty for
// algorithms without one.
Bytes digestInfoPrefix(Korvex::HashAlgorithm algorithm);

// RSA: PKCS #1 v1.5 type 1 padding over `input`; EC: ECDSA over `input` as
// the digest. CKR_DATA_LEN_RANGE for RSA input that does not fit.
CK_RV signInput(EVP_PKEY* key, const Bytes& input, Bytes& signature);
// CKR_OK, CKR_SIGNATURE_INVALID or CKR_SIGNATURE_LEN_RANGE.
CK_RV verifyInput(EVP_PKEY* key, const Bytes& input, const Bytes& signature);

} // namespace VessaSim
