// Public-key parsing against keys made by OpenSSL: RSA keys as RSAPublicKey
// DER (including a 4096-bit modulus whose INTEGER carries a zero octet),
// elliptic-curve points of several sizes, and broken input.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/x509.h>

#include "formats/PublicKey.h"
#include "tests/formats/DerBuilder.h"
#include "tests/formats/LogCapture.h"

using namespace Korvex;
using dertest::Bytes;
using dertest::cat;
using dertest::tlv;

namespace {

using PKeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using BnPtr = std::unique_ptr<BIGNUM, decltype(&BN_free)>;

Bytes bnBytes(const BIGNUM* bn)
{
    Bytes out(static_cast<size_t>(BN_num_bytes(bn)));
    BN_bn2bin(bn, out.data());
    return out;
}

std::string bnDecimal(const BIGNUM* bn)
{
    char* text = BN_bn2dec(bn);
    std::string out(text);
    OPENSSL_free(text);
    return out;
}

BnPtr bnParam(EVP_PKEY* key, const char* name)
{
    BIGNUM* bn = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(key, name, &bn), 1) << name;
    return BnPtr(bn, &BN_free);
}

Bytes rsaPublicKeyDer(EVP_PKEY* key)
{
    unsigned char* der = nullptr;
    const int len = i2d_PublicKey(key, &der);
    EXPECT_GT(len, 0);
    Bytes out(der, der + len);
    OPENSSL_free(der);
    return out;
}

// A public RSA key from a random modulus of the given size: no key
// generation needed, since only the encoding matters here.
PKeyPtr rsaKeyFromRandomModulus(int bits)
{
    BnPtr n(BN_new(), &BN_free);
    BnPtr e(BN_new(), &BN_free);
    BN_rand(n.get(), bits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ODD);
    BN_set_word(e.get(), 65537);
    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e.get());
    OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_fromdata_init(ctx);
    EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_PUBLIC_KEY, params);
    EVP_PKEY_CTX_free(ctx);
    OSSL_PARAM_free(params);
    OSSL_PARAM_BLD_free(builder);
    return PKeyPtr(key, &EVP_PKEY_free);
}

Bytes ecPoint(EVP_PKEY* key)
{
    unsigned char point[256];
    size_t len = 0;
    EXPECT_EQ(EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, point, sizeof point, &len), 1);
    return Bytes(point, point + len);
}

// The parser gets a heap copy of exactly len bytes, so the sanitizer sees
// any read beyond them.
ParsedPublicKey parseExact(const Bytes& bytes, size_t len)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[len == 0 ? 1 : len]);
    std::memcpy(copy.get(), bytes.data(), len);
    return ParseKey(copy.get(), 0, static_cast<int>(len));
}

Bytes modulusOf(const ParsedPublicKey& key)
{
    return Bytes(key.modulus, key.modulus + key.modulusLen);
}

Bytes exponentOf(const ParsedPublicKey& key)
{
    return Bytes(key.exponent, key.exponent + key.exponentLen);
}

std::string text(const unsigned char* digits)
{
    return reinterpret_cast<const char*>(digits);
}

} // namespace

TEST(ParseRsaKey, ReadsModulusAndExponentWithoutLeadingZeros)
{
    Bytes der = {0x30, 0x0A, 0x02, 0x03, 0x00, 0xC3, 0x51, 0x02, 0x03, 0x01, 0x00, 0x01};
    ParsedPublicKey key = ParseKey(der.data(), 0, static_cast<int>(der.size()));
    EXPECT_EQ(key.keyType, ParsedPublicKey::kKeyTypeRsa);
    EXPECT_EQ(modulusOf(key), (Bytes{0xC3, 0x51}));
    EXPECT_EQ(exponentOf(key), (Bytes{0x01, 0x00, 0x01}));
    EXPECT_EQ(key.curve, "");
    EXPECT_EQ(key.coordinateLen, 0);
}

TEST(ParseRsaKey, ReadsKeysMadeByOpenSsl)
{
    PKeyPtr generated(EVP_RSA_gen(2048), &EVP_PKEY_free);
    ASSERT_TRUE(generated);
    for (EVP_PKEY* pkey : {generated.get()}) {
        Bytes der = rsaPublicKeyDer(pkey);
        ParsedPublicKey key = parseExact(der, der.size());
        EXPECT_EQ(key.keyType, 0);
        EXPECT_EQ(modulusOf(key), bnBytes(bnParam(pkey, OSSL_PKEY_PARAM_RSA_N).get()));
        EXPECT_EQ(exponentOf(key), bnBytes(bnParam(pkey, OSSL_PKEY_PARAM_RSA_E).get()));
    }
    // A 4096-bit modulus is 513 bytes in DER and fills the array exactly.
    PKeyPtr large = rsaKeyFromRandomModulus(4096);
    ASSERT_TRUE(large);
    Bytes der = rsaPublicKeyDer(large.get());
    ParsedPublicKey key = parseExact(der, der.size());
    EXPECT_EQ(key.modulusLen, 512);
    EXPECT_EQ(modulusOf(key), bnBytes(bnParam(large.get(), OSSL_PKEY_PARAM_RSA_N).get()));
    EXPECT_EQ(exponentOf(key), (Bytes{0x01, 0x00, 0x01}));
}

TEST(ParseRsaKey, KeyCanStartAtAnOffset)
{
    Bytes der = {0x30, 0x06, 0x02, 0x01, 0x05, 0x02, 0x01, 0x03};
    Bytes buf = cat({Bytes{0xFF, 0xFF, 0xFF}, der});
    ParsedPublicKey key = ParseKey(buf.data(), 3, static_cast<int>(der.size()));
    EXPECT_EQ(modulusOf(key), (Bytes{0x05}));
    EXPECT_EQ(exponentOf(key), (Bytes{0x03}));
}

TEST(ParseRsaKey, StopsAtTheFirstElementThatIsNoInteger)
{
    Bytes noInteger = {0x30, 0x05, 0x04, 0x03, 0x01, 0x02, 0x03};
    ParsedPublicKey key = ParseKey(noInteger.data(), 0, static_cast<int>(noInteger.size()));
    EXPECT_EQ(key.keyType, 0);
    EXPECT_EQ(key.modulusLen, 0);
    EXPECT_EQ(key.exponentLen, 0);

    Bytes noExponent = {0x30, 0x06, 0x02, 0x01, 0x05, 0x04, 0x01, 0x03};
    key = ParseKey(noExponent.data(), 0, static_cast<int>(noExponent.size()));
    EXPECT_EQ(modulusOf(key), (Bytes{0x05}));
    EXPECT_EQ(key.exponentLen, 0);

    // Called directly on something that is no SEQUENCE: nothing is set.
    Bytes point = {0x04, 0x01, 0x02};
    key = ParseRsaKey(point.data(), 0, 3);
    EXPECT_EQ(key.keyType, 0);
    EXPECT_EQ(key.modulusLen, 0);
}

TEST(ParseRsaKey, CutAtEveryByteReadsOnlyCompleteNumbers)
{
    PKeyPtr pkey(EVP_RSA_gen(1024), &EVP_PKEY_free);
    ASSERT_TRUE(pkey);
    const Bytes der = rsaPublicKeyDer(pkey.get());
    const Bytes modulus = bnBytes(bnParam(pkey.get(), OSSL_PKEY_PARAM_RSA_N).get());
    // 30 81 89 | 02 81 81 00 <128 bytes> | 02 03 01 00 01
    ASSERT_EQ(der.size(), 140u);
    const size_t modulusEnd = 3 + 3 + 129;
    for (size_t len = 0; len <= der.size(); ++len) {
        ParsedPublicKey key = parseExact(der, len);
        EXPECT_EQ(key.keyType, len == 0 ? 1 : 0) << "cut at " << len;
        EXPECT_EQ(modulusOf(key), len >= modulusEnd ? modulus : Bytes{}) << "cut at " << len;
        EXPECT_EQ(key.exponentLen, len == der.size() ? 3 : 0) << "cut at " << len;
    }
}

TEST(ParseRsaKey, NumbersTooLargeForTheirArraysAreNotRead)
{
    Bytes hugeModulus = tlv(0x30, cat({tlv(0x02, Bytes(513, 0x7F)), Bytes{0x02, 0x01, 0x03}}));
    ParsedPublicKey key = parseExact(hugeModulus, hugeModulus.size());
    EXPECT_EQ(key.keyType, 0);
    EXPECT_EQ(key.modulusLen, 0);
    EXPECT_EQ(key.exponentLen, 0);

    Bytes hugeExponent = tlv(0x30, cat({Bytes{0x02, 0x01, 0x05}, tlv(0x02, Bytes(257, 0x01))}));
    key = parseExact(hugeExponent, hugeExponent.size());
    EXPECT_EQ(modulusOf(key), (Bytes{0x05}));
    EXPECT_EQ(key.exponentLen, 0);

    // Zero octets in front do not count against the array size.
    Bytes paddedExponent = tlv(0x30, cat({Bytes{0x02, 0x01, 0x05}, tlv(0x02, cat({Bytes(300, 0x00), Bytes{0x01, 0x01}}))}));
    key = parseExact(paddedExponent, paddedExponent.size());
    EXPECT_EQ(exponentOf(key), (Bytes{0x01, 0x01}));

    Bytes lengthPastEnd = {0x30, 0x82, 0xFF, 0xFF, 0x02, 0x82, 0x01, 0x00, 0x01};
    key = parseExact(lengthPastEnd, lengthPastEnd.size());
    EXPECT_EQ(key.modulusLen, 0);
}

TEST(ParseEccKey, ReadsPointsMadeByOpenSsl)
{
    struct Curve {
        const char* name;
        size_t pointLen;
        int coordinateLen;
        const char* reportedCurve;
    };
    // Sizes other than P-192 and P-256 are reported with the P-256 name.
    const Curve curves[] = {
        {"P-192", 49, 24, "1.2.840.10045.3.1.1"},
        {"P-256", 65, 32, "1.2.840.10045.3.1.7"},
        {"P-384", 97, 48, "1.2.840.10045.3.1.7"},
        {"P-521", 133, 66, "1.2.840.10045.3.1.7"},
    };
    for (const Curve& curve : curves) {
        PKeyPtr pkey(EVP_EC_gen(curve.name), &EVP_PKEY_free);
        ASSERT_TRUE(pkey) << curve.name;
        Bytes point = ecPoint(pkey.get());
        ASSERT_EQ(point.size(), curve.pointLen) << curve.name;
        ParsedPublicKey key = parseExact(point, point.size());
        EXPECT_EQ(key.keyType, 1) << curve.name;
        EXPECT_EQ(key.coordinateLen, curve.coordinateLen) << curve.name;
        EXPECT_EQ(key.curve, curve.reportedCurve) << curve.name;
        EXPECT_EQ(text(key.x), bnDecimal(bnParam(pkey.get(), OSSL_PKEY_PARAM_EC_PUB_X).get())) << curve.name;
        EXPECT_EQ(text(key.y), bnDecimal(bnParam(pkey.get(), OSSL_PKEY_PARAM_EC_PUB_Y).get())) << curve.name;
        EXPECT_EQ(key.modulusLen, 0);
    }
}

TEST(ParseEccKey, FormatByteIsNotChecked)
{
    Bytes point(65, 0x00);
    point[0] = 0x07;
    point[32] = 0x01;   // x = 1
    point[64] = 0x0A;   // y = 10
    ParsedPublicKey key = parseExact(point, point.size());
    EXPECT_EQ(key.keyType, 1);
    EXPECT_EQ(text(key.x), "1");
    EXPECT_EQ(text(key.y), "10");
}

TEST(ParseEccKey, OddSizesAndEmptyInput)
{
    Bytes point = {0x04, 0x01, 0x02, 0x03, 0xFF};  // five bytes: coordinates of two
    ParsedPublicKey key = parseExact(point, point.size());
    EXPECT_EQ(key.coordinateLen, 2);
    EXPECT_EQ(text(key.x), "258");
    EXPECT_EQ(text(key.y), "1023");

    key = parseExact(point, 0);
    EXPECT_EQ(key.keyType, 1);
    EXPECT_EQ(key.coordinateLen, 0);
    EXPECT_EQ(text(key.x), "");

    key = ParseKey(point.data(), 0, -5);
    EXPECT_EQ(key.keyType, 1);
    EXPECT_EQ(text(key.x), "");
}

TEST(ParseEccKey, RefusesCoordinatesThatAreTooLong)
{
    dertest::LogCapture log;
    Bytes tooLong(1 + 2 * 129, 0xFF);
    tooLong[0] = 0x04;
    ParsedPublicKey key = parseExact(tooLong, tooLong.size());
    EXPECT_EQ(key.coordinateLen, 129);
    EXPECT_EQ(text(key.x), "");
    EXPECT_EQ(text(key.y), "");
    EXPECT_EQ(log.errors().size(), 1u);

    // 108 bytes of FF have 261 decimal digits: more than the digit field holds.
    Bytes wide(1 + 2 * 108, 0xFF);
    key = parseExact(wide, wide.size());
    EXPECT_EQ(key.coordinateLen, 108);
    EXPECT_EQ(text(key.x), "");
    EXPECT_EQ(log.errors().size(), 2u);

    // The same size with small values fits.
    Bytes small(1 + 2 * 108, 0x00);
    small[108] = 0x2A;
    key = parseExact(small, small.size());
    EXPECT_EQ(text(key.x), "42");
    EXPECT_EQ(text(key.y), "0");
}
