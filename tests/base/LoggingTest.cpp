// Logger: registry, line format on the real file, level filter, function
// stack, buffer modes, backups at Init and Destroy.
#include "base/Logging.h"

#include "tests/support/TestCommon.h"

#include <sys/types.h>

#include <regex>

using Korvex::LibLogging;
using TestSupport::SplitLines;
using TestSupport::ReadText;

namespace {

// A fresh, enabled logger writing "<dir>/test.log".
class LoggerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        logger = LibLogging::GetHandle(LibLogging::Register());
        ASSERT_TRUE(logger->Init(dir.file("test"), 0, false));
        logger->Enabled(true);
    }
    void TearDown() override { logger->Destroy(); }
    // Each line without its 19-character time stamp.
    std::vector<std::string> Tails() const
    {
        std::vector<std::string> lines = SplitLines(ReadText(dir.file("test.log")));
        for (std::string& line : lines)
            line = line[0] == ' ' ? line : line.substr(19);
        return lines;
    }

    TestSupport::TempDir dir;
    LibLogging* logger = nullptr;
};

} // namespace

TEST(LoggingRegistry, HandlesAndRegistration)
{
    const unsigned a = LibLogging::Register();
    EXPECT_GE(a, 1u) << "slot 0 stays the default logger";
    EXPECT_EQ(a + 1, LibLogging::Register());
    LibLogging* la = LibLogging::GetHandle(a);
    ASSERT_NE(nullptr, la);
    EXPECT_EQ(la, LibLogging::GetHandle(a));
    EXPECT_NE(la, LibLogging::GetHandle(a + 1));
    EXPECT_EQ(nullptr, LibLogging::GetHandle(a + 1000));
    EXPECT_NE(nullptr, LibLogging::GetHandle(0));

    la->Init("/nonexistent/dir/x", 0, false);
    la->Enabled(true);
    la->Destroy();
    LibLogging* again = LibLogging::GetHandle(a);
    ASSERT_NE(nullptr, again) << "an emptied slot gets a new logger";
    EXPECT_FALSE(again->IsEnabled());
    again->Destroy();
    LibLogging::GetHandle(a + 1)->Destroy();
}

TEST_F(LoggerTest, LineFormatOnTheFile)
{
    logger->LogError("first problem");
    logger->LogThreadId(true);
    logger->LogMessage("Start");
    logger->Log("leaving", Korvex::LOG_OUT_FUNCTION);
    logger->LogRaw("raw text");

    const std::vector<std::string> lines = SplitLines(ReadText(dir.file("test.log")));
    ASSERT_EQ(4u, lines.size());
    const std::string stamp = R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})";
    const std::string tid = std::to_string(::gettid());
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(stamp + "        ERROR first problem$"))) << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(stamp + "      MESSAGE \\(" + tid + "\\) Start$"))) << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(stamp + " OUT FUNCTION \\(" + tid + "\\) leaving$"))) << lines[2];
    EXPECT_EQ(" raw text", lines[3]) << "raw lines have no prefix";
    EXPECT_EQ('\n', ReadText(dir.file("test.log")).back());
    TestSupport::EnvGuard tz("TZ", "UTC");
    tzset();
    EXPECT_EQ("2015-03-04 10:11:12", LibLogging::GetTimeString(1425463872L));
}

TEST_F(LoggerTest, LevelFilter)
{
    logger->SetLoggingLevel(2);
    logger->LogMessage("m");
    logger->LogRaw("r");
    logger->LogDebug("d");
    logger->LogWarning("w");
    logger->LogError("e");
    logger->Log("direct", Korvex::LOG_DEBUG);
    logger->SetLoggingLevel(3);
    logger->LogMessage("m3");
    logger->LogRaw("r3");
    logger->LogDebug("d3");
    logger->SetLoggingLevel(4);
    logger->LogDebug("d4");
    logger->SetLoggingLevel(0);
    logger->LogError("never");
    const std::vector<std::string> expected = {"      WARNING w", "        ERROR e", "        DEBUG direct",
                                               "      MESSAGE m3", " r3", "        DEBUG d4"};
    EXPECT_EQ(expected, Tails());
}

TEST(LoggingInit, DefaultsExtensionAndEnableSwitch)
{
    TestSupport::TempDir dir;
    LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
    ASSERT_TRUE(logger->Init(dir.file("plain"), 0, false));
    EXPECT_EQ(dir.file("plain.log"), logger->GetFileName());
    EXPECT_EQ(5u, logger->GetLoggingLevel());
    EXPECT_TRUE(logger->IsVerbose() && logger->IsOutputDbgString());
    EXPECT_FALSE(logger->IsLogThreadId());
    EXPECT_FALSE(logger->IsLogRotationEnabled()) << "0 entries: no rotation";
    logger->LogError("before enabling");
    EXPECT_EQ("", ReadText(dir.file("plain.log"))) << "Init does not enable";

    ASSERT_TRUE(logger->Init(dir.file("named.log"), 10, false));
    EXPECT_EQ(dir.file("named.log"), logger->GetFileName());
    EXPECT_TRUE(logger->IsLogRotationEnabled());
    ASSERT_TRUE(logger->Init(dir.file("named.log.txt"), 10, false));
    EXPECT_EQ(dir.file("named.log.txt.log"), logger->GetFileName());

    EXPECT_FALSE(logger->Init(dir.file("no/such/dir/x"), 10, true));
    logger->Enabled(true);
    logger->LogToBuffer(Korvex::LOG_BUFFER_AND_FILE, 5);
    logger->LogError("nowhere");
    EXPECT_EQ(0, logger->GetLogBufferSize()) << "no open file: entries are dropped";
    logger->Destroy();
}

TEST(LoggingInit, WithoutBackupEmptiesAndWithBackupKeepsEveryEarlierFile)
{
    TestSupport::TempDir dir;
    TestSupport::WriteText(dir.file("app.log"), "run one\n");
    LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
    ASSERT_TRUE(logger->Init(dir.file("app"), 100, true));
    EXPECT_EQ("", ReadText(dir.file("app.log")));
    logger->Enabled(true);
    logger->LogError("run two");
    // Starts within the same second must not reuse a backup name.
    ASSERT_TRUE(logger->Init(dir.file("app"), 100, true));
    logger->Enabled(true);
    logger->LogError("run three");
    ASSERT_TRUE(logger->Init(dir.file("app"), 100, true));

    const std::vector<std::string> names = TestSupport::FileNames(dir.path());
    ASSERT_EQ(4u, names.size());
    std::string all;
    for (const std::string& name : names) {
        EXPECT_TRUE(name == "app.log" || std::regex_match(name, std::regex(R"(app_\d+\.log)"))) << name;
        all += ReadText(dir.file(name));
    }
    for (const char* run : {"run one", "run two", "run three"})
        EXPECT_NE(std::string::npos, all.find(run)) << run;

    ASSERT_TRUE(logger->Init(dir.file("app"), 100, false));
    EXPECT_EQ(4u, TestSupport::FileNames(dir.path()).size()) << "no backup without the flag";
    logger->Destroy();
}

TEST_F(LoggerTest, FunctionStackAndTrace)
{
    logger->LogFunction("outer", Korvex::FUNCTION_IN);
    logger->LogFunction("inner", Korvex::FUNCTION_IN);
    logger->LogStackTrace();
    logger->LogFunction("inner", Korvex::FUNCTION_OUT);
    logger->LogStackTrace();
    const std::vector<std::string> expected = {"  IN FUNCTION outer", "  IN FUNCTION inner", "   STACKTRACE outer",
                                               "   STACKTRACE inner", " OUT FUNCTION inner", "   STACKTRACE outer"};
    EXPECT_EQ(expected, Tails());
}

TEST_F(LoggerTest, BufferModes)
{
    logger->LogToBuffer(Korvex::LOG_BUFFER_ONLY, 3);
    EXPECT_TRUE(logger->IsLogToBuffer());
    for (const char* text : {"a", "b", "c", "d"})
        logger->LogError(text);
    logger->LogWarning("e");
    EXPECT_TRUE(Tails().empty()) << "buffer-only mode writes nothing";

    const std::list<Korvex::LogBufferEntry> buffer = logger->GetLogBuffer();
    ASSERT_EQ(3u, buffer.size());
    EXPECT_EQ("e", buffer.front().text) << "newest first";
    EXPECT_EQ(Korvex::LOG_WARNING, buffer.front().kind);
    EXPECT_EQ("c", buffer.back().text) << "oldest entries dropped";

    logger->LogBufferToFile();
    EXPECT_EQ((std::vector<std::string>{"        ERROR c", "        ERROR d", "      WARNING e"}), Tails());
    EXPECT_EQ(3, logger->GetLogBufferSize()) << "writing out neither empties nor refills the buffer";
    logger->ClearLogBuffer();
    EXPECT_EQ(0, logger->GetLogBufferSize());

    logger->LogToBuffer(Korvex::LOG_BUFFER_AND_FILE, 10);
    logger->LogError("both");
    EXPECT_EQ(4u, Tails().size());
    EXPECT_EQ(1, logger->GetLogBufferSize());
}

TEST(LoggingDestroy, ClosingLinesDependOnLevel)
{
    TestSupport::TempDir dir;
    for (Korvex::LOG_LEVEL level : {1u, 4u}) {
        LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
        const std::string name = dir.file("destroy" + std::to_string(level));
        ASSERT_TRUE(logger->Init(name, 0, false));
        logger->Enabled(true);
        logger->SetLoggingLevel(level);
        logger->Destroy();
        std::vector<std::string> lines = SplitLines(ReadText(name + ".log"));
        for (std::string& line : lines)
            line = line.substr(19);
        std::vector<std::string> expected = {"        DEBUG close LibLogging"};
        if (level == 4)
            expected.insert(expected.begin(), "        DEBUG Destroy()");
        EXPECT_EQ(expected, lines) << "level " << level;
    }
}
