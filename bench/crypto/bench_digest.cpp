// Digest throughput of Hash and HashFile against the openssl command on the
// same 64 MiB file, best of three runs each. Prints figures only.
#include "crypto/Hash.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

using namespace Korvex;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t kFileSize = 64u << 20;
constexpr int kRuns = 3;

struct Algorithm {
    const char* label;
    HashAlgorithm alg;
    const char* opensslOption;
};

template <typename F>
double BestSeconds(F run)
{
    double best = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = Clock::now();
        if (!run())
            return -1;
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        best = std::min(best, seconds);
    }
    return best;
}

double MegabytesPerSecond(double seconds)
{
    return seconds > 0 ? kFileSize / 1e6 / seconds : 0;
}

} // namespace

int main()
{
    const char* tmp = std::getenv("TMPDIR");
    std::string dirTemplate = std::string(tmp && *tmp ? tmp : "/tmp") + "/bench_digest.XXXXXX";
    if (!mkdtemp(dirTemplate.data())) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string path = dirTemplate + "/data.bin";

    std::vector<unsigned char> data(kFileSize);
    unsigned long long state = 0x9E3779B97F4A7C15ull;
    for (unsigned char& byte : data) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        byte = static_cast<unsigned char>(state >> 56);
    }
    FILE* out = std::fopen(path.c_str(), "wb");
    if (!out || std::fwrite(data.data(), 1, data.size(), out) != data.size()) {
        std::perror("write test file");
        return 1;
    }
    std::fclose(out);

    const Algorithm algorithms[] = {
        {"SHA-1", HashSha1, "-sha1"},
        {"SHA-256", HashSha256, "-sha256"},
        {"RIPEMD-160", HashRipemd160, "-ripemd160"},
    };

    std::printf("64 MiB file, best of %d runs, MB = 10^6 bytes\n", kRuns);
    std::printf("%-11s %12s %14s %18s %12s %16s\n", "digest", "Hash MB/s", "HashFile MB/s",
                "openssl dgst MB/s", "Hash/openssl", "HashFile/openssl");
    for (const Algorithm& a : algorithms) {
        unsigned char digest[64];
        const double hashSeconds = BestSeconds([&] {
            unsigned long len = sizeof(digest);
            return Hash(data.data(), data.size(), digest, len, a.alg);
        });
        const double fileSeconds = BestSeconds([&] {
            FILE* f = std::fopen(path.c_str(), "rb");
            unsigned long len = sizeof(digest);
            const bool ok = f && HashFile(f, digest, len, a.alg);
            if (f)
                std::fclose(f);
            return ok;
        });
        const std::string command = std::string("openssl dgst ") + a.opensslOption + " '" + path + "'";
        const double opensslSeconds = BestSeconds([&] {
            FILE* pipe = popen(command.c_str(), "r");
            if (!pipe)
                return false;
            char line[512];
            bool gotDigest = false;
            while (std::fgets(line, sizeof(line), pipe))
                gotDigest = true;
            return pclose(pipe) == 0 && gotDigest;
        });
        const double hashRate = MegabytesPerSecond(hashSeconds);
        const double fileRate = MegabytesPerSecond(fileSeconds);
        const double opensslRate = MegabytesPerSecond(opensslSeconds);
        std::printf("%-11s %12.1f %14.1f %18.1f %11.2fx %15.2fx\n", a.label, hashRate, fileRate,
                    opensslRate, opensslRate > 0 ? hashRate / opensslRate : 0,
                    opensslRate > 0 ? fileRate / opensslRate : 0);
    }

    std::remove(path.c_str());
    rmdir(dirTemplate.c_str());
    return 0;
}
