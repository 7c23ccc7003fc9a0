// The process-wide memo of certificate decodes behind slCertificate's
// LoadFromBuffer: two threads loading equal and different bytes, each always
// getting its own certificate.
#include "CryptoTestSupport.h"

#include "base/base64.h"
#include "crypto/slCertificateDecodeCache.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <atomic>
#include <memory>
#include <thread>

using namespace Korvex;
using namespace CryptoTest;

namespace {

struct PkeyDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

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
        std::unique_ptr<EVP_PKEY, PkeyDeleter> key(EVP_EC_gen("P-256"));
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
