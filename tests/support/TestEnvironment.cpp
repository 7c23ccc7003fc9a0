// Scratch folder, simulator environment and file helpers; see TestEnvironment.h.
#include "tests/support/TestEnvironment.h"

#include <spawn.h>
#include <sys/wait.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace TestSupport {

namespace {

std::string Env(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string g_scratch;

void RemoveScratch()
{
    if (!g_scratch.empty() && Env("KORVEX_KEEP_SCRATCH").empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(g_scratch, ignored);
    }
}

std::string TestScratchBase()
{
    const std::string binary = BinaryDir();
    return binary.empty() ? "/tmp" : binary + "/test-scratch";
}

} // namespace

const std::string& ScratchDir()
{
    if (g_scratch.empty()) {
        std::filesystem::create_directories(TestScratchBase());
        std::string pattern = TestScratchBase() + "/run-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot make a scratch folder");
        g_scratch = pattern;
        std::atexit(RemoveScratch);
    }
    return g_scratch;
}

std::string SourceDir() { return Env("KORVEX_SOURCE_DIR"); }
std::string BinaryDir() { return Env("KORVEX_BINARY_DIR"); }

void PrepareSimulator(const std::string& cardSetXml)
{
    const std::string& scratch = ScratchDir();
    for (const char* sub : {"/state", "/etc", "/tmp", "/home", "/bin"})
        std::filesystem::create_directories(scratch + sub);
    setenv("VESSA_SIM_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("VESSA_SIM_KEY_DIR", (TestScratchBase() + "/sim-keys").c_str(), 1);
    setenv("VESSA_SIM_PINENTRY", (SourceDir() + "/tests/support/fake-pinentry").c_str(), 1);
    setenv("VESSACARDS_PINENTRY", (SourceDir() + "/tests/support/fake-pinentry").c_str(), 1);
    setenv("FAKE_PINENTRY_SCRIPT", (scratch + "/pins").c_str(), 1);
    setenv("FAKE_PINENTRY_LOG", (scratch + "/pins.log").c_str(), 1);
    setenv("KORVEX_ALLUSERS_DIR", (scratch + "/etc/").c_str(), 1);
    setenv("HOME", (scratch + "/home").c_str(), 1);
    setenv("TMPDIR", (scratch + "/tmp/").c_str(), 1);
    setenv("PATH", (scratch + "/bin:" + Env("PATH")).c_str(), 1);
    for (const char* name : {"VESSA_SIM_FAULTS", "VESSA_SIM_LATENCY_MS", "VESSA_SIM_APDU_LATENCY_MS",
                             "FAKE_PINENTRY_DELAY"})
        unsetenv(name);
    UseCardSet(cardSetXml);
    SetPinAnswers({});
}

void UseCardSet(const std::string& cardSetXml)
{
    if (cardSetXml.empty()) {
        unsetenv("VESSA_SIM_CARDS");
        return;
    }
    const std::string path = ScratchDir() + "/cards.xml";
    WriteText(path, cardSetXml);
    setenv("VESSA_SIM_CARDS", path.c_str(), 1);
}

void SetPinAnswers(const Lines& answers)
{
    std::string text;
    for (const std::string& answer : answers)
        text += answer + "\n";
    const std::string script = ScratchDir() + "/pins";
    WriteText(script, text);
    std::remove((script + ".pos").c_str());
    std::remove((script + ".log").c_str());
}

Lines PinDialogLog()
{
    return SplitLines(ReadText(ScratchDir() + "/pins.log"));
}

Bytes IssuedCertificate(const std::string& serial, bool signature)
{
    return ReadBytes(Env("VESSA_SIM_KEY_DIR") + "/" + serial + (signature ? "/sig.cert.der" : "/enc.cert.der"));
}

Bytes ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string ReadText(const std::string& path)
{
    const Bytes bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

void WriteText(const std::string& path, const std::string& text, bool executable)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    if (executable)
        chmod(path.c_str(), 0755);
}

Lines SplitLines(const std::string& text)
{
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

Lines FileNames(const std::string& dir)
{
    Lines names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    return names;
}

TempDir::TempDir()
{
    const std::string base = Env("TMPDIR").empty() ? "/tmp/" : Env("TMPDIR");
    m_path = base + (base.back() == '/' ? "" : "/") + "korvex-test-XXXXXX";
    if (mkdtemp(m_path.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
}

TempDir::~TempDir()
{
    std::error_code ignored; // cleanup must not throw from a destructor
    std::filesystem::remove_all(m_path, ignored);
}

EnvGuard::EnvGuard(const char* name, const std::string& value)
    : m_name(name), m_old(Env(name)), m_had(std::getenv(name) != nullptr)
{
    setenv(name, value.c_str(), 1);
}

EnvGuard::~EnvGuard()
{
    m_had ? setenv(m_name.c_str(), m_old.c_str(), 1) : unsetenv(m_name.c_str());
}

void WriteSettingsFile(const std::string& allUsersDir, const std::string& body)
{
    const std::string folder = allUsersDir + "/korvex/vessaclient";
    std::filesystem::create_directories(folder);
    WriteText(folder + "/config", "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<config>" + body + "</config>\n");
}

bool WaitForFile(const std::string& path, double seconds)
{
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    struct stat info;
    while (stat(path.c_str(), &info) != 0 || info.st_size == 0) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

int StartProcess(const Lines& argv)
{
    std::vector<char*> words;
    for (const std::string& word : argv)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    pid_t pid = -1;
    return posix_spawn(&pid, words[0], nullptr, nullptr, words.data(), environ) == 0 ? pid : -1;
}

int ProcessStatus(int pid, bool wait)
{
    int status = 0;
    const pid_t done = waitpid(pid, &status, wait ? 0 : WNOHANG);
    if (done == 0)
        return -1;
    return done == pid && WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

std::string RunCommand(const std::string& command, int& status)
{
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        status = -1;
        return output;
    }
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, n);
    status = pclose(pipe);
    return output;
}

} // namespace TestSupport
