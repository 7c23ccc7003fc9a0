// The built program against what a user's machine can hold at its settings
// and working paths: it starts, shows its cards, ends normally and leaves the
// user's files as they were.
#include "tests/e2e/ProgramRunner.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace EndToEnd {
namespace {

struct BadFile {
    const char* what;
    std::function<void(const Sandbox&, ProgramRunner&)> make;
    std::string (*path)(const Sandbox&); // the file that must stay as it was
    const char* reported = "";           // in the log or on standard error; "" when nothing is
};

std::string UserSettings(const Sandbox& box) { return box.Home() + "/.korvex/vessaclient/config"; }
std::string AllUsersSettings(const Sandbox& box) { return box.AllUsers() + "/korvex/vessaclient/config"; }
std::string CardState(const Sandbox& box) { return box.Root() + "/state/cards/1204000000004711/state.xml"; }

std::string LogFolder(const Sandbox& box) { return box.Root() + "/logs"; }
std::string Catalogue(const Sandbox& box)
{
    return box.Root() + "/share/VessaClient/vessaclient/I18N/en/LC_MESSAGES/VessaClient.mo";
}

void Write(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    TestSupport::WriteText(path, text);
}

// `head` padded with zero bytes to 100 MB.
void WriteHuge(const std::string& path, const std::string& head)
{
    Write(path, head);
    ASSERT_EQ(0, truncate(path.c_str(), 100 << 20));
}

// The all-users settings switch the log on, so a problem found later has a
// place to be written to.
void LogOn(const Sandbox& box)
{
    std::filesystem::create_directories(LogFolder(box));
    box.WriteSettings("<vessa_Client><Trace><LogLevel>3</LogLevel><Filename>" + LogFolder(box) +
                      "</Filename></Trace></vessa_Client>");
}

void MakeReadOnly(const std::string& folder)
{
    std::filesystem::create_directories(folder);
    ASSERT_EQ(0, chmod(folder.c_str(), 0555));
}

std::string Reported(const Sandbox& box, const ProgramRunner& program)
{
    std::string text = program.StandardError();
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(LogFolder(box), error))
        text += TestSupport::ReadText(entry.path());
    return text;
}

// What the settings store makes of each kind of unusable file (directory,
// dangling link, garbage, truncated, huge) is ConfigTest's; here each path
// and each way of reporting it once.
const BadFile kCases[] = {
    {"user settings are a directory",
     [](const Sandbox& b, ProgramRunner&) {
         LogOn(b);
         std::filesystem::create_directories(UserSettings(b));
     },
     UserSettings, "vessaclient/config is not a regular file; its defaults are used"},
    {"all-users settings are binary garbage",
     [](const Sandbox& b, ProgramRunner&) { Write(AllUsersSettings(b), std::string("\x7f" "ELF\x02\x01\x01\0<<", 10)); },
     AllUsersSettings, "vessaclient/config is not well-formed XML"},
    {"all-users settings are unreadable",
     [](const Sandbox& b, ProgramRunner&) {
         Write(AllUsersSettings(b), "<config/>");
         ASSERT_EQ(0, chmod(AllUsersSettings(b).c_str(), 0));
     },
     AllUsersSettings, "vessaclient/config cannot be read; its defaults are used"},
    {"log folder setting names a file",
     [](const Sandbox& b, ProgramRunner&) {
         Write(b.Root() + "/not-a-folder", "x");
         b.WriteSettings("<vessa_Client><Trace><LogLevel>3</LogLevel><Filename>" + b.Root() +
                         "/not-a-folder/sub</Filename></Trace></vessa_Client>");
     },
     AllUsersSettings},
    {"the log folder is read-only",
     [](const Sandbox& b, ProgramRunner&) {
         LogOn(b);
         MakeReadOnly(LogFolder(b));
     },
     LogFolder, "cannot be written: Permission denied"},
    {"the home folder is read-only", [](const Sandbox& b, ProgramRunner&) { MakeReadOnly(b.Home()); },
     [](const Sandbox& b) { return b.Home(); }},
    {"TMPDIR is read-only", [](const Sandbox& b, ProgramRunner&) { MakeReadOnly(b.Root() + "/tmp"); },
     [](const Sandbox& b) { return b.Root() + "/tmp"; }},
    {"the English message catalogue is garbage",
     [](const Sandbox& b, ProgramRunner& program) {
         LogOn(b);
         Write(Catalogue(b), std::string("\xde\x12\x04\x95\0\0\0\0\xff\xff\xff\x7f", 12));
         // A copy of the program finds the catalogues beside its own folder.
         std::filesystem::create_directories(b.Root() + "/program");
         std::filesystem::copy_file(BuiltProgram(), b.Root() + "/program/VessaCards");
         program.SetProgram(b.Root() + "/program/VessaCards");
         program.SetEnv("LANG", "en_US.UTF-8");
     },
     Catalogue, "VessaClient.mo cannot be used; the German texts are shown"},
    {"TMPDIR points nowhere",
     [](const Sandbox&, ProgramRunner& program) { program.SetEnv("TMPDIR", "/nonexistent/tmp/"); }, UserSettings},
    {"TMPDIR is unset", [](const Sandbox&, ProgramRunner& program) { program.UnsetEnv("TMPDIR"); }, UserSettings},
    {"HOME points nowhere",
     [](const Sandbox&, ProgramRunner& program) { program.SetEnv("HOME", "/nonexistent/home"); }, AllUsersSettings},
    {"HOME is a file",
     [](const Sandbox& b, ProgramRunner& program) {
         Write(b.Root() + "/home-file", "not a folder");
         program.SetEnv("HOME", b.Root() + "/home-file");
     },
     AllUsersSettings},
    {"a card's state file is garbage",
     [](const Sandbox& b, ProgramRunner&) { Write(CardState(b), "<card><pin index=\"0\" \xff"); },
     CardState, "state.xml is damaged; the card starts from its factory state"},
    {"a card's state file is a directory",
     [](const Sandbox& b, ProgramRunner&) { std::filesystem::create_directories(CardState(b)); }, CardState},
    {"a card's state file is huge",
     [](const Sandbox& b, ProgramRunner&) { WriteHuge(CardState(b), "<card>"); }, CardState},
    {"the simulator's control file is huge",
     [](const Sandbox& b, ProgramRunner&) { WriteHuge(b.Root() + "/state/control", "# padded\n"); }, CardState},
    {"the simulator's control file is garbage",
     [](const Sandbox& b, ProgramRunner&) { Write(b.Root() + "/state/control", "\x01\x02slot\nslot x remove\nfault 1 C_Nothing=\n"); },
     CardState},
};

struct Snapshot {
    bool exists = false;
    mode_t mode = 0;
    off_t size = 0;
};

Snapshot Take(const std::string& path)
{
    Snapshot s;
    struct stat info;
    if (lstat(path.c_str(), &info) == 0) {
        s.exists = true;
        s.mode = info.st_mode;
        s.size = info.st_size;
    }
    return s;
}

TEST(BadFilesTest, ProgramStartsShowsItsCardsAndLeavesTheFilesAsTheyWere)
{
    if (!HaveDisplay())
        GTEST_SKIP() << "needs an X display (run under xvfb-run)";
    for (const BadFile& c : kCases) {
        SCOPED_TRACE(c.what);
        Sandbox sandbox;
        ProgramRunner program(sandbox);
        program.SetEnv("VESSACARDS_EXIT_AFTER_REFRESH", "1");
        c.make(sandbox, program);
        const Snapshot before = Take(c.path(sandbox));
        ASSERT_TRUE(program.Start());
        ASSERT_TRUE(program.WaitForExit(90)) << "still running";
        EXPECT_EQ(program.ExitStatus(), 0) << program.StandardError();
        EXPECT_NE(program.StandardError().find("rows=6"), std::string::npos) << program.StandardError();
        const Snapshot after = Take(c.path(sandbox));
        EXPECT_EQ(before.exists, after.exists);
        EXPECT_EQ(before.mode, after.mode);
        if (before.exists && S_ISREG(before.mode)) {
            EXPECT_EQ(before.size, after.size);
        }
        // Reported, and once (all-users settings problems on standard error).
        const std::string reported = Reported(sandbox, program);
        const std::size_t first = reported.find(c.reported);
        EXPECT_NE(first, std::string::npos) << reported;
        EXPECT_TRUE(!*c.reported || reported.find(c.reported, first + 1) == std::string::npos) << reported;
    }
}

} // namespace
} // namespace EndToEnd
