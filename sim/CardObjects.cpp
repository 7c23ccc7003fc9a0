// Attribute sets of keys, certificates and data objects, as a card module
// reports them.
#include "sim/CardObjects.h"

#include "crypto/slCertificate.h"
#include "formats/DerWriter.h"

#include <openssl/core_names.h>
#include <openssl/objects.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <cstdio>

namespace VessaSim {

namespace Der = Korvex::Der;

namespace {

const char* const kApplication = "vessa premium";

void setCommon(SimObject& object, CK_OBJECT_CLASS objectClass, const std::string& label,
               unsigned char id, bool modifiable) {
    object.setUlong(CKA_CLASS, objectClass);
    object.setBool(CKA_TOKEN, true);
    object.setBool(CKA_PRIVATE, false);
    object.setBool(CKA_MODIFIABLE, modifiable);
    object.setBool(CKA_COPYABLE, false);
    object.setBool(CKA_DESTROYABLE, false);
    object.setText(CKA_LABEL, label);
    if (id) object.setBytes(CKA_ID, {id});
}

Bytes bignumParam(EVP_PKEY* key, const char* name) {
    BIGNUM* raw = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &raw) != 1) return {};
    BignumPtr number(raw);
    Bytes out(static_cast<size_t>(BN_num_bytes(number.get())));
    BN_bn2bin(number.get(), out.data());
    return out;
}

Bytes ecParams(EVP_PKEY* key) {
    char group[64] = {0};
    size_t length = 0;
    if (EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof group, &length) != 1) {
        return {};
    }
    ASN1_OBJECT* oid = OBJ_txt2obj(group, 0);
    if (!oid) return {};
    int size = i2d_ASN1_OBJECT(oid, nullptr);
    Bytes der(size > 0 ? static_cast<size_t>(size) : 0);
    unsigned char* cursor = der.data();
    if (size > 0) i2d_ASN1_OBJECT(oid, &cursor);
    ASN1_OBJECT_free(oid);
    return der;
}

Bytes ecPoint(EVP_PKEY* key) {
    size_t length = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, nullptr, 0, &length) != 1) return {};
    Bytes point(length);
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(), &length) != 1) {
        return {};
    }
    point.resize(length);
    return Der::octets(point);
}

Bytes subjectPublicKeyInfo(EVP_PKEY* key) {
    int size = i2d_PUBKEY(key, nullptr);
    if (size <= 0) return {};
    Bytes der(static_cast<size_t>(size));
    unsigned char* cursor = der.data();
    i2d_PUBKEY(key, &cursor);
    return der;
}

// The certificate's parts that the key and certificate objects repeat.
struct CertificateParts {
    Bytes subject;
    Bytes issuer;
    Bytes serial;  // DER INTEGER
};

// Taken when the certificate was loaded: decoding it again here would cost
// a card's first session another public key decode.
CertificateParts certificateParts(const KeyMaterial& material) {
    CertificateParts parts;
    parts.subject = material.subject;
    parts.issuer = material.issuer;
    if (!material.serialMagnitude.empty()) parts.serial = Der::unsignedInteger(material.serialMagnitude);
    return parts;
}

void addKeyObjects(std::vector<SimObject>& out, const KeyMaterial& material, const char* suffix,
                   unsigned char id, PinIndex pin) {
    EVP_PKEY* key = material.key.get();
    const bool rsa = EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA;
    const CertificateParts parts = certificateParts(material);
    // Both key objects repeat the public values; each is encoded once.
    const Bytes publicKeyInfo = subjectPublicKeyInfo(key);
    const Bytes modulus = rsa ? bignumParam(key, OSSL_PKEY_PARAM_RSA_N) : Bytes();
    const Bytes exponent = rsa ? bignumParam(key, OSSL_PKEY_PARAM_RSA_E) : Bytes();
    const Bytes curve = rsa ? Bytes() : ecParams(key);

    SimObject privateKey;
    privateKey.role = ObjectRole::PrivateKey;
    privateKey.pin = pin;
    privateKey.key = material.key;
    setCommon(privateKey, CKO_PRIVATE_KEY, std::string("SK.CH.") + suffix, id, false);
    privateKey.setUlong(CKA_KEY_TYPE, rsa ? CKK_RSA : CKK_EC);
    privateKey.setBytes(CKA_SUBJECT, parts.subject);
    privateKey.setBytes(CKA_START_DATE, {});
    privateKey.setBytes(CKA_END_DATE, {});
    privateKey.setBool(CKA_LOCAL, true);
    privateKey.setBool(CKA_DERIVE, false);
    privateKey.setBool(CKA_SENSITIVE, true);
    privateKey.setBool(CKA_ALWAYS_SENSITIVE, true);
    privateKey.setBool(CKA_EXTRACTABLE, false);
    privateKey.setBool(CKA_NEVER_EXTRACTABLE, true);
    privateKey.setBool(CKA_SIGN, true);
    privateKey.setBool(CKA_SIGN_RECOVER, false);
    privateKey.setBool(CKA_DECRYPT, false);
    privateKey.setBool(CKA_UNWRAP, false);
    privateKey.setBool(CKA_WRAP_WITH_TRUSTED, false);
    privateKey.setBool(CKA_ALWAYS_AUTHENTICATE, true);
    privateKey.setBytes(CKA_PUBLIC_KEY_INFO, publicKeyInfo);
    if (rsa) {
        privateKey.setBytes(CKA_MODULUS, modulus);
        privateKey.setBytes(CKA_PUBLIC_EXPONENT, exponent);
        for (CK_ATTRIBUTE_TYPE secret : {CKA_PRIVATE_EXPONENT, CKA_PRIME_1, CKA_PRIME_2, CKA_EXPONENT_1,
                                         CKA_EXPONENT_2, CKA_COEFFICIENT}) {
            privateKey.setBytes(secret, {});
            privateKey.sensitive.insert(secret);
        }
    } else {
        privateKey.setBytes(CKA_EC_PARAMS, curve);
        privateKey.setBytes(CKA_VALUE, {});
        privateKey.sensitive.insert(CKA_VALUE);
    }
    out.push_back(privateKey);

    SimObject publicKey;
    publicKey.role = ObjectRole::PublicKey;
    publicKey.pin = pin;
    publicKey.key = material.key;
    setCommon(publicKey, CKO_PUBLIC_KEY, std::string("PK.CH.") + suffix, id, false);
    publicKey.setUlong(CKA_KEY_TYPE, rsa ? CKK_RSA : CKK_EC);
    publicKey.setBytes(CKA_SUBJECT, parts.subject);
    publicKey.setBytes(CKA_START_DATE, {});
    publicKey.setBytes(CKA_END_DATE, {});
    publicKey.setBool(CKA_LOCAL, true);
    publicKey.setBool(CKA_DERIVE, false);
    publicKey.setBool(CKA_VERIFY, true);
    publicKey.setBool(CKA_VERIFY_RECOVER, false);
    publicKey.setBool(CKA_ENCRYPT, false);
    publicKey.setBool(CKA_WRAP, false);
    publicKey.setBool(CKA_TRUSTED, false);
    publicKey.setBytes(CKA_PUBLIC_KEY_INFO, publicKeyInfo);
    if (rsa) {
        publicKey.setBytes(CKA_MODULUS, modulus);
        publicKey.setUlong(CKA_MODULUS_BITS, static_cast<CK_ULONG>(EVP_PKEY_get_bits(key)));
        publicKey.setBytes(CKA_PUBLIC_EXPONENT, exponent);
    } else {
        publicKey.setBytes(CKA_EC_PARAMS, curve);
        publicKey.setBytes(CKA_EC_POINT, ecPoint(key));
    }
    out.push_back(publicKey);

    SimObject certificate;
    certificate.role = ObjectRole::Certificate;
    certificate.pin = pin;
    setCommon(certificate, CKO_CERTIFICATE, std::string("C.CH.") + suffix, id, false);
    certificate.setUlong(CKA_CERTIFICATE_TYPE, CKC_X_509);
    certificate.setBool(CKA_TRUSTED, false);
    certificate.setUlong(CKA_CERTIFICATE_CATEGORY, 1);  // token user
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(material.certificate.data(), material.certificate.size(), digest);
    certificate.setBytes(CKA_CHECK_VALUE, Bytes(digest, digest + 3));
    certificate.setBytes(CKA_START_DATE, {});
    certificate.setBytes(CKA_END_DATE, {});
    certificate.setBytes(CKA_SUBJECT, parts.subject);
    certificate.setBytes(CKA_ISSUER, parts.issuer);
    certificate.setBytes(CKA_SERIAL_NUMBER, parts.serial);
    certificate.setBytes(CKA_VALUE, material.certificate);
    certificate.setText(CKA_URL, "");
    certificate.setUlong(CKA_JAVA_MIDP_SECURITY_DOMAIN, 0);
    out.push_back(certificate);
}

} // namespace

std::vector<SimObject> buildKeyObjects(const CardKeys& keys) {
    std::vector<SimObject> objects;
    if (keys.signature.key) addKeyObjects(objects, keys.signature, "SIG", 0x01, PinSignature);
    if (keys.encryption.key) addKeyObjects(objects, keys.encryption, "EKEY", 0x02, PinEncryption);
    return objects;
}

SimObject makeDataObject(const std::string& label, ObjectRole role, const Bytes& value, bool isPrivate) {
    SimObject object;
    object.role = role;
    object.pin = PinIdentityLink;
    setCommon(object, CKO_DATA, label, 0, role != ObjectRole::InfoboxFile);
    object.setBool(CKA_PRIVATE, isPrivate);
    object.setText(CKA_APPLICATION, kApplication);
    object.setBytes(CKA_OBJECT_ID, {});
    object.setBytes(CKA_VALUE, value);
    return object;
}

std::string infoboxEntryLabel(unsigned char tag) {
    char label[8];
    std::snprintf(label, sizeof label, "0x%02x", tag);
    return label;
}

SimObject makeInfoboxEntryObject(unsigned char tag, unsigned char type, const Bytes& content) {
    SimObject object = makeDataObject(infoboxEntryLabel(tag), ObjectRole::InfoboxEntry, content, (type & 1) != 0);
    object.infoboxTag = tag;
    object.infoboxType = type;
    return object;
}

} // namespace VessaSim
