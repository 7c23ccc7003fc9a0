// Start-up benchmark of the program against a bare toolkit frame, measured
// from outside the process: from fork to the X server's map event of the
// program's first top-level window (its frame: "shown"), and to the unmap of
// the next window it mapped, the wait dialog, which goes when the card list
// is filled ("filled"); 4 and 32 simulated cards. Also the peak resident
// memory of each child process. The cases alternate run by run. Needs an X
// display with no other client mapping windows (run under xvfb-run). Prints
// figures; asserts nothing.
//
//   bench_startup [runs]        (default 11 runs per case, median reported)
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

#include <X11/Xlib.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

const std::string kBuild = KORVEX_BENCH_BINARY_DIR;

struct Run {
    bool ok = false;
    double shownMs = 0;
    double filledMs = 0;
    double selfFilledMs = 0;  // the program's own report of the filled list
    double waitShownMs = 0;   // the wait dialog mapped
    int rows = -1;
    long peakKb = 0;
};

long long Field(const std::string& text, const std::string& name)
{
    const size_t at = text.find(name + "=");
    return at == std::string::npos ? -1 : std::atoll(text.c_str() + at + name.size() + 1);
}

// The X server's view of one child: when its first top-level window was
// mapped and when the next one it had mapped was unmapped again.
class MapWatch {
public:
    explicit MapWatch(Display* display) : m_display(display)
    {
        XSelectInput(m_display, DefaultRootWindow(m_display), SubstructureNotifyMask);
        XSync(m_display, True);  // earlier children's events are no news
    }
    // Takes every event the server has sent so far.
    void Drain()
    {
        while (XPending(m_display) > 0) {
            XEvent event;
            XNextEvent(m_display, &event);
            const long long now = MonotonicNanoseconds();
            if (event.type == MapNotify && !event.xmap.override_redirect) {
                if (m_frame == 0) {
                    m_frame = event.xmap.window;
                    shownNs = now;
                } else if (m_second == 0 && event.xmap.window != m_frame) {
                    m_second = event.xmap.window;
                    waitShownNs = now;
                }
            } else if (event.type == UnmapNotify && m_second != 0 && event.xunmap.window == m_second &&
                       filledNs == 0) {
                filledNs = now;
            }
        }
    }
    int Fd() const { return ConnectionNumber(m_display); }

    long long shownNs = 0;
    long long waitShownNs = 0;
    long long filledNs = 0;

private:
    Display* m_display;
    Window m_frame = 0;
    Window m_second = 0;
};

// Starts `program` with the extra environment and watches its windows.
Run RunOnce(Display* display, const std::string& program, const std::map<std::string, std::string>& extra)
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
    MapWatch watch(display);
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
    // The child's output and the server's events, as they come, until the
    // child closes its end.
    std::string output;
    char buffer[4096];
    for (bool open = true; open;) {
        watch.Drain();
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(pipeFds[0], &ready);
        FD_SET(watch.Fd(), &ready);
        if (select(std::max(pipeFds[0], watch.Fd()) + 1, &ready, nullptr, nullptr, nullptr) < 0)
            break;
        if (FD_ISSET(pipeFds[0], &ready)) {
            const ssize_t n = read(pipeFds[0], buffer, sizeof(buffer));
            if (n > 0)
                output.append(buffer, static_cast<size_t>(n));
            open = n > 0;
        }
    }
    close(pipeFds[0]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    watch.Drain();

    Run run;
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && watch.shownNs > 0;
    run.shownMs = (watch.shownNs - start) / 1e6;
    run.filledMs = watch.filledNs > 0 ? (watch.filledNs - start) / 1e6 : 0;
    run.waitShownMs = watch.waitShownNs > 0 ? (watch.waitShownNs - start) / 1e6 : 0;
    run.rows = static_cast<int>(Field(output, "rows"));
    const long long selfFilled = Field(output, "filled_ns");
    run.selfFilledMs = selfFilled > 0 ? (selfFilled - start) / 1e6 : 0;
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
    std::vector<double> shown, filled, selfFilled, waitShown, peak;
    int rows = -1;

    void Add(const Run& run)
    {
        if (!run.ok)
            return;
        shown.push_back(run.shownMs);
        filled.push_back(run.filledMs);
        selfFilled.push_back(run.selfFilledMs);
        waitShown.push_back(run.waitShownMs);
        peak.push_back(run.peakKb / 1024.0);
        rows = run.rows;
    }
    Summary Report() const
    {
        const Summary summary{Median(shown), Median(filled), Median(peak), rows, shown.size()};
        std::printf("%-22s shown %7.1f ms   wait dialog %7.1f ms   list filled %7.1f ms (in-process %7.1f)   "
                    "rows %3d   peak RSS %6.1f MB   (%zu runs)\n",
                    label, summary.shownMs, Median(waitShown), summary.filledMs, Median(selfFilled), summary.rows,
                    summary.peakMb, summary.runs);
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
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 11;
    Display* display = std::getenv("DISPLAY") != nullptr ? XOpenDisplay(nullptr) : nullptr;
    if (display == nullptr) {
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
        RunOnce(display, c.program, c.env);
    // Each round's program runs against the bare frame of the same round:
    // the median of these ratios follows the machine's load less than the
    // ratio of the medians.
    std::vector<double> shownRatios, filledRatios;
    for (int i = 0; i < runs; ++i) {
        std::vector<Run> round;
        for (Case& c : cases) {
            round.push_back(RunOnce(display, c.program, c.env));
            c.Add(round.back());
        }
        if (round[0].ok && round[1].ok && round[0].shownMs > 0) {
            shownRatios.push_back(round[1].shownMs / round[0].shownMs);
            filledRatios.push_back(round[1].filledMs / round[0].shownMs);
        }
    }
    std::printf("start-up, median of %d alternated runs (from fork to the X map event of the frame, and to "
                "the unmap of the wait dialog)\n", runs);
    const Summary bare = cases[0].Report();
    const Summary four = cases[1].Report();
    const Summary many = cases[2].Report();

    std::printf("\nratios against the bare frame (targets: shown <= 1.2, filled with 4 cards <= 1.5, peak memory <= 1.3)\n");
    std::printf("window shown      %.2f\n", four.shownMs / bare.shownMs);
    std::printf("list filled, 4    %.2f\n", four.filledMs / bare.shownMs);
    std::printf("list filled, 32   %.2f\n", many.filledMs / bare.shownMs);
    std::printf("peak memory, 4    %.2f\n", four.peakMb / bare.peakMb);
    std::printf("peak memory, 32   %.2f\n", many.peakMb / bare.peakMb);
    std::printf("median of the %zu rounds' own ratios: window shown %.2f, list filled with 4 cards %.2f\n",
                shownRatios.size(), Median(shownRatios), Median(filledRatios));
    XCloseDisplay(display);
    std::system(("rm -rf '" + scratch + "'").c_str());
    return 0;
}
