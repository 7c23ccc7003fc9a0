// Prints how fast the logger writes with thread ids and rotation, and how long
// one configuration write (tree update plus atomic file replace) takes.
// Works in a scratch directory below $TMPDIR that is removed afterwards.
#include "base/Config.h"
#include "base/FileAndDirectory.h"
#include "base/Logging.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using namespace Korvex;
using Clock = std::chrono::steady_clock;

namespace {

double Seconds(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string MakeScratchDir()
{
    std::string pattern = CombinePaths(GetTempDir(), "korvex-bench-XXXXXX");
    if (!mkdtemp(&pattern[0]))
        return std::string();
    return pattern;
}

void BenchLogging(const std::string& dir, int threads, int totalLines)
{
    const std::string sub = CombinePaths(dir, "log" + std::to_string(threads));
    CreateDirectories(sub);
    LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
    logger->Init(CombinePaths(sub, "bench"), 10000, true);
    logger->Enabled(true);
    logger->LogThreadId(true);

    const int perThread = totalLines / threads;
    const std::string text = "card refresh: slot 3 token present, reading certificate";
    const Clock::time_point start = Clock::now();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([logger, perThread, &text] {
            for (int i = 0; i < perThread; ++i)
                logger->LogMessage(text);
        });
    for (std::thread& w : workers)
        w.join();
    const double elapsed = Seconds(start);
    logger->Destroy();

    std::vector<std::string> files;
    ListAllFilesInDirectory(sub, files);
    std::printf("log: %d lines from %d thread(s), rotation at 10000: %.3f s, %.0f lines/s, %zu files\n",
                perThread * threads, threads, elapsed, perThread * threads / elapsed, files.size());
}

void BenchConfig(const std::string& dir)
{
    setenv("KORVEX_ALLUSERS_DIR", CombinePaths(dir, "etc").c_str(), 1);
    setenv("HOME", CombinePaths(dir, "home").c_str(), 1);
    CreateDirectories(CombinePaths(dir, "etc"));
    CreateDirectories(CombinePaths(dir, "home"));

    Config* store = Config::GetHandle(Config::Register());
    store->Init("benchclient");
    const int entries = 60;
    for (int i = 0; i < entries; ++i) {
        const std::string group = (i < 30) ? "vessa Client\\Trace" : "VessaMiniDriver";
        store->AddConfig(static_cast<unsigned>(i), CONFIG_ALL_USERS, "Value" + std::to_string(i), group, SYS_64);
        store->SetString(static_cast<unsigned>(i), "initial value " + std::to_string(i));
    }

    const int rounds = 300;
    const Clock::time_point start = Clock::now();
    int failures = 0;
    for (int i = 0; i < rounds; ++i) {
        if (!store->SetInteger(static_cast<unsigned>(i % entries), i))
            ++failures;
    }
    const double elapsed = Seconds(start);
    std::printf("config: %d SetInteger on a %d-entry file: mean %.1f us per write (write + fsync + rename)%s\n",
                rounds, entries, elapsed / rounds * 1e6, failures ? " (some writes failed)" : "");
    store->Destroy();
}

} // namespace

int main()
{
    const std::string dir = MakeScratchDir();
    if (dir.empty()) {
        std::fprintf(stderr, "cannot create a scratch directory\n");
        return 1;
    }
    BenchLogging(dir, 1, 200000);
    BenchLogging(dir, 2, 200000);
    BenchConfig(dir);

    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return 0;
}
