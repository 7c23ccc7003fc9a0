// Log rotation by entries and by size: every line lands in exactly one file,
// also with two threads writing, and no earlier file is ever overwritten.
#include "base/Logging.h"

#include "tests/support/TestCommon.h"

#include <map>
#include <regex>
#include <set>

using Korvex::LibLogging;
using TestSupport::SplitLines;
using TestSupport::ReadText;

namespace {

struct AllFiles {
    std::map<std::string, std::vector<std::string>> linesByFile;
    std::size_t total = 0;
};

AllFiles ReadAllFiles(const std::string& dir)
{
    AllFiles all;
    for (const std::string& name : TestSupport::FileNames(dir)) {
        std::vector<std::string> lines = SplitLines(ReadText(dir + "/" + name));
        all.total += lines.size();
        all.linesByFile[name] = std::move(lines);
    }
    return all;
}

LibLogging* NewLogger(const std::string& path, unsigned entries)
{
    LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
    if (!logger->Init(path, entries, false))
        return nullptr;
    logger->Enabled(true);
    return logger;
}

} // namespace

TEST(LogRotation, Entry10001GoesToANewFile)
{
    TestSupport::TempDir dir;
    LibLogging* logger = NewLogger(dir.file("rot"), 10000);
    ASSERT_NE(nullptr, logger);
    ASSERT_TRUE(logger->IsLogRotationEnabled());
    for (int i = 1; i <= 10000; ++i)
        logger->LogError("entry " + std::to_string(i));
    EXPECT_EQ(1u, TestSupport::FileNames(dir.path()).size()) << "10000 entries still fit in one file";
    logger->LogError("entry 10001");

    const AllFiles all = ReadAllFiles(dir.path());
    ASSERT_EQ(2u, all.linesByFile.size());
    const std::vector<std::string>& current = all.linesByFile.at("rot.log");
    ASSERT_EQ(1u, current.size());
    EXPECT_NE(std::string::npos, current[0].find("ERROR entry 10001"));
    for (const auto& file : all.linesByFile) {
        if (file.first == "rot.log")
            continue;
        EXPECT_TRUE(std::regex_match(file.first, std::regex(R"(rot_\d+\.log)"))) << file.first;
        ASSERT_EQ(10000u, file.second.size());
        EXPECT_NE(std::string::npos, file.second.front().find("entry 1"));
        EXPECT_NE(std::string::npos, file.second.back().find("entry 10000"));
    }
    logger->Destroy();
}

TEST(LogRotation, BySizeKeepsFilesNearTheLimit)
{
    TestSupport::TempDir dir;
    LibLogging* logger = NewLogger(dir.file("size"), 0);
    ASSERT_NE(nullptr, logger);
    logger->LogRotationFileSize(true, 1000);
    EXPECT_TRUE(logger->IsLogRotationEnabled());
    const std::string text(50, 'x');
    for (int i = 0; i < 100; ++i)
        logger->LogError(text);
    // Each line: 19 + 13 + 1 + 50 + 1 = 84 bytes; 12 lines pass 1000 bytes.
    const AllFiles all = ReadAllFiles(dir.path());
    EXPECT_EQ(100u, all.total);
    EXPECT_EQ(9u, all.linesByFile.size());
    for (const auto& file : all.linesByFile)
        EXPECT_LE(file.second.size(), 12u) << file.first;
    logger->Destroy();
}

TEST(LogRotation, BackupsNeverOverwriteForeignFiles)
{
    TestSupport::TempDir dir;
    TestSupport::WriteText(dir.file("keep_1.log"), "precious\n");
    TestSupport::WriteText(dir.file("keep_3.log"), "also precious\n");
    LibLogging* logger = NewLogger(dir.file("keep"), 2);
    ASSERT_NE(nullptr, logger);
    for (int i = 0; i < 9; ++i)
        logger->LogError("line " + std::to_string(i));
    EXPECT_EQ("precious\n", ReadText(dir.file("keep_1.log")));
    EXPECT_EQ("also precious\n", ReadText(dir.file("keep_3.log")));
    const AllFiles all = ReadAllFiles(dir.path());
    EXPECT_EQ(9u + 2u, all.total);
    EXPECT_EQ(1u, all.linesByFile.at("keep.log").size());
    logger->Destroy();
}

TEST(LogRotation, TwoThreadsLoseAndDuplicateNothing)
{
    TestSupport::TempDir dir;
    LibLogging* logger = NewLogger(dir.file("threads"), 1000);
    ASSERT_NE(nullptr, logger);
    logger->LogThreadId(true);
    const int perThread = 15000;
    auto writer = [logger](char name) {
        for (int i = 0; i < perThread; ++i)
            logger->LogMessage(std::string(1, name) + "-" + std::to_string(i));
    };
    std::thread a(writer, 'a');
    std::thread b(writer, 'b');
    a.join();
    b.join();

    const AllFiles all = ReadAllFiles(dir.path());
    EXPECT_EQ(static_cast<std::size_t>(2 * perThread), all.total);
    std::set<std::string> seen;
    std::set<std::string> threadIds;
    const std::regex line(R"(^.{19}      MESSAGE \((\d+)\) ([ab]-\d+)$)");
    for (const auto& file : all.linesByFile) {
        EXPECT_LE(file.second.size(), 1000u) << file.first;
        for (const std::string& text : file.second) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(text, m, line)) << "torn or malformed line: " << text;
            threadIds.insert(m[1]);
            EXPECT_TRUE(seen.insert(m[2]).second) << "duplicated " << m[2];
        }
    }
    EXPECT_EQ(2u, threadIds.size());
    logger->Destroy();
}
