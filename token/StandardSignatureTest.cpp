// Signature test of standard tokens; see StandardSignatureTest.h.
#include "token/StandardSignatureTest.h"

#include "token/acPKCS11.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>

namespace Korvex {

namespace {

using Bytes = std::vector<unsigned char>;

const char kTestText[] = "Signaturtest VessaCards";

struct Mechanism {
    CK_KEY_TYPE keyType;
    CK_MECHANISM_TYPE type;
    const char* name;
    bool pss;
    // The token signs a SHA-256 hash the program made (plain ECDSA); used
    // only when the token does not hash itself.
    CK_MECHANISM_TYPE unlessOffered;
};

const Mechanism kMechanisms[] = {
    {CKK_RSA, CKM_SHA256_RSA_PKCS, "RSA PKCS#1 v1.5", false, 0},
    {CKK_RSA, CKM_SHA256_RSA_PKCS_PSS, "RSA-PSS", true, 0},
    {CKK_EC, CKM_ECDSA_SHA256, "ECDSA", false, 0},
    {CKK_EC, CKM_ECDSA, "ECDSA", false, CKM_ECDSA_SHA256},
};

// PKCS#11 delivers ECDSA signatures as r || s; OpenSSL wants DER.
Bytes ecdsaToDer(const Bytes& raw)
{
    const size_t half = raw.size() / 2;
    std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> sig(ECDSA_SIG_new(), ECDSA_SIG_free);
    ECDSA_SIG_set0(sig.get(), BN_bin2bn(raw.data(), static_cast<int>(half), nullptr),
                   BN_bin2bn(raw.data() + half, static_cast<int>(half), nullptr));
    unsigned char* der = nullptr;
    const int length = i2d_ECDSA_SIG(sig.get(), &der);
    Bytes result;
    if (length > 0)
        result.assign(der, der + length);
    OPENSSL_free(der);
    return result;
}

Bytes sha256(const Bytes& data)
{
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1)
        return Bytes();
    digest.resize(length);
    return digest;
}

// The hash inside is the same whether the token or the program made it.
bool verify(const Bytes& certificateDer, const Mechanism& mechanism, const Bytes& data, const Bytes& signature)
{
    const unsigned char* cursor = certificateDer.data();
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &cursor, static_cast<long>(certificateDer.size())), X509_free);
    if (!certificate)
        return false;
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(X509_get_pubkey(certificate.get()), EVP_PKEY_free);
    if (!key)
        return false;
    const Bytes sig = mechanism.keyType == CKK_EC ? ecdsaToDer(signature) : signature;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_PKEY_CTX* keyContext = nullptr;
    if (EVP_DigestVerifyInit_ex(context.get(), &keyContext, "SHA256", nullptr, nullptr, key.get(), nullptr) != 1)
        return false;
    if (mechanism.pss && (EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING) != 1 ||
                          EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_DIGEST) != 1))
        return false;
    return EVP_DigestVerify(context.get(), sig.data(), sig.size(), data.data(), data.size()) == 1;
}

} // namespace

std::vector<SignatureCheckResult> RunStandardSignatureTest(acPKCS11& p11, CK_SLOT_ID slot)
{
    std::vector<SignatureCheckResult> results;
    std::vector<TokenObject> keys, certificates;
    std::vector<CK_MECHANISM_TYPE> offered;
    if (!p11.ListSigningKeys(keys) || !p11.GetMechanisms(slot, offered))
        return results;
    p11.ListTokenCertificates(certificates);
    const Bytes data(kTestText, kTestText + sizeof(kTestText) - 1);
    for (const TokenObject& key : keys) {
        const TokenObject* certificate = nullptr;
        for (const TokenObject& candidate : certificates)
            if (!key.id.empty() && candidate.id == key.id)
                certificate = &candidate;
        for (const Mechanism& mechanism : kMechanisms) {
            auto isOffered = [&offered](CK_MECHANISM_TYPE type) {
                return std::find(offered.begin(), offered.end(), type) != offered.end();
            };
            if (mechanism.keyType != key.keyType || !isOffered(mechanism.type) ||
                (mechanism.unlessOffered != 0 && isOffered(mechanism.unlessOffered)))
                continue;
            SignatureCheckResult result;
            result.key = key.label;
            result.mechanism = mechanism.name;
            Bytes signature;
            result.signedOk = p11.SignWithKey(key.handle, mechanism.type,
                                              mechanism.unlessOffered != 0 ? sha256(data) : data, signature);
            result.verified = result.signedOk && certificate != nullptr &&
                              verify(certificate->value, mechanism, data, signature);
            results.push_back(result);
        }
    }
    return results;
}

} // namespace Korvex
