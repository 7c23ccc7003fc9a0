// The process-wide memo of recent certificate decodes: a small list, most
// recently used first, of DER bytes and the X509 they decoded to.
#include "crypto/slCertificateDecodeCache.h"

#include "crypto/OpenSslHandles.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <mutex>
#include <vector>

namespace Korvex {

namespace {

// Certificates on cards are a few kilobytes; a larger input is decoded as
// usual but not copied into the memo.
constexpr size_t kLargestRememberedInput = 64 * 1024;

X509* DecodeFresh(const unsigned char* data, size_t len)
{
    BioPtr bio(BIO_new_mem_buf(data, static_cast<int>(len)));
    if (!bio)
        return nullptr;
    X509* cert = d2i_X509_bio(bio.get(), nullptr);
    if (!cert)
        ERR_clear_error();
    return cert;
}

class DecodeCache {
public:
    DecodeCache()
    {
        // OpenSSL cleans up in an exit handler. Registering it before this
        // object is complete makes this object's destructor run first, so the
        // remembered certificates are freed while OpenSSL still works.
        OPENSSL_init_crypto(0, nullptr);
    }

    ~DecodeCache() { Clear(); }

    DecodeCache(const DecodeCache&) = delete;
    DecodeCache& operator=(const DecodeCache&) = delete;

    // A new reference to the decode of exactly these bytes, or null.
    X509* Find(const unsigned char* data, size_t len)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                  [&](const Entry& e) { return e.Holds(data, len); });
        if (found == m_entries.end())
            return nullptr;
        X509_up_ref(found->cert);
        std::rotate(m_entries.begin(), found, found + 1);
        return m_entries.front().cert;
    }

    // Keeps a reference of its own to cert as the decode of these bytes.
    void Remember(const unsigned char* data, size_t len, X509* cert)
    {
        X509* evicted = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            // The other thread may have decoded the same bytes meanwhile; its
            // entry serves as well as ours would.
            if (std::any_of(m_entries.begin(), m_entries.end(),
                            [&](const Entry& e) { return e.Holds(data, len); }))
                return;
            evicted = TakeOldestLocked(kCertificateDecodeCacheEntries - 1);
            X509_up_ref(cert);
            m_entries.insert(m_entries.begin(), Entry{std::vector<unsigned char>(data, data + len), cert});
        }
        X509_free(evicted);
    }

    // Lets go of the least recently used entry when the memo is full.
    void MakeRoom()
    {
        X509* evicted = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            evicted = TakeOldestLocked(kCertificateDecodeCacheEntries - 1);
        }
        X509_free(evicted);
    }

    void Clear()
    {
        std::vector<Entry> released;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            released.swap(m_entries);
        }
        for (Entry& entry : released)
            X509_free(entry.cert);
    }

private:
    struct Entry {
        std::vector<unsigned char> der;
        X509* cert;

        bool Holds(const unsigned char* data, size_t len) const
        {
            return der.size() == len && std::memcmp(der.data(), data, len) == 0;
        }
    };

    // The oldest entry's certificate, removed, when more than keep are held.
    X509* TakeOldestLocked(size_t keep)
    {
        if (m_entries.size() <= keep)
            return nullptr;
        X509* oldest = m_entries.back().cert;
        m_entries.pop_back();
        return oldest;
    }

    std::mutex m_mutex;
    std::vector<Entry> m_entries;  // most recently used first
};

DecodeCache& Cache()
{
    static DecodeCache cache;
    return cache;
}

} // namespace

X509* DecodeCertificateDer(const unsigned char* data, size_t len)
{
    if (!data || len > static_cast<size_t>(INT_MAX))
        return nullptr;
    DecodeCache& cache = Cache();
    if (X509* known = cache.Find(data, len))
        return known;
    if (len > kLargestRememberedInput)
        return DecodeFresh(data, len);
    // The oldest certificate goes before the parse rather than after it, so
    // the parse reuses the memory just freed, as a plain parse-and-free
    // would, instead of taking fresh heap. The parse itself runs outside the
    // lock: it takes long, and the two threads seldom parse the same bytes
    // at the same moment.
    cache.MakeRoom();
    X509* cert = DecodeFresh(data, len);
    if (cert)
        cache.Remember(data, len, cert);
    return cert;
}

void ClearCertificateDecodeCache()
{
    Cache().Clear();
}

} // namespace Korvex
