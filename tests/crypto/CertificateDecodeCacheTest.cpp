// The process-wide memo of certificate decodes behind slCertificate's
// LoadFromBuffer: least-recently-used eviction, oversized input, and two
// threads loading equal and different bytes, which must never mix.
#include "CryptoTestSupport.h"

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
