// slCertificate: public keys, key hashes and thumbprints.
#include "crypto/slCertificate.h"
#include "crypto/Hash.h"
#include "base/base64.h"
#include "CryptoTestSupport.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

using namespace Korvex;
using namespace CryptoTest;

namespace {

slCertificate Load(const std::string& name)
{
    slCertificate cert;
    EXPECT_TRUE(cert.LoadFromFile(FixturePath(name + ".pem"))) << name;
    return cert;
}

// The fixture with another key type: ee-rsa re-keyed with Ed25519.
slCertificate WithEd25519Key()
{
    slCertificate base = Load("ee-rsa");
    X509* cert = base.GetX509Copy();
    EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
    X509_set_pubkey(cert, key);
    i2d_re_X509_tbs(cert, nullptr); // drop the cached encoding
    slCertificate result(cert);
    EVP_PKEY_free(key);
    X509_free(cert);
    return result;
}

} // namespace

TEST(CertificateKeys, KeyTypes)
{
    slCertificate rsa = Load("ee-rsa"), ec = Load("ee-ec"), other = WithEd25519Key();
    EXPECT_TRUE(rsa.IsRsaKey());
    EXPECT_FALSE(rsa.IsEcdsaKey());
    EXPECT_EQ(rsa.GetKeyAlgorithm(), 1);
    EXPECT_TRUE(ec.IsEcdsaKey());
    EXPECT_FALSE(ec.IsRsaKey());
    EXPECT_EQ(ec.GetKeyAlgorithm(), 0);
    EXPECT_FALSE(other.IsRsaKey());
    EXPECT_FALSE(other.IsEcdsaKey());
    EXPECT_EQ(other.GetKeyAlgorithm(), 3);
}

TEST(CertificateKeys, RsaComponentsAndKeyValue)
{
    slCertificate rsa = Load("ee-rsa");
    std::vector<unsigned char> modulus = {9}, exponent = {9};
    ASSERT_TRUE(rsa.GetRsaPubKeyComponents(modulus, exponent));
    EXPECT_EQ(modulus, FromHex(Expected("ee-rsa", "modulus")));
    EXPECT_EQ(exponent, (std::vector<unsigned char>{0x01, 0x00, 0x01}));

    // The key value is the DER RSAPublicKey: SEQUENCE { modulus, exponent }.
    unsigned char* value = nullptr;
    unsigned long len = 0;
    ASSERT_TRUE(rsa.GetPublicKeyValue(&value, &len));
    const std::vector<unsigned char> bytes(value, value + len);
    delete[] value;
    EXPECT_EQ(bytes[0], 0x30);
    EXPECT_NE(std::search(bytes.begin(), bytes.end(), modulus.begin(), modulus.end()), bytes.end());
    EXPECT_TRUE(std::equal(exponent.begin(), exponent.end(), bytes.end() - 3));

    slCertificate ec = Load("ee-ec");
    EXPECT_FALSE(ec.GetRsaPubKeyComponents(modulus, exponent));
    EXPECT_TRUE(modulus.empty());
    EXPECT_TRUE(exponent.empty());
}

TEST(CertificateKeys, EcKeyValueIsTheEncodedPoint)
{
    slCertificate ec = Load("ee-ec");
    unsigned char* value = nullptr;
    unsigned long len = 0;
    ASSERT_TRUE(ec.GetPublicKeyValue(&value, &len));
    std::vector<unsigned char> point(65);
    size_t pointLen = 0;
    ASSERT_EQ(EVP_PKEY_get_octet_string_param(X509_get0_pubkey(ec.GetX509()),
                                              OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(),
                                              &pointLen), 1);
    EXPECT_EQ(std::vector<unsigned char>(value, value + len),
              std::vector<unsigned char>(point.begin(), point.begin() + pointLen));
    delete[] value;
}

// The deprecated key types are what this interface hands out.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST(CertificateKeys, KeyDuplicatesOutliveTheCertificate)
{
    RSA* rsa = nullptr;
    EC_KEY* ec = nullptr;
    {
        slCertificate rsaCert = Load("ee-rsa"), ecCert = Load("ee-ec");
        ASSERT_TRUE(rsaCert.GetRsaPublicKey(&rsa));
        ASSERT_TRUE(ecCert.GetEcdsaPublicKey(&ec));
        RSA* none = nullptr;
        EXPECT_FALSE(ecCert.GetRsaPublicKey(&none));
        EXPECT_EQ(none, nullptr);
    }
    std::vector<unsigned char> n(RSA_size(rsa));
    BN_bn2bin(RSA_get0_n(rsa), n.data());
    EXPECT_EQ(n, FromHex(Expected("ee-rsa", "modulus")));
    EXPECT_EQ(EC_GROUP_get_curve_name(EC_KEY_get0_group(ec)), NID_X9_62_prime256v1);
    EXPECT_NE(EC_KEY_get0_public_key(ec), nullptr);
    RSA_free(rsa);
    EC_KEY_free(ec);
}
#pragma GCC diagnostic pop

TEST(CertificateKeys, KeyHashForms)
{
    slCertificate ee = Load("ee-ec");
    const std::vector<unsigned char> hash = ee.GetPubKeyHashBytes();
    ASSERT_EQ(hash.size(), 20u);
    // SKI by the key-hash method is that very hash.
    const std::vector<unsigned char> ski = ee.GetSKI();
    EXPECT_EQ(std::vector<unsigned char>(ski.begin() + 2, ski.end()), hash);

    const std::string raw = ee.GetPubKeyHashHex();
    ASSERT_EQ(raw.size(), 20u); // raw bytes, not hex digits
    EXPECT_EQ(std::vector<unsigned char>(raw.begin(), raw.end()), hash);
    EXPECT_EQ(b64Decode(ee.GetPubKeyHashB64()), hash);
}

TEST(CertificateThumbprints, BinaryFormsMatchOpenSslFingerprints)
{
    slCertificate ee = Load("ee-rsa");
    std::vector<unsigned char> out = {1, 2, 3};
    ASSERT_TRUE(ee.GetThumbprint(out, HashSha1));
    EXPECT_EQ(out, FromHex(Expected("ee-rsa", "sha1"))); // replaced, not appended
    ASSERT_TRUE(ee.GetThumbprint(out, HashSha256));
    EXPECT_EQ(out, FromHex(Expected("ee-rsa", "sha256")));
    ASSERT_TRUE(ee.GetThumbprint(out, HashMd4));
    EXPECT_EQ(out.size(), 16u);
    EXPECT_FALSE(ee.GetThumbprint(out, HashNone));

    unsigned char* array = nullptr;
    unsigned long len = 0;
    ASSERT_TRUE(ee.GetThumbprint(&array, &len));
    EXPECT_EQ(std::vector<unsigned char>(array, array + len), FromHex(Expected("ee-rsa", "sha1")));
    delete[] array;
    EXPECT_FALSE(slCertificate().GetThumbprint(&array, &len));
}

TEST(CertificateThumbprints, WideTextDropsLeadingZeroOfEveryByte)
{
    int shortened = 0;
    for (const char* name : {"ca", "ee-rsa", "ee-ec", "odd-ext"}) {
        SCOPED_TRACE(name);
        const std::string hex = Expected(name, "sha1");
        std::wstring expected;
        for (size_t i = 0; i < hex.size(); i += 2) {
            if (hex[i] != '0')
                expected += static_cast<wchar_t>(hex[i]);
            expected += static_cast<wchar_t>(hex[i + 1]);
        }
        shortened += expected.size() < 40;
        EXPECT_EQ(Load(name).GetThumbprint(), expected);
    }
    EXPECT_GE(shortened, 2) << "the fixtures should hold digests with bytes below 0x10";
}
