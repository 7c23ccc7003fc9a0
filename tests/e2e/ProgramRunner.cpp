// Child-process and X window helpers of the end-to-end tests.
#include "tests/e2e/ProgramRunner.h"

#include <X11/Xlib.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace EndToEnd {

std::string BuiltProgram()
{
    return BinaryDir() + "/program/VessaCards";
}

bool HaveDisplay()
{
    if (std::getenv("DISPLAY") == nullptr)
        return false;
    // The X server starts afresh whenever its last client leaves, and
    // refuses connections while it does: a program started just after
    // another ended could not open the display. This connection stays for
    // the whole test process, so the server never resets under the tests.
    static Display* const keepServerUp = XOpenDisplay(nullptr);
    return keepServerUp != nullptr;
}

Sandbox::Sandbox()
{
    for (const char* sub : {"/home", "/etc", "/tmp", "/state"})
        std::filesystem::create_directories(Root() + sub);
}

ProgramRunner::ProgramRunner(const Sandbox& sandbox, std::vector<std::string> arguments)
    : m_program(BuiltProgram()), m_arguments(std::move(arguments))
{
    static int runs = 0;
    m_stderrPath = sandbox.Root() + "/stderr-" + std::to_string(++runs);
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const size_t equals = text.find('=');
        if (equals != std::string::npos)
            m_env[text.substr(0, equals)] = text.substr(equals + 1);
    }
    m_env["HOME"] = sandbox.Home();
    m_env["KORVEX_ALLUSERS_DIR"] = sandbox.AllUsers() + "/";
    m_env["TMPDIR"] = sandbox.Root() + "/tmp/";
    m_env["VESSA_SIM_STATE_DIR"] = sandbox.Root() + "/state";
    m_env["VESSA_SIM_KEY_DIR"] = BinaryDir() + "/test-scratch/gui-sim-keys";
    m_env["LD_LIBRARY_PATH"] = BinaryDir() + "/sim";
    // Xvfb has no accessibility bus; its client would only leak D-Bus buffers.
    m_env["NO_AT_BRIDGE"] = "1";
    m_env.erase("VESSA_SIM_CARDS");
    m_env.erase("VESSACARDS_EXIT_AFTER_REFRESH");
    // A desktop without a language: the program's own German texts, whatever
    // the machine running the tests is set to.
    m_env["LANG"] = "C.UTF-8";
    m_env.erase("LC_ALL");
    m_env.erase("LC_MESSAGES");
}

ProgramRunner::~ProgramRunner()
{
    if (m_pid > 0 && Running()) {
        kill(m_pid, SIGKILL);
        WaitForExit(5);
    }
}

bool ProgramRunner::Start()
{
    // env -i hands the child exactly m_env; setpriv (run by root) takes the
    // rights to override file permissions away.
    std::vector<std::string> words{"/usr/bin/env", "-i"};
    for (const auto& entry : m_env)
        words.push_back(entry.first + "=" + entry.second);
    if (geteuid() == 0 && access("/usr/bin/setpriv", X_OK) == 0) {
        words.push_back("/usr/bin/setpriv");
        words.insert(words.end(), m_user.begin(), m_user.end());
        words.insert(words.end(), {"--bounding-set=-dac_override,-dac_read_search", "--"});
    }
    words.push_back(m_program);
    words.insert(words.end(), m_arguments.begin(), m_arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, 2, m_stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const bool started = posix_spawn(&m_pid, argv[0], &files, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&files);
    return started;
}

bool ProgramRunner::WaitForExit(double seconds)
{
    if (m_status != -2)
        return true;
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(m_pid, &status, WNOHANG);
        if (done == m_pid) {
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            return true;
        }
        if (done < 0 || std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

bool ProgramRunner::Running()
{
    return !WaitForExit(0);
}

std::string ProgramRunner::StandardError() const
{
    return TestSupport::ReadText(m_stderrPath);
}

std::vector<WindowInfo> WindowsOf(pid_t pid)
{
    // xdotool finds a process's windows by their _NET_WM_PID.
    std::vector<WindowInfo> found;
    int status = -1;
    const std::string pidText = std::to_string(pid);
    for (const std::string& id :
         TestSupport::SplitLines(TestSupport::RunCommand("xdotool search --onlyvisible --pid " + pidText + " 2>/dev/null",
                                                         status))) {
        std::string title = TestSupport::RunCommand("xdotool getwindowname " + id + " 2>/dev/null", status);
        if (!title.empty() && title.back() == '\n')
            title.pop_back();
        found.push_back({std::stoul(id), title});
    }
    return found;
}

bool WaitForWindow(pid_t pid, const std::string& title, double seconds, unsigned long* id)
{
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    do {
        for (const WindowInfo& window : WindowsOf(pid)) {
            if (window.title == title) {
                if (id != nullptr)
                    *id = window.id;
                return true;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    } while (std::chrono::steady_clock::now() < end);
    return false;
}

bool CloseWindow(unsigned long id)
{
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr)
        return false;
    XEvent event;
    std::memset(&event, 0, sizeof(event));
    event.xclient.type = ClientMessage;
    event.xclient.window = id;
    event.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(XInternAtom(display, "WM_DELETE_WINDOW", False));
    event.xclient.data.l[1] = CurrentTime;
    const bool sent = XSendEvent(display, id, False, NoEventMask, &event) != 0;
    XFlush(display);
    XCloseDisplay(display);
    return sent;
}

} // namespace EndToEnd
