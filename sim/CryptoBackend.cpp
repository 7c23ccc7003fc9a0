// OpenSSL behind the token's mechanisms.
#include "sim/CryptoBackend.h"

#include "crypto/Hash.h"

#include <openssl/err.h>
#include <openssl/rsa.h>

namespace VessaSim {

namespace {

using Korvex::HashAlgorithm;

const MechanismEntry kMechanisms[] = {
    {CKM_SHA_1, true, KeyAlgorithm::None, Korvex::HashSha1},
    {CKM_RIPEMD160, true, KeyAlgorithm::None, Korvex::HashRipemd160},
    {CKM_SHA224, true, KeyAlgorithm::None, Korvex::HashSha224},
    {CKM_SHA256, true, KeyAlgorithm::None, Korvex::HashSha256},
    {CKM_SHA384, true, KeyAlgorithm::None, Korvex::HashSha384},
    {CKM_SHA512, true, KeyAlgorithm::None, Korvex::HashSha512},
    {CKM_MD5, true, KeyAlgorithm::None, Korvex::HashMd5},
    {CKM_RSA_PKCS, false, KeyAlgorithm::Rsa, Korvex::HashNone},
    {CKM_SHA1_RSA_PKCS, false, KeyAlgorithm::Rsa, Korvex::HashSha1},
    {CKM_RIPEMD160_RSA_PKCS, false, KeyAlgorithm::Rsa, Korvex::HashRipemd160},
    {CKM_SHA256_RSA_PKCS, false, KeyAlgorithm::Rsa, Korvex::HashSha256},
    {CKM_SHA384_RSA_PKCS, false, KeyAlgorithm::Rsa, Korvex::HashSha384},
    {CKM_SHA512_RSA_PKCS, false, KeyAlgorithm::Rsa, Korvex::HashSha512},
    {CKM_ECDSA, false, KeyAlgorithm::Ec, Korvex::HashNone},
    {CKM_ECDSA_SHA1, false, KeyAlgorithm::Ec, Korvex::HashSha1},
};

} // namespace

const MechanismEntry* findMechanism(CK_MECHANISM_TYPE type) {
    for (const auto& entry : kMechanisms) {
        if (entry.type == type) return &entry;
    }
    return nullptr;
}

std::vector<CK_MECHANISM_TYPE> mechanismsFor(bool hasRsaKey, bool hasEcKey) {
    std::vector<CK_MECHANISM_TYPE> types;
    for (const auto& entry : kMechanisms) {
        if (entry.digestOnly || (entry.keyAlgorithm == KeyAlgorithm::Rsa && hasRsaKey) ||
            (entry.keyAlgorithm == KeyAlgorithm::Ec && hasEcKey)) {
            types.push_back(entry.type);
        }
    }
    return types;
}

bool mechanismInfo(CK_MECHANISM_TYPE type, CK_MECHANISM_INFO& info) {
    const MechanismEntry* entry = findMechanism(type);
    if (!entry) return false;
    info.ulMinKeySize = 0;
    info.ulMaxKeySize = 0;
    if (entry->digestOnly) {
        info.flags = CKF_HW | CKF_DIGEST;
    } else if (entry->keyAlgorithm == KeyAlgorithm::Rsa) {
        info.flags = CKF_HW | CKF_SIGN | CKF_VERIFY;
        info.ulMinKeySize = 1024;
        info.ulMaxKeySize = 2048;
    } else {
        info.flags = CKF_HW | CKF_SIGN | CKF_VERIFY | CKF_EC_F_P | CKF_EC_NAMEDCURVE | CKF_EC_UNCOMPRESS;
        info.ulMinKeySize = 192;
        info.ulMaxKeySize = 256;
    }
    return true;
}

KeyAlgorithm keyAlgorithmOf(EVP_PKEY* key) {
    if (!key) return KeyAlgorithm::None;
    switch (EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA: return KeyAlgorithm::Rsa;
    case EVP_PKEY_EC: return KeyAlgorithm::Ec;
    default: return KeyAlgorithm::None;
    }
}

size_t signatureLength(EVP_PKEY* key) {
    if (keyAlgorithmOf(key) == KeyAlgorithm::Rsa) return static_cast<size_t>(EVP_PKEY_get_size(key));
    return 2 * ((static_cast<size_t>(EVP_PKEY_get_bits(key)) + 7) / 8);
}

size_t maxRawRsaInput(EVP_PKEY* key) {
    size_t size = static_cast<size_t>(EVP_PKEY_get_size(key));
    return size > 11 ? size - 11 : 0;
}

bool Digest::init(HashAlgorithm algorithm) {
    unsigned long size = 0;
    const EVP_MD* md = Korvex::intern::GetHashAlgo(algorithm, size);
    if (!md) return false;
    m_context.reset(EVP_MD_CTX_new());
    m_length = size;
    return m_context && EVP_DigestInit_ex(m_context.get(), md, nullptr) == 1;
}

bool Digest::update(const unsigned char* data, size_t length) {
    return m_context && (length == 0 || EVP_DigestUpdate(m_context.get(), data, length) == 1);
}

bool Digest::final(Bytes& out) {
    if (!m_context) return false;
    out.assign(EVP_MAX_MD_SIZE, 0);
    unsigned int size = 0;
    bool ok = EVP_DigestFinal_ex(m_context.get(), out.data(), &size) == 1;
    out.resize(ok ? size : 0);
    m_context.reset();
    return ok;
}

Bytes digestInfoPrefix(HashAlgorithm algorithm) {
    switch (algorithm) {
    case Korvex::HashSha1:
        return Bytes(Korvex::Sha1Pkcs01DigestInfo, Korvex::Sha1Pkcs01DigestInfo + Korvex::Sha1Pkcs01DigestInfoLen);
    case Korvex::HashRipemd160:
        return Bytes(Korvex::Ripemd160Pkcs01DigestInfo,
                     Korvex::Ripemd160Pkcs01DigestInfo + Korvex::Ripemd160Pkcs01DigestInfoLen);
    case Korvex::HashSha256:
        return Bytes(Korvex::Sha256Pkcs01DigestInfo,
                     Korvex::Sha256Pkcs01DigestInfo + Korvex::Sha256Pkcs01DigestInfoLen);
    case Korvex::HashSha384:
        return Bytes(Korvex::Sha384Pkcs01DigestInfo,
                     Korvex::Sha384Pkcs01DigestInfo + Korvex::Sha384Pkcs01DigestInfoLen);
    case Korvex::HashSha512:
        return Bytes(Korvex::Sha512Pkcs01DigestInfo,
                     Korvex::Sha512Pkcs01DigestInfo + Korvex::Sha512Pkcs01DigestInfoLen);
    default:
        return Bytes();
    }
}

CK_RV signInput(EVP_PKEY* key, const Bytes& input, Bytes& signature) {
    const KeyAlgorithm algorithm = keyAlgorithmOf(key);
    if (algorithm == KeyAlgorithm::Rsa && input.size() > maxRawRsaInput(key)) return CKR_DATA_LEN_RANGE;
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (!context || EVP_PKEY_sign_init(context.get()) != 1) return CKR_DEVICE_ERROR;
    if (algorithm == KeyAlgorithm::Rsa &&
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1) {
        return CKR_DEVICE_ERROR;
    }
    // ECDSA of an empty input is still defined; OpenSSL wants a buffer.
    static const unsigned char kNothing = 0;
    const unsigned char* data = input.empty() ? &kNothing : input.data();
    size_t size = 0;
    if (EVP_PKEY_sign(context.get(), nullptr, &size, data, input.size()) != 1) return CKR_DEVICE_ERROR;
    Bytes raw(size);
    if (EVP_PKEY_sign(context.get(), raw.data(), &size, data, input.size()) != 1) return CKR_DEVICE_ERROR;
    raw.resize(size);
    if (algorithm == KeyAlgorithm::Rsa) {
        signature = std::move(raw);
        return CKR_OK;
    }
    const unsigned char* cursor = raw.data();
    EcdsaSigPtr parsed(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(raw.size())));
    if (!parsed) return CKR_DEVICE_ERROR;
    const size_t half = signatureLength(key) / 2;
    signature.assign(2 * half, 0);
    if (BN_bn2binpad(ECDSA_SIG_get0_r(parsed.get()), signature.data(), static_cast<int>(half)) < 0 ||
        BN_bn2binpad(ECDSA_SIG_get0_s(parsed.get()), signature.data() + half, static_cast<int>(half)) < 0) {
        return CKR_DEVICE_ERROR;
    }
    return CKR_OK;
}

CK_RV verifyInput(EVP_PKEY* key, const Bytes& input, const Bytes& signature) {
    const KeyAlgorithm algorithm = keyAlgorithmOf(key);
    if (signature.size() != signatureLength(key)) return CKR_SIGNATURE_LEN_RANGE;
    Bytes encoded = signature;
    if (algorithm == KeyAlgorithm::Ec) {
        const size_t half = signature.size() / 2;
        EcdsaSigPtr parsed(ECDSA_SIG_new());
        BIGNUM* r = BN_bin2bn(signature.data(), static_cast<int>(half), nullptr);
        BIGNUM* s = BN_bin2bn(signature.data() + half, static_cast<int>(half), nullptr);
        if (!parsed || !r || !s || ECDSA_SIG_set0(parsed.get(), r, s) != 1) {
            BN_free(r);
            BN_free(s);
            return CKR_DEVICE_ERROR;
        }
        int size = i2d_ECDSA_SIG(parsed.get(), nullptr);
        if (size <= 0) return CKR_DEVICE_ERROR;
        encoded.assign(static_cast<size_t>(size), 0);
        unsigned char* cursor = encoded.data();
        i2d_ECDSA_SIG(parsed.get(), &cursor);
    } else if (input.size() > maxRawRsaInput(key)) {
        return CKR_SIGNATURE_INVALID;
    }
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (!context || EVP_PKEY_verify_init(context.get()) != 1) return CKR_DEVICE_ERROR;
    if (algorithm == KeyAlgorithm::Rsa &&
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1) {
        return CKR_DEVICE_ERROR;
    }
    static const unsigned char kNothing = 0;
    const unsigned char* data = input.empty() ? &kNothing : input.data();
    int result = EVP_PKEY_verify(context.get(), encoded.data(), encoded.size(), data, input.size());
    if (result == 1) return CKR_OK;
    // A bad signature leaves errors in OpenSSL's per-thread queue; the host
    // program must not find them there.
    ERR_clear_error();
    return CKR_SIGNATURE_INVALID;
}

} // namespace VessaSim
