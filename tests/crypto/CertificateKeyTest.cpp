// slCertificate: public keys, key hashes and thumbprints.
#include "CryptoTestSupport.h"
#include "base/base64.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

using namespace Korvex;
using namespace CryptoTest;

namespace {

Bytes KeyValue(const slCertificate& cert)
{
    unsigned char* value = nullptr;
    unsigned long len = 0;
    EXPECT_TRUE(cert.GetPublicKeyValue(&value, &len));
    Bytes bytes(value, value + len);
    delete[] value;
    return bytes;
}

} // namespace

TEST(CertificateKeys, KeyTypes)
{
    slCertificate rsa = Load("ee-rsa"), ec = Load("ee-ec");
    X509* ed = rsa.GetX509Copy(); // the same certificate re-keyed with Ed25519
    EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
    X509_set_pubkey(ed, key);
    i2d_re_X509_tbs(ed, nullptr); // drop the cached encoding
    slCertificate other(ed);
    EVP_PKEY_free(key);
    X509_free(ed);
    EXPECT_TRUE(rsa.IsRsaKey() && !rsa.IsEcdsaKey() && ec.IsEcdsaKey() && !ec.IsRsaKey());
    EXPECT_FALSE(other.IsRsaKey() || other.IsEcdsaKey());
    EXPECT_EQ((std::vector<int>{rsa.GetKeyAlgorithm(), ec.GetKeyAlgorithm(), other.GetKeyAlgorithm()}),
              (std::vector<int>{1, 0, 3}));
}

TEST(CertificateKeys, KeyValuesComponentsAndDuplicates)
{
    slCertificate rsa = Load("ee-rsa"), ec = Load("ee-ec");
    Bytes modulus = {9}, exponent = {9};
    ASSERT_TRUE(rsa.GetRsaPubKeyComponents(modulus, exponent));
    EXPECT_EQ(modulus, FromHex(Expected("ee-rsa", "modulus")));
    EXPECT_EQ(exponent, (Bytes{0x01, 0x00, 0x01}));
    // The RSA key value parses into its modulus: TokenCertTest.SignatureCertificateAndItsTexts.
    // EC: the encoded point, as OpenSSL reports it.
    Bytes point(65);
    size_t pointLen = 0;
    ASSERT_EQ(EVP_PKEY_get_octet_string_param(X509_get0_pubkey(ec.GetX509()), OSSL_PKEY_PARAM_PUB_KEY,
                                              point.data(), point.size(), &pointLen), 1);
    EXPECT_EQ(KeyValue(ec), Bytes(point.begin(), point.begin() + pointLen));
    EXPECT_FALSE(ec.GetRsaPubKeyComponents(modulus, exponent));
    EXPECT_TRUE(modulus.empty() && exponent.empty());

// The deprecated key types are what this interface hands out.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    RSA* rsaKey = nullptr;
    EC_KEY* ecKey = nullptr;
    {
        slCertificate r = Load("ee-rsa"), e = Load("ee-ec");
        ASSERT_TRUE(r.GetRsaPublicKey(&rsaKey) && e.GetEcdsaPublicKey(&ecKey));
        EXPECT_FALSE(e.GetRsaPublicKey(&rsaKey));
    } // the duplicates must not depend on the certificates
    EXPECT_EQ(BN_num_bytes(RSA_get0_n(rsaKey)), 256);
    EXPECT_EQ(EC_GROUP_get_curve_name(EC_KEY_get0_group(ecKey)), NID_X9_62_prime256v1);
    RSA_free(rsaKey);
    EC_KEY_free(ecKey);
#pragma GCC diagnostic pop
}

TEST(CertificateKeys, KeyHashForms)
{
    slCertificate ec = Load("ee-ec");
    const Bytes hash = ec.GetPubKeyHashBytes();
    ASSERT_EQ(hash.size(), 20u);
    const std::string raw = ec.GetPubKeyHashHex();
    EXPECT_EQ(Bytes(raw.begin(), raw.end()), hash);     // raw bytes, no hex digits
    EXPECT_EQ(b64Decode(ec.GetPubKeyHashB64()), hash);
}

TEST(CertificateThumbprints, BinaryFormsMatchOpenSslFingerprints)
{
    slCertificate ee = Load("ee-rsa");
    Bytes out = {1, 2, 3};
    ASSERT_TRUE(ee.GetThumbprint(out, HashSha1));
    EXPECT_EQ(out, FromHex(Expected("ee-rsa", "sha1"))); // replaced, not appended
    ASSERT_TRUE(ee.GetThumbprint(out, HashSha256));
    EXPECT_EQ(out, FromHex(Expected("ee-rsa", "sha256")));
    EXPECT_FALSE(ee.GetThumbprint(out, HashNone));
    // The array form: TokenCertTest.SignatureCertificateAndItsTexts (the card's fingerprint).
}

TEST(CertificateThumbprints, WideTextDropsTheLeadingZeroOfEveryByte)
{
    int shortened = 0;
    for (const char* name : {"ca", "ee-rsa", "ee-ec", "odd-ext"}) {
        const std::string hex = Expected(name, "sha1");
        std::wstring expected;
        for (size_t i = 0; i < hex.size(); i += 2) {
            if (hex[i] != '0')
                expected += static_cast<wchar_t>(hex[i]);
            expected += static_cast<wchar_t>(hex[i + 1]);
        }
        shortened += expected.size() < 40;
        EXPECT_EQ(Load(name).GetThumbprint(), expected) << name;
    }
    EXPECT_GE(shortened, 2) << "the fixtures should hold digests with bytes below 0x10";
}
