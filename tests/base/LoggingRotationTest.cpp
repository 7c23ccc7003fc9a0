// Log rotation by entries and by size: every line lands in exactly one file,
// also with two threads writing, no earlier file is ever overwritten, and no
// planted link is followed.
#include "base/Logging.h"

#include "tests/support/TestCommon.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
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

// In a folder others can write to, links planted at the log name and at every
// backup name the logger may try are never written through.
TEST(LogRotation, PlantedLinksAreNeverFollowed)
{
    TestSupport::TempDir dir;
    const std::string secret = dir.file("secret"), created = dir.file("created-by-link");
    TestSupport::WriteText(secret, "root only\n");
    TestSupport::WriteText(dir.file("rot.log"), "earlier run\n");
    const long now = static_cast<long>(std::time(nullptr));
    const std::pair<std::string, std::string> links[] = {
        {"linked.log", secret}, {"dangling.log", created}, {"rot_1.log", created}, {"rot_2.log", secret},
        {"rot_" + std::to_string(now) + ".log", created}, {"rot_" + std::to_string(now + 1) + ".log", created}};
    for (const auto& [name, target] : links)
        ASSERT_EQ(0, symlink(target.c_str(), dir.file(name).c_str())) << name;

    for (const char* name : {"linked", "dangling", "rot"}) {
        LibLogging* logger = LibLogging::GetHandle(LibLogging::Register());
        EXPECT_EQ(logger->Init(dir.file(name), 2, true), name[0] == 'r') << name;
        logger->Enabled(true);
        for (int i = 0; i < 3; ++i)
            logger->LogError("line " + std::to_string(i));
        logger->Destroy();
    }
    EXPECT_EQ("root only\n", ReadText(secret));
    EXPECT_FALSE(std::filesystem::exists(created));
    // The earlier run and the first two lines went to the next free names.
    const std::pair<const char*, std::size_t> files[] = {{"rot.log", 1}, {"rot_3.log", 1}, {"rot_4.log", 2}};
    for (const auto& [name, lines] : files) {
        struct stat info;
        ASSERT_EQ(0, lstat(dir.file(name).c_str(), &info)) << name;
        EXPECT_EQ(0600u, info.st_mode & 07777) << name;
        EXPECT_EQ(lines, SplitLines(ReadText(dir.file(name))).size()) << name;
    }
}
