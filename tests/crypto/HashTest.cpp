// Digests of every HashAlgorithm against published vectors with and without
// their DigestInfo headers, and the LibCrypto log hooks.
#include "crypto/Hash.h"
#include "crypto/LibCrypto.h"
#include "CryptoTestSupport.h"

#include <openssl/objects.h>
#include <openssl/x509.h>

using namespace Korvex;
using namespace CryptoTest;

namespace {

struct Vector {
    HashAlgorithm alg;
    int nid;
    const char* abc;
};

const Vector kVectors[] = {
    {HashSha1, NID_sha1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {HashRipemd160, NID_ripemd160, "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc"},
    {HashSha224, NID_sha224, "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"},
    {HashSha256, NID_sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {HashSha512, NID_sha512,
     "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
     "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
    {HashMd5, NID_md5, "900150983cd24fb0d6963f7d28e17f72"},
    {HashMd4, NID_md4, "a448017aaf21d8525fc10ae87aa6729d"},
    {HashSha384, NID_sha384,
     "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
};

const Bytes kAbc = {'a', 'b', 'c'};

// Every test sees the error hook and the message hook of the unit.
class HashTest : public ::testing::Test {
    LogCapture m_log{LibCrypto::acPKCS11_SetErrorLoggingFunc, LibCrypto::acPKCS11_SetMessageLoggingFunc};
};

} // namespace

TEST_F(HashTest, DigestInfoHeadersParseAsDigestInfoOfTheirAlgorithm)
{
    for (const Vector& v : kVectors) {
        SCOPED_TRACE(v.alg);
        Bytes out;
        ASSERT_TRUE(Hash(kAbc, out, v.alg, true));
        const Bytes digest = FromHex(v.abc);
        if (v.alg == HashSha224 || v.alg == HashMd5 || v.alg == HashMd4) {
            EXPECT_EQ(out, digest); // no header for these, still a success
            continue;
        }
        ASSERT_EQ(out.size(), digest.size() + (digest.size() == 20 ? 15u : 19u));
        const unsigned char* cursor = out.data();
        X509_SIG* info = d2i_X509_SIG(nullptr, &cursor, static_cast<long>(out.size()));
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(cursor, out.data() + out.size());
        const X509_ALGOR* algor = nullptr;
        const ASN1_OCTET_STRING* value = nullptr;
        X509_SIG_get0(info, &algor, &value);
        const ASN1_OBJECT* oid = nullptr;
        X509_ALGOR_get0(&oid, nullptr, nullptr, algor);
        EXPECT_EQ(OBJ_obj2nid(oid), v.nid);
        EXPECT_EQ(Bytes(ASN1_STRING_get0_data(value), ASN1_STRING_get0_data(value) + digest.size()),
                  digest);
        X509_SIG_free(info);
    }
}

TEST_F(HashTest, VectorFormAppendsDigestButPutsHeaderInFront)
{
    Bytes out = {0xAA, 0xBB};
    ASSERT_TRUE(Hash(kAbc, out, HashSha256, true));
    Bytes expected(Sha256Pkcs01DigestInfo, Sha256Pkcs01DigestInfo + Sha256Pkcs01DigestInfoLen);
    expected.insert(expected.end(), {0xAA, 0xBB});
    const Bytes digest = FromHex(kVectors[3].abc);
    expected.insert(expected.end(), digest.begin(), digest.end());
    EXPECT_EQ(out, expected);

    // An empty vector counts as no data, whatever its capacity.
    Bytes empty;
    empty.reserve(16);
    EXPECT_FALSE(Hash(empty, out, HashSha1, false));
    EXPECT_EQ(out, expected);
    EXPECT_EQ(LogCapture::all(), std::vector<std::string>{"PKCS11 input == NULL"});
}

TEST_F(HashTest, LogFormsJoinTextsAndPrintNumbersAsSignedInt)
{
    LibCrypto::LogError("code", 0xFFFFFFFFul);
    LibCrypto::LogMessage("count", 42ul);
    LibCrypto::LogError("a", std::string("b"));
    LibCrypto::acPKCS11_SetErrorLoggingFunc(nullptr);
    LibCrypto::LogError("dropped");
    EXPECT_EQ(LogCapture::all(), (std::vector<std::string>{"code, -1", "count, 42", "ab"}));
}
