// Shared fixture library of the tests: one private scratch folder per test
// process, the simulator pointed at it with a card set and a scripted PIN
// dialogue, folders and environment variables that last one test, and small
// file helpers.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

// Private folder of this test process (removed at exit unless
// KORVEX_KEEP_SCRATCH is set), and the source and build trees.
const std::string& ScratchDir();
std::string SourceDir();
std::string BinaryDir();

// Points the simulator's state, the all-users configuration, HOME, TMPDIR and
// the PIN dialogue at the scratch folder, puts <scratch>/bin first on PATH and
// loads `cardSetXml` (empty: the module's built-in demo set). The generated
// keys are shared by every test of the build: making them is slow.
void PrepareSimulator(const std::string& cardSetXml);
// Another card set for the next C_Initialize (empty: the demo set).
void UseCardSet(const std::string& cardSetXml);

// Answers of the scripted PIN dialogue, consumed in order ("CANCEL" cancels,
// a used-up script cancels too). Also clears the dialogue log.
void SetPinAnswers(const Lines& answers);
// What the dialogue was shown ("SETPROMPT Aktuelle PIN:", ...).
Lines PinDialogLog();

// The certificate the simulator issued to a card.
Bytes IssuedCertificate(const std::string& serial, bool signature);

// A folder of its own for one test (under TMPDIR), removed with everything
// in it afterwards.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// Sets an environment variable for the guard's lifetime.
class EnvGuard {
public:
    EnvGuard(const char* name, const std::string& value);
    ~EnvGuard();
    EnvGuard(const EnvGuard&) = delete;
    EnvGuard& operator=(const EnvGuard&) = delete;

private:
    std::string m_name, m_old;
    bool m_had;
};

// Writes the program's all-users settings file below `allUsersDir` with this
// XML inside <config>.
void WriteSettingsFile(const std::string& allUsersDir, const std::string& body);

Bytes ReadBytes(const std::string& path);
std::string ReadText(const std::string& path);
void WriteText(const std::string& path, const std::string& text, bool executable = false);
Lines SplitLines(const std::string& text);
// Names of the entries of a folder, in no particular order.
Lines FileNames(const std::string& dir);
// Waits up to `seconds` for a file to exist and be non-empty.
bool WaitForFile(const std::string& path, double seconds);
// Runs a shell command; its standard output, and its exit status in `status`.
std::string RunCommand(const std::string& command, int& status);
// Starts a program (argv[0] a path, no shell) beside the test; its process
// id, or -1. ProcessStatus: its exit status, waiting for it or, without
// `wait`, -1 while it still runs; 255 when it did not end by itself.
int StartProcess(const Lines& argv);
int ProcessStatus(int pid, bool wait);

} // namespace TestSupport
