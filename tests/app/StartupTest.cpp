// Process start-up: when the log is switched on, where it goes, the hooks
// that carry the token layer's lines into it, and teardown.
#include "app/AppStartup.h"
#include "app/VessaCardsLogger.h"
#include "base/Config.h"
#include "tests/app/AppTestSupport.h"
#include "token/acPKCS11.h"
#include "token/acPKCS11Log.h"

#include "tests/support/TestCommon.h"

namespace {

using VessaCards::LogDirectoryFromSettings;

TEST(LogDirectoryFromSettings, NeedsAPositiveLevelAndAPathOfFiveCharactersAndDropsAFileNameEndingInLog)
{
    const struct {
        long level;
        const char* path;
        const char* dir; // null: no log
    } cases[] = {
        {0, "/var/log/vessa", nullptr}, {-3, "/var/log/vessa", nullptr}, {1, "/var", nullptr}, {5, "", nullptr},
        {1, "/var/", "/var/"}, {99, "/var/log/vessa", "/var/log/vessa"}, // any level of 1 or more only switches it on
        {1, "/var/log/vessa/trace.log", "/var/log/vessa"}, {1, "/var/log/vessa/TRACE.LOG", "/var/log/vessa"},
        {1, "a.log", ""},                  // a bare name of five characters: the working directory
        {1, "/srv/a.logs", "/srv/a.logs"}, // ".log" in the middle is not a suffix
    };
    for (const auto& c : cases) {
        std::string dir = "unchanged";
        EXPECT_EQ(LogDirectoryFromSettings(c.level, c.path, dir), c.dir != nullptr) << c.level << " " << c.path;
        EXPECT_EQ(dir, c.dir != nullptr ? c.dir : "unchanged") << c.level << " " << c.path;
    }
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
