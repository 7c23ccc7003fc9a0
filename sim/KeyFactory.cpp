// Key pairs and X.509 certificates for simulated cards, issued by a test CA
// that lives in the key directory next to them.
#include "sim/KeyFactory.h"

#include "sim/CardData.h"
#include "sim/KeyNumbers.h"
#include "sim/SimPaths.h"

#include <openssl/core_names.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace VessaSim {

namespace {

const char* const kCaCommonName = "vessa Simulation Test-CA";

PkeyPtr generateKey(const KeySpec& keySpec) {
    if (keySpec.algorithm == KeyAlgorithm::Rsa) {
        return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(keySpec.bits)));
    }
    const char* curve = keySpec.bits == 192 ? "prime192v1" : "prime256v1";
    return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve));
}

std::string pemOf(EVP_PKEY* key) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        return "";
    }
    char* data = nullptr;
    long size = BIO_get_mem_data(bio.get(), &data);
    return size > 0 ? std::string(data, static_cast<size_t>(size)) : "";
}

// The PEM file stays what decides; its numbers beside it only spare the
// decoding (see KeyNumbers.h), and are written after the first decode.
PkeyPtr loadKey(const std::string& path) {
    std::vector<unsigned char> pem;
    if (!readWholeFile(path, pem) || pem.empty()) return nullptr;
    const std::string numbersPath = path + ".numbers";
    if (PkeyPtr known = loadKeyNumbers(numbersPath, pem)) return known;
    BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    if (!bio) return nullptr;
    PkeyPtr key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
    if (key) saveKeyNumbers(numbersPath, key.get(), pem);
    return key;
}

X509Ptr loadCertificate(const std::string& path) {
    std::vector<unsigned char> der;
    if (!readWholeFile(path, der) || der.empty()) return nullptr;
    const unsigned char* cursor = der.data();
    return X509Ptr(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())));
}

std::vector<unsigned char> nameDer(const X509_NAME* name) {
    int size = i2d_X509_NAME(name, nullptr);
    if (size <= 0) return {};
    std::vector<unsigned char> der(static_cast<size_t>(size));
    unsigned char* cursor = der.data();
    i2d_X509_NAME(name, &cursor);
    return der;
}

std::vector<unsigned char> derOf(X509* certificate) {
    int size = i2d_X509(certificate, nullptr);
    if (size <= 0) return {};
    std::vector<unsigned char> der(static_cast<size_t>(size));
    unsigned char* cursor = der.data();
    i2d_X509(certificate, &cursor);
    return der;
}

bool addNameEntry(X509_NAME* name, const char* field, const std::string& value) {
    if (value.empty()) return true;
    return X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char*>(value.c_str()),
                                      static_cast<int>(value.size()), -1, 0) == 1;
}

bool addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer ? issuer : certificate, certificate, nullptr, nullptr, 0);
    X509ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
}

struct CertificateRequest {
    EVP_PKEY* subjectKey;
    X509_NAME* subject;
    EVP_PKEY* issuerKey;
    X509* issuer;  // null: self-signed
    bool ca;
    const char* keyUsage;
    long validDays;  // from now; negative: expired already
};

X509Ptr issueCertificate(const CertificateRequest& request) {
    X509Ptr certificate(X509_new());
    BignumPtr serial(BN_new());
    if (!certificate || !serial || X509_set_version(certificate.get(), 2) != 1) return nullptr;
    if (BN_rand(serial.get(), 63, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) != 1 ||
        !BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate.get()))) {
        return nullptr;
    }
    // An expired certificate was issued long enough ago to have been valid.
    const long issuedDaysAgo = request.validDays > 0 ? 1 : 1095;
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -issuedDaysAgo * 24L * 3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), request.validDays * 24L * 3600);
    X509_set_subject_name(certificate.get(), request.subject);
    X509_set_issuer_name(certificate.get(),
                         request.issuer ? X509_get_subject_name(request.issuer) : request.subject);
    if (X509_set_pubkey(certificate.get(), request.subjectKey) != 1) return nullptr;
    bool ok = addExtension(certificate.get(), request.issuer, NID_basic_constraints,
                           request.ca ? "critical,CA:TRUE" : "critical,CA:FALSE") &&
              addExtension(certificate.get(), request.issuer, NID_key_usage, request.keyUsage) &&
              addExtension(certificate.get(), request.issuer, NID_subject_key_identifier, "hash") &&
              addExtension(certificate.get(), request.issuer, NID_authority_key_identifier,
                           "keyid:always");
    if (!ok || X509_sign(certificate.get(), request.issuerKey, EVP_sha256()) <= 0) return nullptr;
    return certificate;
}

bool commonNameIs(X509* certificate, const std::string& expected) {
    X509_NAME* subject = X509_get_subject_name(certificate);
    int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (index < 0) return false;
    ASN1_STRING* data = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index));
    unsigned char* utf8 = nullptr;
    int size = ASN1_STRING_to_UTF8(&utf8, data);
    bool same = size >= 0 && std::string(reinterpret_cast<char*>(utf8), static_cast<size_t>(size)) == expected;
    OPENSSL_free(utf8);
    return same;
}

// The CA is made once per key directory and shared by every card.
struct CertificateAuthority {
    std::string directory;
    SharedPkey key;
    X509Ptr certificate;
};

bool loadOrCreateCa(CertificateAuthority& ca, std::string& error) {
    const std::string directory = keyDirectory();
    if (ca.key && ca.directory == directory) return true;
    const std::string keyPath = directory + "/ca.key.pem";
    const std::string certificatePath = directory + "/ca.cert.der";
    PkeyPtr key = loadKey(keyPath);
    X509Ptr certificate = loadCertificate(certificatePath);
    if (!key || !certificate || X509_check_private_key(certificate.get(), key.get()) != 1) {
        key = generateKey({KeyAlgorithm::Rsa, 2048});
        X509NamePtr name(X509_NAME_new());
        if (!key || !name || !addNameEntry(name.get(), "C", "AT") ||
            !addNameEntry(name.get(), "O", "vessa Simulation") ||
            !addNameEntry(name.get(), "CN", kCaCommonName)) {
            error = "cannot make the test CA key";
            return false;
        }
        certificate = issueCertificate({key.get(), name.get(), key.get(), nullptr, true,
                                        "critical,keyCertSign,cRLSign", 3650});
        if (!certificate || !writeFileAtomically(keyPath, pemOf(key.get())) ||
            !writeFileAtomically(certificatePath, derOf(certificate.get()))) {
            error = "cannot store the test CA in " + directory;
            return false;
        }
    }
    ca.directory = directory;
    ca.key = sharePkey(std::move(key));
    ca.certificate = std::move(certificate);
    return true;
}

// Expired, expiring within 90 days, or good for longer: a kept certificate
// of another class than the card set asks for is issued again.
int validityClass(long daysLeft) { return daysLeft <= 0 ? 0 : daysLeft <= 90 ? 1 : 2; }

bool sameValidityClass(X509* certificate, long validDays) {
    int days = 0, seconds = 0;
    if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate)) != 1) return false;
    return validityClass(days) == validityClass(validDays);
}

bool loadOrCreateKeyPair(const CardSpec& card, const std::string& role, const KeySpec& keySpec,
                         const CertificateAuthority& ca, KeyMaterial& out, std::string& error) {
    const std::string directory = cardKeyDirectory(card.serial);
    const std::string keyPath = directory + "/" + role + ".key.pem";
    const std::string certificatePath = directory + "/" + role + ".cert.der";
    PkeyPtr key = loadKey(keyPath);
    if (!key || !keyMatchesSpec(key.get(), keySpec)) {
        key = generateKey(keySpec);
        if (!key || !writeFileAtomically(keyPath, pemOf(key.get()))) {
            error = "cannot make the " + role + " key of card " + card.serial;
            return false;
        }
    }
    X509Ptr certificate = loadCertificate(certificatePath);
    // A card's two certificates are issued together and end together.
    const long validDays = card.certificateValidDays;
    bool fits = certificate && X509_check_private_key(certificate.get(), key.get()) == 1 &&
                commonNameIs(certificate.get(), card.holderName()) &&
                sameValidityClass(certificate.get(), validDays) &&
                X509_check_issued(ca.certificate.get(), certificate.get()) == X509_V_OK;
    if (!fits) {
        X509NamePtr name(X509_NAME_new());
        bool named = name && addNameEntry(name.get(), "C", "AT") &&
                     addNameEntry(name.get(), "CN", card.holderName()) &&
                     addNameEntry(name.get(), "SN", card.familyName) &&
                     addNameEntry(name.get(), "GN", card.givenName) &&
                     addNameEntry(name.get(), "serialNumber", card.serial);
        const char* usage = role == "sig" ? "critical,digitalSignature,nonRepudiation"
                            : keySpec.algorithm == KeyAlgorithm::Rsa
                                ? "critical,digitalSignature,keyEncipherment"
                                : "critical,digitalSignature,keyAgreement";
        if (named) {
            certificate = issueCertificate(
                {key.get(), name.get(), ca.key.get(), ca.certificate.get(), false, usage, validDays});
        }
        if (!named || !certificate || !writeFileAtomically(certificatePath, derOf(certificate.get()))) {
            error = "cannot issue the " + role + " certificate of card " + card.serial;
            return false;
        }
    }
    out.key = sharePkey(std::move(key));
    out.certificate = derOf(certificate.get());
    out.subject = nameDer(X509_get_subject_name(certificate.get()));
    out.issuer = nameDer(X509_get_issuer_name(certificate.get()));
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate.get());
    const unsigned char* magnitude = ASN1_STRING_get0_data(serial);
    out.serialMagnitude.assign(magnitude, magnitude + std::max(ASN1_STRING_length(serial), 0));
    return true;
}

} // namespace

std::vector<unsigned char> keptCaSignature(const std::string& serial, const CardKeys& keys,
                                           const std::vector<unsigned char>& data) {
    std::vector<unsigned char> signedFor = keys.caCertificate;
    signedFor.insert(signedFor.end(), data.begin(), data.end());
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(signedFor.data(), signedFor.size(), digest);
    const std::string path = cardKeyDirectory(serial) + "/identity-link.sig";
    std::vector<unsigned char> kept;
    if (readWholeFile(path, kept) && kept.size() > sizeof(digest) &&
        std::memcmp(kept.data(), digest, sizeof(digest)) == 0) {
        return std::vector<unsigned char>(kept.begin() + sizeof(digest), kept.end());
    }
    std::vector<unsigned char> signature = signWithCa(keys.caKey.get(), data);
    kept.assign(digest, digest + sizeof(digest));
    kept.insert(kept.end(), signature.begin(), signature.end());
    writeFileAtomically(path, kept);
    return signature;
}

bool keyMatchesSpec(EVP_PKEY* key, const KeySpec& keySpec) {
    if (keySpec.algorithm == KeyAlgorithm::Rsa) {
        return EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA && EVP_PKEY_get_bits(key) == keySpec.bits;
    }
    if (keySpec.algorithm != KeyAlgorithm::Ec || EVP_PKEY_get_base_id(key) != EVP_PKEY_EC) return false;
    char group[64] = {0};
    size_t length = 0;
    if (EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof group, &length) != 1) {
        return false;
    }
    return std::strcmp(group, keySpec.bits == 192 ? "prime192v1" : "prime256v1") == 0;
}

bool loadOrCreateCardKeys(const CardSpec& card, CardKeys& out, std::string& error) {
    static std::mutex caMutex;
    static CertificateAuthority ca;
    std::lock_guard<std::mutex> guard(caMutex);
    if (!makeDirectories(keyDirectory())) {
        error = "cannot create the key directory " + keyDirectory();
        return false;
    }
    // Another process may be making the same keys; wait for it instead of
    // racing it to the same files.
    FileLock lock(keyDirectory() + "/.lock");
    if (!loadOrCreateCa(ca, error)) return false;
    CardKeys keys;
    const GenerationProfile& profile = card.profile();
    if (!loadOrCreateKeyPair(card, "sig", profile.signatureKey, ca, keys.signature, error) ||
        !loadOrCreateKeyPair(card, "enc", profile.encryptionKey, ca, keys.encryption, error)) {
        return false;
    }
    keys.caKey = ca.key;
    keys.caCertificate = derOf(ca.certificate.get());
    out = std::move(keys);
    return true;
}

} // namespace VessaSim
