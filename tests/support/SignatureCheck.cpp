// OpenSSL side of the signature checks of the simulator and token tests.
#include "tests/support/SignatureCheck.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

namespace TestSupport {

namespace {

using Bytes = std::vector<unsigned char>;

// PKCS#11 delivers ECDSA signatures as r || s; OpenSSL wants DER.
Bytes ecdsaToDer(const Bytes& raw)
{
    size_t half = raw.size() / 2;
    ECDSA_SIG* sig = ECDSA_SIG_new();
    ECDSA_SIG_set0(sig, BN_bin2bn(raw.data(), static_cast<int>(half), nullptr),
                   BN_bin2bn(raw.data() + half, static_cast<int>(half), nullptr));
    unsigned char* der = nullptr;
    int length = i2d_ECDSA_SIG(sig, &der);
    Bytes result;
    if (length > 0)
        result.assign(der, der + length);
    OPENSSL_free(der);
    ECDSA_SIG_free(sig);
    return result;
}

} // namespace

bool verifyWithCertificate(const Bytes& certificateDer, const char* mdName, const Bytes& data,
                           const Bytes& signature)
{
    const unsigned char* cursor = certificateDer.data();
    X509* cert = d2i_X509(nullptr, &cursor, static_cast<long>(certificateDer.size()));
    if (cert == nullptr)
        return false;
    EVP_PKEY* key = X509_get_pubkey(cert);
    X509_free(cert);
    if (key == nullptr)
        return false;
    bool isEc = EVP_PKEY_get_base_id(key) == EVP_PKEY_EC;
    Bytes sig = isEc ? ecdsaToDer(signature) : signature;

    int result = 0;
    if (mdName != nullptr) {
        EVP_MD_CTX* ctx = EVP_MD_CTX_new();
        if (EVP_DigestVerifyInit_ex(ctx, nullptr, mdName, nullptr, nullptr, key, nullptr) == 1)
            result = EVP_DigestVerify(ctx, sig.data(), sig.size(), data.data(), data.size());
        EVP_MD_CTX_free(ctx);
    } else {
        EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr);
        if (EVP_PKEY_verify_init(ctx) == 1 &&
            (isEc || EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) == 1))
            result = EVP_PKEY_verify(ctx, sig.data(), sig.size(), data.data(), data.size());
        EVP_PKEY_CTX_free(ctx);
    }
    EVP_PKEY_free(key);
    return result == 1;
}

} // namespace TestSupport
