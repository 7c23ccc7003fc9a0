// Owning handles for the OpenSSL objects the simulator keeps or builds.
#pragma once

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace VessaSim {

struct OpenSslFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
    void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
    void operator()(X509* p) const { X509_free(p); }
    void operator()(X509_NAME* p) const { X509_NAME_free(p); }
    void operator()(X509_EXTENSION* p) const { X509_EXTENSION_free(p); }
    void operator()(BIO* p) const { BIO_free_all(p); }
    void operator()(BIGNUM* p) const { BN_free(p); }
    void operator()(ECDSA_SIG* p) const { ECDSA_SIG_free(p); }
};

using PkeyPtr = std::unique_ptr<EVP_PKEY, OpenSslFree>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, OpenSslFree>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, OpenSslFree>;
using X509Ptr = std::unique_ptr<X509, OpenSslFree>;
using X509NamePtr = std::unique_ptr<X509_NAME, OpenSslFree>;
using X509ExtensionPtr = std::unique_ptr<X509_EXTENSION, OpenSslFree>;
using BioPtr = std::unique_ptr<BIO, OpenSslFree>;
using BignumPtr = std::unique_ptr<BIGNUM, OpenSslFree>;
using EcdsaSigPtr = std::unique_ptr<ECDSA_SIG, OpenSslFree>;

// Keys are shared between a card's objects and running operations.
using SharedPkey = std::shared_ptr<EVP_PKEY>;
inline SharedPkey sharePkey(PkeyPtr key) { return SharedPkey(key.release(), EVP_PKEY_free); }

} // namespace VessaSim
