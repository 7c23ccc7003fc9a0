// Hot-plug benchmark: how soon the running program's card list follows a
// card pulled out of or put into a simulated reader with `vessa-sim remove`
// and `vessa-sim insert`, without the reload button; median and maximum over
// the cycles. Also the cost of one non-blocking slot-event poll, the call the
// window's timer makes on the GUI thread. Needs an X display (xvfb-run).
// Prints figures; asserts nothing.
//
//   bench_hotplug [cycles]        (default 20)
#include "BenchClock.h"

#include "token/LoadFreeLib.h"
#include "token/acPKCS11.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string kBuild = KORVEX_BENCH_BINARY_DIR;

// The program as a child whose timing lines are read from a pipe.
class Program {
public:
    bool Start()
    {
        int fds[2];
        if (pipe(fds) != 0)
            return false;
        m_pid = fork();
        if (m_pid == 0) {
            dup2(fds[1], 2);
            close(fds[0]);
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, 1);
            const std::string program = kBuild + "/program/VessaCards";
            execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(fds[1]);
        m_out = fds[0];
        return m_pid > 0;
    }
    ~Program()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
        if (m_out >= 0)
            close(m_out);
    }
    // Time (monotonic ns) of the first refresh after now that shows `rows`
    // rows; -1 when none came within `seconds`.
    long long WaitForRows(int rows, double seconds)
    {
        const long long end = MonotonicNanoseconds() + static_cast<long long>(seconds * 1e9);
        for (;;) {
            size_t newline;
            while ((newline = m_buffer.find('\n')) != std::string::npos) {
                const std::string line = m_buffer.substr(0, newline);
                m_buffer.erase(0, newline + 1);
                const size_t filled = line.find("filled_ns="), count = line.find("rows=");
                if (filled != std::string::npos && count != std::string::npos &&
                    std::atoi(line.c_str() + count + 5) == rows)
                    return std::atoll(line.c_str() + filled + 10);
            }
            const long long left = end - MonotonicNanoseconds();
            if (left <= 0)
                return -1;
            pollfd wait = {m_out, POLLIN, 0};
            if (poll(&wait, 1, static_cast<int>(left / 1000000) + 1) <= 0)
                continue;
            char chunk[4096];
            const ssize_t n = read(m_out, chunk, sizeof(chunk));
            if (n <= 0)
                return -1;
            m_buffer.append(chunk, static_cast<size_t>(n));
        }
    }

private:
    pid_t m_pid = -1;
    int m_out = -1;
    std::string m_buffer;
};

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double Maximum(const std::vector<double>& values)
{
    return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

// Microseconds of each of `count` non-blocking polls on an idle module.
std::vector<double> PollCosts(int count)
{
    std::vector<double> costs;
    // This process's loader path was fixed at its start: name the file.
    static const std::string module = kBuild + "/sim/libVessaP11.so";
    Korvex::PKCS11_LIB_NAME = module.c_str();
    Korvex::acPKCS11 token;
    if (!Korvex::acPKCS11::IsInitialized())
        return costs;
    CK_SLOT_ID slot = 0;
    while (token.PollSlotEvent(slot) == Korvex::SLOT_EVENT_SEEN) {
    }
    for (int i = 0; i < count; ++i) {
        const long long start = MonotonicNanoseconds();
        token.PollSlotEvent(slot);
        costs.push_back((MonotonicNanoseconds() - start) / 1e3);
    }
    token.destroy();
    return costs;
}

} // namespace

int main(int argc, char** argv)
{
    const int cycles = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    if (std::getenv("DISPLAY") == nullptr) {
        std::fprintf(stderr, "needs an X display: xvfb-run -a %s\n", argv[0]);
        return 1;
    }
    char pattern[] = "/tmp/bench-hotplug-XXXXXX";
    const std::string scratch = mkdtemp(pattern) != nullptr ? pattern : "/tmp";
    const std::string tool = kBuild + "/sim/vessa-sim";
    const std::string cards = scratch + "/cards.xml";
    if (std::system((tool + " cardset 4 > " + cards).c_str()) != 0) {
        std::fprintf(stderr, "cannot write the card set with %s\n", tool.c_str());
        return 1;
    }
    // The program, the control tool and this process share the module's state.
    setenv("HOME", scratch.c_str(), 1);
    setenv("KORVEX_ALLUSERS_DIR", (scratch + "/etc/").c_str(), 1);
    setenv("TMPDIR", (scratch + "/").c_str(), 1);
    setenv("VESSA_SIM_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("VESSA_SIM_KEY_DIR", (kBuild + "/bench-scratch/sim-keys").c_str(), 1);
    setenv("VESSA_SIM_CARDS", cards.c_str(), 1);
    setenv("LD_LIBRARY_PATH", (kBuild + "/sim").c_str(), 1);
    setenv("VESSACARDS_EXIT_AFTER_REFRESH", "watch", 1);

    Program program;
    if (!program.Start() || program.WaitForRows(4, 60) < 0) {
        std::fprintf(stderr, "the program did not show its 4 cards\n");
        return 1;
    }
    std::vector<double> removed, inserted;
    const std::string remove = tool + " remove 0 >/dev/null";
    const std::string insert = tool + " insert 0 ECARD-G3A:3031000000009999:Hot:Plug >/dev/null";
    for (int i = 0; i < cycles; ++i) {
        long long start = MonotonicNanoseconds();
        if (std::system(remove.c_str()) != 0)
            break;
        long long shown = program.WaitForRows(3, 10);
        if (shown < 0)
            break;
        removed.push_back((shown - start) / 1e6);
        start = MonotonicNanoseconds();
        if (std::system(insert.c_str()) != 0)
            break;
        shown = program.WaitForRows(4, 10);
        if (shown < 0)
            break;
        inserted.push_back((shown - start) / 1e6);
    }
    const std::vector<double> polls = PollCosts(2000);

    std::printf("hot-plug, %zu of %d cycles (from starting vessa-sim to the refreshed list shown)\n",
                std::min(removed.size(), inserted.size()), cycles);
    std::printf("card pulled out, row gone:   median %7.1f ms   max %7.1f ms\n", Median(removed), Maximum(removed));
    std::printf("card put in, row visible:    median %7.1f ms   max %7.1f ms   (target: median <= 1000 ms)\n",
                Median(inserted), Maximum(inserted));
    std::printf("one non-blocking slot-event poll on the GUI thread: median %.1f us   max %.1f us   (target <= 5000 us)\n",
                Median(polls), Maximum(polls));
    std::system(("rm -rf '" + scratch + "'").c_str());
    return removed.size() == static_cast<size_t>(cycles) && inserted.size() == static_cast<size_t>(cycles) ? 0 : 1;
}
