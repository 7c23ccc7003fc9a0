// Runs the built program as a child process with its own home, settings and
// card state, and looks at its windows on the X display.
#pragma once

#include "tests/support/TestEnvironment.h"

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace EndToEnd {

// A private folder tree for one test: home/, etc/ (all users), tmp/, state/.
class Sandbox {
public:
    Sandbox();
    const std::string& Root() const { return m_root.path(); }
    std::string Home() const { return Root() + "/home"; }
    std::string AllUsers() const { return Root() + "/etc"; }
    // Writes the all-users settings file with this XML inside <config>.
    void WriteSettings(const std::string& body) const { TestSupport::WriteSettingsFile(AllUsers(), body); }

private:
    TestSupport::TempDir m_root;
};

class ProgramRunner {
public:
    // The program as built, with the simulated module on the loader path. Run
    // by root, it runs without the right to override file permissions, as a
    // user's program would: an unreadable file is unreadable to it.
    ProgramRunner(const Sandbox& sandbox, std::vector<std::string> arguments = {});
    ~ProgramRunner();

    // Overrides or adds an environment variable of the child.
    void SetEnv(const std::string& name, const std::string& value) { m_env[name] = value; }
    void UnsetEnv(const std::string& name) { m_env.erase(name); }
    // Runs this copy of the program instead of the built one.
    void SetProgram(const std::string& path) { m_program = path; }
    // Run by root: the program runs as this user (p11-kit reads a user's
    // module registry only for users other than root).
    void SetUser(uid_t uid, gid_t gid)
    {
        m_user = {"--reuid=" + std::to_string(uid), "--regid=" + std::to_string(gid), "--clear-groups"};
    }
    bool Start();
    pid_t Pid() const { return m_pid; }
    // Waits up to `seconds` for the child to end; false when it still runs.
    bool WaitForExit(double seconds);
    bool Running();
    // Exit status (0-255) once ended, or -1 when it ended by a signal.
    int ExitStatus() const { return m_status; }
    std::string StandardError() const;

private:
    std::string m_program;
    std::vector<std::string> m_arguments;
    std::map<std::string, std::string> m_env;
    std::string m_stderrPath;
    std::vector<std::string> m_user;
    pid_t m_pid = -1;
    int m_status = -2;
};

using TestSupport::BinaryDir;
std::string BuiltProgram();
bool HaveDisplay();

// Top-level X windows of a process that are on screen.
struct WindowInfo {
    unsigned long id;
    std::string title;
};
std::vector<WindowInfo> WindowsOf(pid_t pid);
// Waits up to `seconds` for a window of `pid` with this title.
bool WaitForWindow(pid_t pid, const std::string& title, double seconds, unsigned long* id = nullptr);
// Asks the window to close, as a window manager's close button does.
bool CloseWindow(unsigned long id);

} // namespace EndToEnd
