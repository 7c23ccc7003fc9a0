// Path registry and file helpers: joining, splitting, whole-file reads and
// writes, copies, directories and the base directories' environment rules.
#include "base/FileAndDirectory.h"
#include "base/FileSystem.h"

#include "tests/support/TestCommon.h"

#include <pwd.h>

#include <regex>

using namespace Korvex;
using TestSupport::ReadText;
using TestSupport::WriteText;

TEST(Paths, CombineAndSplit)
{
    EXPECT_EQ("/etc/korvex", CombinePaths("/etc/", "korvex"));
    EXPECT_EQ("a/b", CombinePaths("a", "/b"));
    EXPECT_EQ("b", CombinePaths("", "b"));
    EXPECT_EQ("a/", CombinePaths("a", ""));
    const std::string parts[] = {"/home/u", ".korvex", "/vessaclient", "config"};
    EXPECT_EQ("/home/u/.korvex/vessaclient/config", CombinePaths(parts, 4));

    EXPECT_EQ("/var/log", RemoveLastPartFromPath("/var/log/app.log"));
    EXPECT_EQ("app.log", GetFilenameFromPath("/var/log/app.log"));
    EXPECT_EQ("", RemoveLastPartFromPath("x.log"));
    EXPECT_EQ("x.log", GetFilenameFromPath("x.log"));
    EXPECT_EQ("/", RemoveLastPartFromPath("/x.log"));
    EXPECT_EQ("/var", RemoveLastPartFromPath("/var/log/"));
}

TEST(Paths, TimestampAndTempNames)
{
    const std::string name = GenerateFilenameWithTimestamp("VessaCards", "log");
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(VessaCards_20\d\d-\d\d-\d\d-\d\d-\d\d-\d\d\.log)"))) << name;
    std::string temp;
    GenerateTempFilename(temp, "cert", "/scratch");
    EXPECT_TRUE(std::regex_match(temp, std::regex(R"(/scratch/cert\d{5}\.tmp)"))) << temp;
}

TEST(Environment, TempUserAndAllUsersDirectories)
{
    {
        TestSupport::EnvGuard tmp("TMPDIR", "/some/where");
        EXPECT_EQ("/some/where", GetTempDir()) << "no separator is added";
        unsetenv("TMPDIR");
        EXPECT_EQ("/tmp/", GetTempDir());
        setenv("TMPDIR", "", 1);
        EXPECT_EQ("/tmp/", GetTempDir()) << "an empty value does not count";
    }
    TestSupport::EnvGuard home("HOME", "");
    const struct passwd* account = getpwuid(getuid());
    ASSERT_NE(account, nullptr);
    EXPECT_EQ(account->pw_dir, GetUserDir()) << "without HOME, the account's home";
    // Set values: PathRegistry.BaseDirectoriesAndEntries.
    TestSupport::EnvGuard all("KORVEX_ALLUSERS_DIR", "");
    EXPECT_EQ("/etc/", GetAllUsersDir()) << "an empty value does not count";
}

TEST(Files, ReadCompleteFile)
{
    TestSupport::TempDir dir;
    WriteText(dir.file("data"), std::string("a\0b", 3));
    WriteText(dir.file("empty"), "");
    unsigned char* data = nullptr;
    long size = -1;
    ASSERT_TRUE(ReadCompleteFileBinary(dir.file("data"), &data, size));
    EXPECT_EQ(3, size);
    EXPECT_EQ(std::string("a\0b", 3), std::string(reinterpret_cast<char*>(data), 3));
    delete[] data;
    for (const std::string& bad : {dir.file("empty"), dir.file("missing"), dir.path()}) {
        EXPECT_FALSE(ReadCompleteFileBinary(bad, &data, size)) << bad;
        EXPECT_EQ(nullptr, data);
        EXPECT_EQ("", ReadCompleteFile(bad));
    }
    EXPECT_EQ(std::string("a\0b", 3), ReadCompleteFile(dir.file("data")));
}

TEST(Files, WriteRenameRemoveExists)
{
    TestSupport::TempDir dir;
    const std::string a = dir.file("a");
    EXPECT_FALSE(FileExists(a));
    EXPECT_TRUE(WriteToFile(a, "first version", false));
    EXPECT_TRUE(WriteToFile(a, "second", false));
    EXPECT_EQ("second", ReadText(a)) << "the file is rewritten, not appended to";
    EXPECT_FALSE(WriteToFile(a, "", true)) << "an empty text writes no block";
    EXPECT_TRUE(FileExists(a));
    EXPECT_FALSE(WriteToFile(dir.file("no/dir/x"), "x", false));

    EXPECT_TRUE(RenameFile(a, dir.file("b")));
    EXPECT_FALSE(FileExists(a));
    EXPECT_FALSE(RenameFile(a, dir.file("c")));
    EXPECT_TRUE(RemoveFile(dir.file("b")));
    EXPECT_FALSE(RemoveFile(dir.file("b")));
}

TEST(Files, CopyFileInBlocks)
{
    TestSupport::TempDir dir;
    for (std::size_t size : {0u, 1024u, 5000u}) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            content[i] = static_cast<char>(i % 251);
        WriteText(dir.file("src"), content);
        ASSERT_TRUE(CopyFile(dir.file("src"), dir.file("dst"))) << size;
        EXPECT_EQ(content, ReadText(dir.file("dst"))) << size;
    }
    EXPECT_FALSE(CopyFile(dir.file("missing"), dir.file("dst2")));
    EXPECT_FALSE(FileExists(dir.file("dst2")));
}

TEST(Directories, CreateAndList)
{
    TestSupport::TempDir dir;
    EXPECT_TRUE(CreateOneDir(""));
    EXPECT_TRUE(CreateDirectories(dir.file("x/y/z")));
    struct stat info;
    ASSERT_EQ(0, stat(dir.file("x/y/z").c_str(), &info));
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_TRUE(CreateOneDir(dir.file("x")));
    WriteText(dir.file("file"), "f");
    EXPECT_FALSE(CreateOneDir(dir.file("file")));
    EXPECT_FALSE(CreateDirectories(dir.file("file/below")));

    WriteText(dir.file(".hidden"), "h");
    std::vector<std::string> names = {"already there"};
    ASSERT_TRUE(ListAllFilesInDirectory(dir.path(), names));
    std::sort(names.begin() + 1, names.end());
    EXPECT_EQ((std::vector<std::string>{"already there", ".hidden", "file"}), names);
    EXPECT_FALSE(ListAllFilesInDirectory(dir.file("missing"), names));
    EXPECT_EQ(3u, names.size());
}

TEST(PathRegistry, BaseDirectoriesAndEntries)
{
    TestSupport::TempDir home, etc, tmp;
    TestSupport::EnvGuard h("HOME", home.path());
    TestSupport::EnvGuard a("KORVEX_ALLUSERS_DIR", etc.path());
    TestSupport::EnvGuard t("TMPDIR", tmp.path() + "/");

    FileSystem* fs = FileSystem::GetHandle();
    ASSERT_EQ(fs, FileSystem::GetHandle());
    fs->Initialize("");
    EXPECT_EQ(home.path() + "/.korvex", fs->GetUserDirectory());
    EXPECT_EQ(etc.path() + "/korvex", fs->GetAllUserDirectory());
    EXPECT_EQ(tmp.path() + "/", fs->GetTempDirectory());
    EXPECT_EQ(KORVEX_TEST_BINARY_DIR, fs->GetProgramDirectory());

    fs->AddConfig(0, BASE_USER, "logs", "");
    fs->AddConfig(1, BASE_ALLUSERS, "", "settings.xml");
    EXPECT_EQ(home.path() + "/.korvex/logs", fs->GetPath(0, false));
    EXPECT_FALSE(FileExists(home.path() + "/.korvex/logs"));
    fs->GetPath(0, true);
    EXPECT_TRUE(FileExists(home.path() + "/.korvex/logs")) << "create makes the directory";

    WriteText(etc.path() + "/korvex/settings.xml", "old");
    EXPECT_EQ(etc.path() + "/korvex/settings.xml", fs->GetFile(1, true));
    EXPECT_EQ("", ReadText(etc.path() + "/korvex/settings.xml")) << "create empties the file";
    EXPECT_EQ("", fs->GetFile(7, true));
    EXPECT_EQ(nullptr, fs->GetConfigEntry(7));

    const _PathConfig table[] = {{BASE_TEMP, "a", "f1"}, {static_cast<BasePath>(9), "", "f2"}};
    fs->AddConfigs(5, table, 2);
    fs->Initialize("app");
    EXPECT_EQ(tmp.path() + "/app/a/f1", fs->GetFile(5, false));
    EXPECT_EQ(tmp.path() + "/app/f2", fs->GetFile(6, false)) << "unknown bases mean the temporary directory";

    fs->Destroy();
    EXPECT_EQ("", fs->GetPath(0, false));
    fs->Initialize("");
}
