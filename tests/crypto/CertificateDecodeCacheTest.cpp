// The process-wide memo of certificate decodes behind slCertificate's
// LoadFromBuffer: shared parses of equal bytes, no mixing of different bytes,
// least-recently-used eviction and use from two threads.
#include "CryptoTestSupport.h"

#include "base/base64.h"
#include "crypto/slCertificateDecodeCache.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <atomic>

using namespace Korvex;
using namespace CryptoTest;

namespace {

// A self-signed certificate with its own serial and common name; the key is
// shared, so every certificate has the same length and layout and differs
// from the others only in a few bytes.
Bytes MakeCertificate(EVP_PKEY* key, long serial)
{
    std::unique_ptr<X509, decltype(&X509_free)> cert(X509_new(), X509_free);
    const std::string name = "Holder " + std::to_string(100 + serial);
    X509_NAME* subject = X509_get_subject_name(cert.get());
    if (X509_set_version(cert.get(), 2) != 1 ||
        ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial) != 1 ||
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0) != 1 ||
        X509_set_issuer_name(cert.get(), subject) != 1 || !X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) ||
        !X509_gmtime_adj(X509_getm_notAfter(cert.get()), 3600) || X509_set_pubkey(cert.get(), key) != 1 ||
        X509_sign(cert.get(), key, EVP_sha256()) <= 0)
        return {};
    Bytes der(static_cast<size_t>(i2d_X509(cert.get(), nullptr)));
    unsigned char* cursor = der.data();
    i2d_X509(cert.get(), &cursor);
    return der;
}

class CertificateDecodeCache : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
        ASSERT_TRUE(key);
        for (long serial = 1; serial <= static_cast<long>(kCertificateDecodeCacheEntries) + 3; ++serial) {
            s_made.push_back(MakeCertificate(key.get(), serial));
            ASSERT_FALSE(s_made.back().empty());
        }
    }
    static void TearDownTestSuite() { s_made.clear(); }

    void SetUp() override { ClearCertificateDecodeCache(); }
    void TearDown() override { ClearCertificateDecodeCache(); }

    static std::string Name(size_t index) { return "Holder " + std::to_string(101 + index); }

    static std::vector<Bytes> s_made;
};

std::vector<Bytes> CertificateDecodeCache::s_made;

TEST_F(CertificateDecodeCache, SameBytesShareOneParseButObjectsKeepTheirIdentity)
{
    const Bytes der = ReadBytes(FixturePath("ee-rsa.der"));
    slCertificate kept;
    {
        slCertificate first, second, fromB64;
        ASSERT_TRUE(first.LoadFromBuffer(der) && second.LoadFromBuffer(der.data(), der.size()));
        ASSERT_TRUE(fromB64.LoadFromB64(b64Encode(der)));  // plain base64 reaches the same memo
        EXPECT_EQ(first.GetX509(), second.GetX509());
        EXPECT_EQ(first.GetX509(), fromB64.GetX509());
        EXPECT_FALSE(first == second);
        ASSERT_TRUE(kept.LoadFromBuffer(der));
        EXPECT_EQ(kept.GetX509(), first.GetX509());
    }
    // The other holders and the memo let go; the one left still works.
    ClearCertificateDecodeCache();
    EXPECT_EQ(kept.ToBin(), der);
    EXPECT_EQ(kept.GetSubjectCN(), "Holder Mustermann");

    slCertificate afresh;
    ASSERT_TRUE(afresh.LoadFromBuffer(der));
    EXPECT_NE(afresh.GetX509(), kept.GetX509());
}

TEST_F(CertificateDecodeCache, DifferentBytesNeverMix)
{
    // Same length, same layout, a few differing bytes.
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t i = 0; i < s_made.size(); ++i) {
            slCertificate cert;
            ASSERT_TRUE(cert.LoadFromBuffer(s_made[i]));
            EXPECT_EQ(cert.ToBin(), s_made[i]) << i;
            EXPECT_EQ(cert.GetSubjectCN(), Name(i));
            EXPECT_EQ(cert.GetSerialNumberInt(), static_cast<long>(i + 1));
        }
    }

    // Only the last byte of the signature differs: a different certificate.
    const Bytes der = ReadBytes(FixturePath("ee-ec.der"));
    Bytes changed = der;
    changed.back() ^= 0x01;
    slCertificate original, other;
    ASSERT_TRUE(original.LoadFromBuffer(der) && other.LoadFromBuffer(changed));
    EXPECT_NE(original.GetX509(), other.GetX509());
    EXPECT_EQ(other.ToBin(), changed);
    slCertificate again;
    ASSERT_TRUE(again.LoadFromBuffer(der));
    EXPECT_EQ(again.ToBin(), der);
    EXPECT_EQ(again.GetX509(), original.GetX509());
}

TEST_F(CertificateDecodeCache, KeepsTheMostRecentlyUsed)
{
    const size_t capacity = kCertificateDecodeCacheEntries;
    std::vector<slCertificate> held(capacity + 1);
    for (size_t i = 0; i < capacity; ++i)
        ASSERT_TRUE(held[i].LoadFromBuffer(s_made[i]));
    slCertificate reused;  // the oldest becomes the most recent
    ASSERT_TRUE(reused.LoadFromBuffer(s_made[0]));
    EXPECT_EQ(reused.GetX509(), held[0].GetX509());
    ASSERT_TRUE(held[capacity].LoadFromBuffer(s_made[capacity]));  // one too many

    slCertificate first, second, newest;
    ASSERT_TRUE(first.LoadFromBuffer(s_made[0]) && newest.LoadFromBuffer(s_made[capacity]));
    EXPECT_EQ(first.GetX509(), held[0].GetX509());
    EXPECT_EQ(newest.GetX509(), held[capacity].GetX509());
    ASSERT_TRUE(second.LoadFromBuffer(s_made[1]));  // the least recently used went
    EXPECT_NE(second.GetX509(), held[1].GetX509());
    EXPECT_EQ(second.ToBin(), held[1].ToBin());
}

TEST_F(CertificateDecodeCache, OversizedInputIsNotRemembered)
{
    // A certificate followed by much trailing data still loads (one object
    // is read), but so large an input is parsed every time.
    Bytes large = s_made[0];
    large.resize(large.size() + 100 * 1024, 0xAB);
    slCertificate a, b;
    ASSERT_TRUE(a.LoadFromBuffer(large) && b.LoadFromBuffer(large));
    EXPECT_NE(a.GetX509(), b.GetX509());
    EXPECT_EQ(a.ToBin(), s_made[0]);
}

TEST_F(CertificateDecodeCache, TwoThreadsLoadTheSameAndDifferentBytes)
{
    std::atomic<int> wrong{0};
    auto work = [&](unsigned seed) {
        for (int round = 0; round < 150; ++round) {
            seed = seed * 1103515245u + 12345u;
            // Mostly a few common certificates (shared parses), sometimes
            // rarer ones that push others out.
            const size_t index = (seed >> 16) % 4 == 0 ? (seed >> 8) % s_made.size() : (seed >> 8) % 3;
            slCertificate cert;
            if (!cert.LoadFromBuffer(s_made[index]) || cert.ToBin() != s_made[index] ||
                cert.GetSubjectCN() != Name(index))
                ++wrong;
            slCertificate copy(cert);
            if (copy.GetSubjectCN() != Name(index))
                ++wrong;
        }
    };
    std::thread refresh(work, 7u), gui(work, 11u);
    refresh.join();
    gui.join();
    EXPECT_EQ(wrong.load(), 0);
}

} // namespace
