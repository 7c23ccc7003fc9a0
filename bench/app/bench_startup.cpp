// Start-up benchmark of the program against a bare toolkit frame: time from
// process start to the window being shown and to the filled card list (4 and
// 32 simulated cards), and the peak resident memory of each child process.
// Needs an X display (run under xvfb-run). Prints figures; asserts nothing.
//
//   bench_startup [runs]        (default 7 runs per case, median reported)
#include "BenchClock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

const std::string kBuild = KORVEX_BENCH_BINARY_DIR;

struct Run {
    bool ok = false;
    double shownMs = 0;
    double filledMs = 0;
    int rows = -1;
    long peakKb = 0;
};

long long Field(const std::string& text, const std::string& name)
{
    const size_t at = text.find(name + "=");
    return at == std::string::npos ? -1 : std::atoll(text.c_str() + at + name.size() + 1);
}

// Starts `program` with the extra environment, reads its timing lines.
Run RunOnce(const std::string& program, const std::map<std::string, std::string>& extra)
{
    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (extra.count(text.substr(0, text.find('='))) == 0)
            env.push_back(text);
    }
    for (const auto& entry : extra)
        env.push_back(entry.first + "=" + entry.second);
    std::vector<char*> envp;
    for (std::string& entry : env)
        envp.push_back(&entry[0]);
    envp.push_back(nullptr);

    int pipeFds[2];
    if (pipe(pipeFds) != 0)
        return Run();
    const long long start = MonotonicNanoseconds();
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(pipeFds[1], 2);
        close(pipeFds[0]);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        char* argv[] = {const_cast<char*>(program.c_str()), nullptr};
        execve(program.c_str(), argv, envp.data());
        _exit(127);
    }
    close(pipeFds[1]);
    std::string output;
    char buffer[4096];
    for (ssize_t n; (n = read(pipeFds[0], buffer, sizeof(buffer))) > 0;)
        output.append(buffer, static_cast<size_t>(n));
    close(pipeFds[0]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);

    Run run;
    const long long shown = Field(output, "shown_ns");
    const long long filled = Field(output, "filled_ns");
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && shown > 0;
    run.shownMs = (shown - start) / 1e6;
    run.filledMs = filled > 0 ? (filled - start) / 1e6 : 0;
    run.rows = static_cast<int>(Field(output, "rows"));
    run.peakKb = usage.ru_maxrss;
    if (!run.ok)
        std::fprintf(stderr, "run of %s failed (status %d): %s\n", program.c_str(), status, output.c_str());
    return run;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

struct Summary {
    double shownMs, filledMs, peakMb;
    int rows;
    size_t runs;
};

struct Case {
    Case(const char* caseLabel, std::string caseProgram, std::map<std::string, std::string> caseEnv)
        : label(caseLabel), program(std::move(caseProgram)), env(std::move(caseEnv))
    {
    }

    const char* label;
    std::string program;
    std::map<std::string, std::string> env;
    std::vector<double> shown, filled, peak;
    int rows = -1;

    void Add(const Run& run)
    {
        if (!run.ok)
            return;
        shown.push_back(run.shownMs);
        filled.push_back(run.filledMs);
        peak.push_back(run.peakKb / 1024.0);
        rows = run.rows;
    }
    Summary Report() const
    {
        const Summary summary{Median(shown), Median(filled), Median(peak), rows, shown.size()};
        std::printf("%-22s shown %7.1f ms   list filled %7.1f ms   rows %3d   peak RSS %6.1f MB   (%zu runs)\n",
                    label, summary.shownMs, summary.filledMs, summary.rows, summary.peakMb, summary.runs);
        return summary;
    }
};

std::string MakeScratch()
{
    char pattern[] = "/tmp/bench-startup-XXXXXX";
    const char* dir = mkdtemp(pattern);
    return dir != nullptr ? dir : "/tmp";
}

} // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    if (std::getenv("DISPLAY") == nullptr) {
        std::fprintf(stderr, "needs an X display: xvfb-run -a %s\n", argv[0]);
        return 1;
    }
    const std::string scratch = MakeScratch();
    const std::string cardSet4 = scratch + "/cards4.xml", cardSet32 = scratch + "/cards32.xml";
    const std::string tool = kBuild + "/sim/vessa-sim";
    if (std::system((tool + " cardset 4 > " + cardSet4 + " && " + tool + " cardset 32 > " + cardSet32).c_str()) != 0) {
        std::fprintf(stderr, "cannot write the card sets with %s\n", tool.c_str());
        return 1;
    }

    std::map<std::string, std::string> env = {
        {"HOME", scratch},
        {"KORVEX_ALLUSERS_DIR", scratch + "/etc/"},
        {"TMPDIR", scratch + "/"},
        {"VESSA_SIM_STATE_DIR", scratch + "/state"},
        {"VESSA_SIM_KEY_DIR", scratch + "/keys"},
        {"LD_LIBRARY_PATH", kBuild + "/sim"},
        {"VESSACARDS_EXIT_AFTER_REFRESH", "1"},
    };
    std::vector<Case> cases;
    cases.emplace_back("bare frame + list", kBuild + "/bench/app/bench_bare_frame", env);
    cases.emplace_back("VessaCards, 4 cards", kBuild + "/program/VessaCards", env);
    cases.back().env["VESSA_SIM_CARDS"] = cardSet4;
    cases.emplace_back("VessaCards, 32 cards", kBuild + "/program/VessaCards", env);
    cases.back().env["VESSA_SIM_CARDS"] = cardSet32;
    // Warm-up (disk cache, the simulator's keys), then the cases in turn so
    // that a change in machine load hits all of them alike.
    for (Case& c : cases)
        RunOnce(c.program, c.env);
    for (int i = 0; i < runs; ++i) {
        for (Case& c : cases)
            c.Add(RunOnce(c.program, c.env));
    }
    std::printf("start-up, median of %d runs (times from fork to the event)\n", runs);
    const Summary bare = cases[0].Report();
    const Summary four = cases[1].Report();
    const Summary many = cases[2].Report();

    std::printf("\nratios against the bare frame (targets: shown <= 1.2, filled with 4 cards <= 1.5, peak memory <= 1.3)\n");
    std::printf("window shown      %.2f\n", four.shownMs / bare.shownMs);
    std::printf("list filled, 4    %.2f\n", four.filledMs / bare.shownMs);
    std::printf("list filled, 32   %.2f\n", many.filledMs / bare.shownMs);
    std::printf("peak memory, 4    %.2f\n", four.peakMb / bare.peakMb);
    std::printf("peak memory, 32   %.2f\n", many.peakMb / bare.peakMb);
    std::system(("rm -rf '" + scratch + "'").c_str());
    return 0;
}
