// Process start-up: when the log is switched on, where it goes, what its
// lines look like, and the hooks that carry the token layer's lines into it.
#include "app/AppStartup.h"
#include "app/VessaCardsLogger.h"
#include "base/Config.h"
#include "tests/app/AppTestSupport.h"
#include "token/acPKCS11.h"
#include "token/acPKCS11Log.h"

#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include <sys/syscall.h>

namespace {

using VessaCards::LogDirectoryFromSettings;

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

} // namespace
