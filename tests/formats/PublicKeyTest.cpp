// Public-key parsing against keys made by OpenSSL (RSAPublicKey DER and
// curve points of several sizes), a 4096-bit modulus whose INTEGER carries a
// zero octet, and broken input.
#include "tests/support/TestCommon.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "formats/PublicKey.h"
#include "tests/formats/DerBuilder.h"
#include "formats/Asn1Log.h"

using namespace Korvex;
using namespace dertest;

namespace {

using PKeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

using BnPtr = std::unique_ptr<BIGNUM, decltype(&BN_free)>;

BnPtr param(EVP_PKEY* key, const char* name)
{
    BIGNUM* bn = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(key, name, &bn), 1) << name;
    return BnPtr(bn, &BN_free);
}

Bytes paramBytes(EVP_PKEY* key, const char* name)
{
    BnPtr bn = param(key, name);
    Bytes out(static_cast<std::size_t>(BN_num_bytes(bn.get())));
    BN_bn2bin(bn.get(), out.data());
    return out;
}

std::string paramDecimal(EVP_PKEY* key, const char* name)
{
    char* text = BN_bn2dec(param(key, name).get());
    std::string out(text);
    OPENSSL_free(text);
    return out;
}

Bytes rsaPublicKeyDer(EVP_PKEY* key)
{
    unsigned char* der = nullptr;
    const int len = i2d_PublicKey(key, &der);
    Bytes out(der, der + std::max(len, 0));
    OPENSSL_free(der);
    return out;
}

ParsedPublicKey parseExact(const Bytes& bytes, std::size_t len)
{
    return ParseKey(exactCopy(bytes, len).get(), 0, static_cast<int>(len));
}
ParsedPublicKey parseExact(const Bytes& bytes) { return parseExact(bytes, bytes.size()); }

Bytes modulus(const ParsedPublicKey& k) { return Bytes(k.modulus, k.modulus + k.modulusLen); }
Bytes exponent(const ParsedPublicKey& k) { return Bytes(k.exponent, k.exponent + k.exponentLen); }
std::string text(const unsigned char* digits) { return reinterpret_cast<const char*>(digits); }

} // namespace

// A key made by OpenSSL: ParseRsaKey.CutAtEveryByteReadsOnlyCompleteNumbers.
TEST(ParseRsaKey, TheLargestModulusFillsItsArray)
{
    // 4096 bits: the 513-byte INTEGER, zero octet first, fills the 512-byte array.
    const Bytes n = pattern(512, 0x81);
    const Bytes exponent3 = {0x02, 0x03, 0x01, 0x00, 0x01};
    ParsedPublicKey key = parseExact(tlv(0x30, cat({tlv(0x02, cat({Bytes{0x00}, n})), exponent3})));
    EXPECT_EQ(modulus(key), n);
    EXPECT_EQ(exponent(key), (Bytes{0x01, 0x00, 0x01}));
}

TEST(ParseRsaKey, StopsAtElementsThatAreNoIntegerOrDoNotFit)
{
    struct Case { Bytes der; Bytes modulus; Bytes exponent; };
    const Case cases[] = {
        {{0x30, 0x05, 0x04, 0x03, 0x01, 0x02, 0x03}, {}, {}},
        {{0x30, 0x06, 0x02, 0x01, 0x05, 0x04, 0x01, 0x03}, {0x05}, {}},
        {tlv(0x30, cat({tlv(0x02, Bytes(513, 0x7F)), Bytes{0x02, 0x01, 0x03}})), {}, {}},
        {tlv(0x30, cat({Bytes{0x02, 0x01, 0x05}, tlv(0x02, Bytes(257, 0x01))})), {0x05}, {}},
        {tlv(0x30, cat({Bytes{0x02, 0x01, 0x05}, tlv(0x02, cat({Bytes(300, 0x00), Bytes{0x01}}))})), {0x05}, {0x01}},
        {{0x30, 0x82, 0xFF, 0xFF, 0x02, 0x82, 0x01, 0x00, 0x01}, {}, {}},
    };
    for (const Case& c : cases) {
        ParsedPublicKey key = parseExact(c.der);
        EXPECT_EQ(key.keyType, 0);
        EXPECT_EQ(modulus(key), c.modulus);
        EXPECT_EQ(exponent(key), c.exponent);
    }
    Bytes point = {0x04, 0x01, 0x02};
    EXPECT_EQ(ParseRsaKey(point.data(), 0, 3).modulusLen, 0);
}

TEST(ParseRsaKey, CutAtEveryByteReadsOnlyCompleteNumbers)
{
    PKeyPtr pkey(EVP_RSA_gen(1024), &EVP_PKEY_free);
    ASSERT_TRUE(pkey);
    const Bytes der = rsaPublicKeyDer(pkey.get());
    ASSERT_EQ(der.size(), 140u);  // 30 81 89 | 02 81 81 00 <128> | 02 03 01 00 01
    const Bytes n = paramBytes(pkey.get(), OSSL_PKEY_PARAM_RSA_N);
    for (std::size_t len = 0; len <= der.size(); ++len) {
        ParsedPublicKey key = parseExact(der, len);
        EXPECT_EQ(key.keyType, len == 0 ? 1 : 0) << len;  // nothing to look at: treated as a point
        EXPECT_EQ(modulus(key), len >= 135 ? n : Bytes{}) << len;
        EXPECT_EQ(key.exponentLen, len == der.size() ? 3 : 0) << len;
    }
}

TEST(ParseEccKey, PointsMadeByOpenSsl)
{
    struct Curve { const char* name; std::size_t pointLen; int coordinateLen; const char* reported; };
    // Sizes other than P-192 and P-256 are reported with the P-256 name.
    const Curve curves[] = {{"P-192", 49, 24, "1.2.840.10045.3.1.1"}, {"P-256", 65, 32, "1.2.840.10045.3.1.7"},
                            {"P-384", 97, 48, "1.2.840.10045.3.1.7"}, {"P-521", 133, 66, "1.2.840.10045.3.1.7"}};
    for (const Curve& curve : curves) {
        PKeyPtr pkey(EVP_EC_gen(curve.name), &EVP_PKEY_free);
        ASSERT_TRUE(pkey) << curve.name;
        unsigned char point[256];
        std::size_t len = 0;
        ASSERT_EQ(EVP_PKEY_get_octet_string_param(pkey.get(), OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, point, sizeof point, &len), 1);
        ASSERT_EQ(len, curve.pointLen);
        ParsedPublicKey key = parseExact(Bytes(point, point + len));
        EXPECT_EQ(key.keyType, 1);
        EXPECT_EQ(key.coordinateLen, curve.coordinateLen);
        EXPECT_EQ(key.curve, curve.reported);
        EXPECT_EQ(text(key.x), paramDecimal(pkey.get(), OSSL_PKEY_PARAM_EC_PUB_X)) << curve.name;
        EXPECT_EQ(text(key.y), paramDecimal(pkey.get(), OSSL_PKEY_PARAM_EC_PUB_Y)) << curve.name;
    }
}

TEST(ParseEccKey, OddSizesUncheckedFormatByteAndEmptyInput)
{
    Bytes point = {0x07, 0x01, 0x02, 0x03, 0xFF};  // five bytes: two per coordinate
    ParsedPublicKey key = parseExact(point);
    EXPECT_EQ(key.coordinateLen, 2);
    EXPECT_EQ(text(key.x), "258");
    EXPECT_EQ(text(key.y), "1023");
    for (int len : {0, -5}) {
        key = ParseKey(point.data(), 0, len);
        EXPECT_EQ(key.keyType, 1);
        EXPECT_EQ(text(key.x), "");
    }
}

TEST(ParseEccKey, CoordinatesTooLongForTheirFields)
{
    TestSupport::LogCapture log(LibAsn1::acPKCS11_SetErrorLoggingFunc);
    Bytes tooLong(1 + 2 * 129, 0xFF);   // more than 128 bytes per coordinate
    Bytes wide(1 + 2 * 108, 0xFF);      // 261 digits: more than the field holds
    Bytes small(1 + 2 * 108, 0x00);     // same size, small values: fits
    small[108] = 0x2A;
    EXPECT_EQ(text(parseExact(tooLong).x), "");
    EXPECT_EQ(parseExact(tooLong).coordinateLen, 129);
    EXPECT_EQ(text(parseExact(wide).y), "");
    EXPECT_EQ(log.errors().size(), 3u);
    EXPECT_EQ(text(parseExact(small).x), "42");
    EXPECT_EQ(text(parseExact(small).y), "0");
}
