// Process start-up: when the log is switched on, where it goes, what its
// lines look like, and the hooks that carry the token layer's lines into it.
#include "app/AppStartup.h"
#include "app/VessaCardsLogger.h"
#include "base/Config.h"
#include "tests/app/AppTestSupport.h"
#include "token/acPKCS11.h"
#include "token/acPKCS11Log.h"

#include "tests/support/TestCommon.h"

#include <regex>

#include <sys/syscall.h>

namespace {

using VessaCards::LogDirectoryFromSettings;

TEST(LogDirectoryFromSettings, NeedsAPositiveLevelAndAPathOfFiveCharacters)
{
    std::string dir = "unchanged";
    EXPECT_FALSE(LogDirectoryFromSettings(0, "/var/log/vessa", dir));
    EXPECT_FALSE(LogDirectoryFromSettings(-3, "/var/log/vessa", dir));
    EXPECT_FALSE(LogDirectoryFromSettings(1, "/var", dir)); // four characters
    EXPECT_FALSE(LogDirectoryFromSettings(5, "", dir));
    EXPECT_EQ(dir, "unchanged");

    EXPECT_TRUE(LogDirectoryFromSettings(1, "/var/", dir));
    EXPECT_EQ(dir, "/var/");
    // Any level of 1 or more only switches the log on.
    EXPECT_TRUE(LogDirectoryFromSettings(99, "/var/log/vessa", dir));
    EXPECT_EQ(dir, "/var/log/vessa");
}

TEST(LogDirectoryFromSettings, AFileNameEndingInLogKeepsOnlyItsDirectory)
{
    std::string dir;
    EXPECT_TRUE(LogDirectoryFromSettings(1, "/var/log/vessa/trace.log", dir));
    EXPECT_EQ(dir, "/var/log/vessa");
    EXPECT_TRUE(LogDirectoryFromSettings(1, "/var/log/vessa/TRACE.LOG", dir));
    EXPECT_EQ(dir, "/var/log/vessa");
    // A bare name of exactly five characters writes into the working directory.
    EXPECT_TRUE(LogDirectoryFromSettings(1, "a.log", dir));
    EXPECT_EQ(dir, "");
    // ".log" in the middle is not a suffix.
    EXPECT_TRUE(LogDirectoryFromSettings(1, "/srv/a.logs", dir));
    EXPECT_EQ(dir, "/srv/a.logs");
}

// Restores the process-wide singletons after each start-up test.
class StartupTest : public testing::Test {
protected:
    void SetUp() override
    {
        Korvex::acPKCS11::SetMessageLoggingFunc(nullptr);
        Korvex::acPKCS11::SetErrorLoggingFunc(nullptr);
    }
    void TearDown() override
    {
        VessaCards::TeardownProcess();
        Korvex::acPKCS11::SetMessageLoggingFunc(nullptr);
        Korvex::acPKCS11::SetErrorLoggingFunc(nullptr);
    }

    std::vector<std::string> LogFiles(const std::string& dir)
    {
        return AppTests::FilesStartingWith(dir, "VessaCards_");
    }

    // Text of the one program log in m_logs; fails the test (and answers
    // empty) when there is not exactly one.
    std::string SoleLogText()
    {
        const std::vector<std::string> files = LogFiles(m_logs.path());
        EXPECT_EQ(files.size(), 1u);
        return files.size() == 1 ? AppTests::ReadText(m_logs.path() + "/" + files[0]) : std::string();
    }

    // Writes the all-users settings with this trace level and file name
    // (other settings in front of the trace group) and bootstraps.
    void BootstrapWithTrace(const std::string& level, const std::string& fileName,
                            const std::string& otherSettings = "")
    {
        AppTests::WriteAllUsersConfig(m_settings.path(), "<vessa_Client>" + otherSettings +
                                                             "<Trace><LogLevel>" + level +
                                                             "</LogLevel><Filename>" + fileName +
                                                             "</Filename></Trace></vessa_Client>");
        VessaCards::BootstrapProcess();
    }

    AppTests::ScratchDir m_settings;
    AppTests::ScratchDir m_logs;
};

TEST_F(StartupTest, LogLinesCarryTimeKindAndThreadId)
{
    const std::string path = VessaCards::StartApplicationLog(m_logs.path());
    AppLog()->LogMessage("from the main thread");
    long workerId = 0;
    std::thread worker([&workerId] {
        workerId = static_cast<long>(syscall(SYS_gettid));
        ::acPKCS11::LogError("PKCS11 Proc_C_OpenSession ERROR", 0x1b0);
    });
    worker.join();

    const std::vector<std::string> files = LogFiles(m_logs.path());
    ASSERT_EQ(files.size(), 1u);
    EXPECT_TRUE(std::regex_match(files[0], std::regex(R"(VessaCards_\d{4}-\d\d-\d\d-\d\d-\d\d-\d\d\.log)")))
        << files[0];
    EXPECT_EQ(path, m_logs.path() + "/" + files[0]);

    const std::string text = AppTests::ReadText(path);
    const long mainId = static_cast<long>(syscall(SYS_gettid));
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)";
    EXPECT_TRUE(std::regex_search(
        text, std::regex(stamp + "      MESSAGE \\(" + std::to_string(mainId) + "\\) from the main thread\n")))
        << text;
    EXPECT_TRUE(std::regex_search(
        text, std::regex(stamp + "        ERROR \\(" + std::to_string(workerId) +
                         "\\) PKCS11 Proc_C_OpenSession ERROR0x1b0\n")))
        << text;
}

TEST_F(StartupTest, ALogFolderThatCannotHoldTheLogIsNamedOnStandardError)
{
    const std::string blocked = m_logs.path() + "/a-file";
    TestSupport::WriteText(blocked, "in the way");
    testing::internal::CaptureStderr();
    const std::string path = VessaCards::StartApplicationLog(blocked);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said, "log file " + path + " cannot be written: Not a directory\n");
    AppLog()->LogMessage("nowhere to go");  // and the program goes on
    EXPECT_EQ(TestSupport::ReadText(blocked), "in the way");
}

TEST_F(StartupTest, LevelZeroStartsNoLogAndNoHooks)
{
    BootstrapWithTrace("0", m_logs.path());
    AppLog()->LogError("dropped");
    EXPECT_TRUE(LogFiles(m_logs.path()).empty());
    EXPECT_EQ(::acPKCS11::pt2LogError, nullptr);
    EXPECT_EQ(::acPKCS11::pt2LogMessage, nullptr);
}

TEST_F(StartupTest, TeardownClosesTheLogAndForgetsTheConfiguration)
{
    BootstrapWithTrace("1", m_logs.path(), "<Version>2.1.0.7</Version>");
    std::string version;
    EXPECT_TRUE(Korvex::Config::GetHandle(0)->GetString(11, version));
    EXPECT_EQ(version, "2.1.0.7");

    VessaCards::TeardownProcess();
    EXPECT_FALSE(Korvex::Config::GetHandle(0)->IsInitialized());
    EXPECT_EQ(Korvex::Config::GetHandle(0)->GetConfigEntry(11), nullptr);
    // The closing line is written whatever the level.
    EXPECT_NE(SoleLogText().find("close LibLogging"), std::string::npos);
    EXPECT_FALSE(AppLog()->IsEnabled());
}

} // namespace
