// Logger: registry, line format on the real file, level filter, function
// stack, buffer modes, backups at Init and Destroy.
#include "base/Logging.h"

#include "TempDir.h"

#include <gtest/gtest.h>

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <regex>

using Korvex::LibLogging;
using KorvexTest::Lines;
using KorvexTest::ReadText;

namespace {

const char* const kStamp = R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})";

// A fresh, enabled logger writing "<dir>/test.log".
class LoggerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        logger = LibLogging::GetHandle(LibLogging::Register());
        ASSERT_NE(nullptr, logger);
        ASSERT_TRUE(logger->Init(dir.file("test"), 0, false));
        logger->Enabled(true);
    }
    void TearDown() override
    {
        if (logger)
            logger->Destroy();
    }
    std::vector<std::string> FileLines() const { return Lines(ReadText(dir.file("test.log"))); }

    KorvexTest::TempDir dir;
    LibLogging* logger = nullptr;
};

} // namespace

TEST(LoggingRegistry, HandlesAndRegistration)
{
    const unsigned a = LibLogging::Register();
    const unsigned b = LibLogging::Register();
    EXPECT_GE(a, 1u) << "slot 0 stays the default logger";
    EXPECT_EQ(a + 1, b);
    LibLogging* la = LibLogging::GetHandle(a);
    ASSERT_NE(nullptr, la);
    EXPECT_EQ(la, LibLogging::GetHandle(a));
    EXPECT_NE(la, LibLogging::GetHandle(b));
    EXPECT_EQ(nullptr, LibLogging::GetHandle(b + 1000));
    EXPECT_NE(nullptr, LibLogging::GetHandle(0));

    la->Destroy();
    LibLogging* again = LibLogging::GetHandle(a);
    ASSERT_NE(nullptr, again) << "an emptied slot gets a new logger";
    EXPECT_FALSE(again->IsEnabled());
    again->Destroy();
    LibLogging::GetHandle(b)->Destroy();
}

TEST(LoggingFormat, LabelsAndTime)
{
    EXPECT_EQ("ERROR", LibLogging::LogTypeToString(Korvex::LOG_ERROR));
    EXPECT_EQ("OUT FUNCTION", LibLogging::LogTypeToString(Korvex::LOG_OUT_FUNCTION));
    EXPECT_EQ("WARNING", LibLogging::LogTypeToString(Korvex::LOG_WARNING));
    EXPECT_EQ("MESSAGE", LibLogging::LogTypeToString(static_cast<Korvex::DebugLevel>(42)));

    KorvexTest::EnvGuard tz("TZ", "UTC");
    tzset();
    EXPECT_EQ("2015-03-04 10:11:12", LibLogging::GetTimeString(1425463872L));
    EXPECT_EQ(static_cast<long>(::gettid()), LibLogging::GetThreadId());
}

TEST_F(LoggerTest, LineFormatWithAndWithoutThreadId)
{
    logger->LogError("first problem");
    logger->LogThreadId(true);
    logger->LogMessage("Start");
    logger->Log("leaving", Korvex::LOG_OUT_FUNCTION);

    const std::vector<std::string> lines = FileLines();
    ASSERT_EQ(3u, lines.size());
    const std::string tid = std::to_string(::gettid());
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(std::string("^") + kStamp + "        ERROR first problem$")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(std::string("^") + kStamp + "      MESSAGE \\(" + tid + "\\) Start$")))
        << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(std::string("^") + kStamp + " OUT FUNCTION \\(" + tid + "\\) leaving$")))
        << lines[2];
    EXPECT_EQ('\n', ReadText(dir.file("test.log")).back());
}

TEST_F(LoggerTest, EntryTimeIsNow)
{
    const std::time_t before = std::time(nullptr);
    logger->LogError("x");
    const std::time_t after = std::time(nullptr);
    const std::string stamp = FileLines().at(0).substr(0, 19);
    EXPECT_TRUE(stamp == LibLogging::GetTimeString(before) || stamp == LibLogging::GetTimeString(after)) << stamp;
}

TEST_F(LoggerTest, RawLineStartsWithBlank)
{
    logger->LogThreadId(true);
    logger->LogRaw("raw text");
    EXPECT_EQ(std::vector<std::string>{" raw text"}, FileLines());
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
    std::vector<std::string> lines = FileLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("      WARNING w"));
    EXPECT_NE(std::string::npos, lines[1].find("        ERROR e"));
    EXPECT_NE(std::string::npos, lines[2].find("        DEBUG direct")) << "Log has no level filter";

    logger->SetLoggingLevel(3);
    logger->LogMessage("m3");
    logger->LogRaw("r3");
    logger->LogDebug("d3");
    logger->SetLoggingLevel(4);
    logger->LogDebug("d4");
    logger->SetLoggingLevel(0);
    logger->LogError("never");
    lines = FileLines();
    ASSERT_EQ(6u, lines.size());
    EXPECT_NE(std::string::npos, lines[3].find("MESSAGE m3"));
    EXPECT_EQ(" r3", lines[4]);
    EXPECT_NE(std::string::npos, lines[5].find("DEBUG d4"));
}

TEST_F(LoggerTest, InitDefaultsAndEnableSwitch)
{
    EXPECT_EQ(5u, logger->GetLoggingLevel());
    EXPECT_TRUE(logger->IsVerbose());
    EXPECT_TRUE(logger->IsOutputDbgString());
    EXPECT_FALSE(logger->IsLogThreadId());
    EXPECT_FALSE(logger->IsLogRotationEnabled()) << "0 entries: no rotation";

    logger->Enabled(false);
    logger->LogError("dropped");
    logger->Enabled(true);
    logger->LogError("kept");
    const std::vector<std::string> lines = FileLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("kept"));
}

TEST(LoggingInit, NotEnabledByInitAndExtensionRule)
{
    KorvexTest::TempDir dir;
    LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
    ASSERT_TRUE(logger->Init(dir.file("plain"), 10, false));
    EXPECT_TRUE(logger->IsLogRotationEnabled());
    logger->LogError("before enabling");
    EXPECT_EQ(dir.file("plain.log"), logger->GetFileName());
    EXPECT_EQ("", ReadText(dir.file("plain.log")));

    ASSERT_TRUE(logger->Init(dir.file("named.log"), 10, false));
    EXPECT_EQ(dir.file("named.log"), logger->GetFileName());
    ASSERT_TRUE(logger->Init(dir.file("named.log.txt"), 10, false));
    EXPECT_EQ(dir.file("named.log.txt.log"), logger->GetFileName());
    logger->Destroy();
}

TEST(LoggingInit, UnopenableFileDropsEntriesSilently)
{
    KorvexTest::TempDir dir;
    LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
    EXPECT_FALSE(logger->Init(dir.file("no/such/dir/x"), 10, true));
    logger->Enabled(true);
    logger->LogError("nowhere");
    logger->LogToBuffer(Korvex::LOG_BUFFER_AND_FILE, 5);
    logger->LogError("nowhere either");
    EXPECT_EQ(0, logger->GetLogBufferSize());
    logger->Destroy();
}

TEST(LoggingInit, WithoutBackupEmptiesAndWithBackupKeepsEveryEarlierFile)
{
    KorvexTest::TempDir dir;
    KorvexTest::WriteText(dir.file("app.log"), "run one\n");
    LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());

    ASSERT_TRUE(logger->Init(dir.file("app"), 100, true));
    EXPECT_EQ("", ReadText(dir.file("app.log")));
    logger->Enabled(true);
    logger->LogError("run two");

    // A second start within the same second must not reuse the backup name.
    ASSERT_TRUE(logger->Init(dir.file("app"), 100, true));
    logger->Enabled(true);
    logger->LogError("run three");
    ASSERT_TRUE(logger->Init(dir.file("app"), 100, true));

    std::vector<std::string> names = KorvexTest::FileNames(dir.path());
    std::sort(names.begin(), names.end());
    ASSERT_EQ(4u, names.size());
    std::string all;
    for (const std::string& name : names) {
        EXPECT_TRUE(name == "app.log" || std::regex_match(name, std::regex(R"(app_\d+\.log)"))) << name;
        all += ReadText(dir.file(name));
    }
    EXPECT_NE(std::string::npos, all.find("run one"));
    EXPECT_NE(std::string::npos, all.find("run two"));
    EXPECT_NE(std::string::npos, all.find("run three"));
    EXPECT_EQ("", ReadText(dir.file("app.log")));

    ASSERT_TRUE(logger->Init(dir.file("app"), 100, false));
    EXPECT_EQ(4u, KorvexTest::FileNames(dir.path()).size()) << "no backup without the flag";
    logger->Destroy();
}

TEST_F(LoggerTest, FunctionStackAndTrace)
{
    logger->LogFunction("outer", Korvex::FUNCTION_IN);
    logger->LogFunction("inner", Korvex::FUNCTION_IN);
    logger->LogStackTrace();
    logger->LogFunction("inner", Korvex::FUNCTION_OUT);
    logger->LogStackTrace();
    logger->LogFunction("outer", Korvex::FUNCTION_OUT);
    logger->LogStackTrace();

    const std::vector<std::string> lines = FileLines();
    const std::vector<std::string> expected = {
        "  IN FUNCTION outer", "  IN FUNCTION inner", "   STACKTRACE outer", "   STACKTRACE inner",
        " OUT FUNCTION inner", "   STACKTRACE outer", " OUT FUNCTION outer"};
    ASSERT_EQ(expected.size(), lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(expected[i], lines[i].substr(19)) << i;
}

TEST_F(LoggerTest, BufferOnlyKeepsNewestFirstAndDropsOldest)
{
    logger->LogToBuffer(Korvex::LOG_BUFFER_ONLY, 3);
    EXPECT_TRUE(logger->IsLogToBuffer());
    for (const char* text : {"a", "b", "c", "d"})
        logger->LogError(text);
    logger->LogWarning("e");
    EXPECT_TRUE(FileLines().empty()) << "buffer-only mode writes nothing";

    const std::list<Korvex::LogBufferEntry> buffer = logger->GetLogBuffer();
    ASSERT_EQ(3, logger->GetLogBufferSize());
    auto it = buffer.begin();
    EXPECT_EQ("e", it->text);
    EXPECT_EQ(Korvex::LOG_WARNING, it->kind);
    EXPECT_EQ("d", (++it)->text);
    EXPECT_EQ("c", (++it)->text);

    logger->LogBufferToFile();
    const std::vector<std::string> lines = FileLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("        ERROR c", lines[0].substr(19));
    EXPECT_EQ("        ERROR d", lines[1].substr(19));
    EXPECT_EQ("      WARNING e", lines[2].substr(19));
    EXPECT_EQ(3, logger->GetLogBufferSize()) << "writing out does not empty or refill the buffer";

    logger->ClearLogBuffer();
    EXPECT_EQ(0, logger->GetLogBufferSize());
}

TEST_F(LoggerTest, BufferAndFileMode)
{
    logger->LogToBuffer(Korvex::LOG_BUFFER_AND_FILE, 10);
    logger->LogError("both");
    EXPECT_EQ(1u, FileLines().size());
    EXPECT_EQ(1, logger->GetLogBufferSize());
    logger->LogToBuffer(Korvex::LOG_BUFFER_NONE, 10);
    EXPECT_FALSE(logger->IsLogToBuffer());
    logger->LogError("file only");
    EXPECT_EQ(2u, FileLines().size());
    EXPECT_EQ(1, logger->GetLogBufferSize());
}

TEST(LoggingDestroy, ClosingLinesDependOnLevel)
{
    KorvexTest::TempDir dir;
    for (Korvex::LOG_LEVEL level : {1u, 4u}) {
        LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
        const std::string name = dir.file("destroy" + std::to_string(level));
        ASSERT_TRUE(logger->Init(name, 0, false));
        logger->Enabled(true);
        logger->SetLoggingLevel(level);
        logger->Destroy();
        const std::vector<std::string> lines = Lines(ReadText(name + ".log"));
        if (level == 1) {
            ASSERT_EQ(1u, lines.size());
            EXPECT_EQ("        DEBUG close LibLogging", lines[0].substr(19));
        } else {
            ASSERT_EQ(2u, lines.size());
            EXPECT_EQ("        DEBUG Destroy()", lines[0].substr(19));
            EXPECT_EQ("        DEBUG close LibLogging", lines[1].substr(19));
        }
    }
}
