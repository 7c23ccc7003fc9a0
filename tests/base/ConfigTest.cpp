// Configuration store over the XML back end: registry, entry table, path
// mangling and the written XML, preset-keeping reads, string booleans,
// atomic saves and the protection of unreadable files.
#include "base/Config.h"
#include "base/ConfigImpl_XML.h"
#include "base/FileAndDirectory.h"

#include "tests/support/TestCommon.h"

#include <regex>

using namespace Korvex;
using TestSupport::FileNames;
using TestSupport::ReadText;

namespace {

// Every test gets its own all-users and home directories and its own store.
class ConfigTest : public ::testing::Test {
protected:
    ConfigTest() : allUsers("KORVEX_ALLUSERS_DIR", etc.path() + "/"), home("HOME", homeDir.path()) {}
    void SetUp() override { store = NewStore(); }
    // Initialised store with a few rows of the program's table.
    static Config* NewStore(bool init = false)
    {
        Config* c = Config::GetHandle(Config::Register());
        if (init && c->Init("vessaclient")) {
            c->AddConfig(1, CONFIG_ALL_USERS, "", "vessa Client", SYS_64);
            c->AddConfig(14, CONFIG_ALL_USERS, "LogLevel", "vessa Client\\Trace", SYS_32);
            c->AddConfig(15, CONFIG_ALL_USERS, "LogLevel", "vessa Client\\Trace", SYS_64);
            c->AddConfig(17, CONFIG_ALL_USERS, "Filename", "vessa Client\\Trace", SYS_64);
            c->AddConfig(30, CONFIG_ALL_USERS, "Enable Logging", "VessaMiniDriver", SYS_64);
            c->AddConfig(40, CONFIG_CURRENT_USER, "Flag", "vessa Client", SYS_64);
        }
        return c;
    }
    std::string Dir() const { return etc.path() + "/korvex/vessaclient"; }
    std::string AllUsersFile() const { return Dir() + "/config"; }

    TestSupport::TempDir etc;
    TestSupport::TempDir homeDir;
    TestSupport::EnvGuard allUsers;
    TestSupport::EnvGuard home;
    TestSupport::LogCapture log{LibConfig::SetErrorLoggingFunc};
    Config* store = nullptr;
};

} // namespace

TEST(ConfigRegistry, FirstRegisterLeavesSlotZero)
{
    const unsigned a = Config::Register();
    EXPECT_GE(a, 1u);
    EXPECT_EQ(a + 1, Config::Register());
    Config* zero = Config::GetHandle(0);
    ASSERT_NE(nullptr, zero);
    EXPECT_EQ(zero, Config::GetHandle(0));
    EXPECT_NE(zero, Config::GetHandle(a));
    EXPECT_EQ(nullptr, Config::GetHandle(a + 1000));
}

TEST(ConfigRegPath, BuildRegPathAndMangling)
{
    ConfigImpl_XML impl;
    const std::string parts[] = {"config", "", "\\vessa Client\\Trace", "x\\"};
    EXPECT_EQ("config\\vessa Client\\Trace\\x\\", impl.BuildRegPath(parts, 4));
    const sConfig entry{CONFIG_ALL_USERS, "vessa Client\\Trace", "LogLevel", SYS_64};
    EXPECT_EQ("config.vessa_Client.Trace.", impl.getPath(&entry));
    EXPECT_EQ("config.vessa_Client.Trace.LogLevel", impl.getPathKey(&entry));
    const sConfig dotted{CONFIG_ALL_USERS, "a.b/c d", "Key Name", SYS_32};
    EXPECT_EQ("config.a_b.c_d.Key Name", impl.getPathKey(&dotted)) << "value name stays unchanged";
    impl.SetRootName("root");
    EXPECT_EQ("root.a_b.c_d.", impl.getPath(&dotted));
}

TEST_F(ConfigTest, EntriesNeedInitAndReplaceEachOther)
{
    EXPECT_FALSE(store->AddConfig(1, CONFIG_ALL_USERS, "k", "g", SYS_32));
    const sConfig table[] = {{CONFIG_ALL_USERS, "g", "a", SYS_32}, {CONFIG_ALL_USERS, "g", "b", SYS_64}};
    EXPECT_FALSE(store->AddConfigs(5, table, 2));
    EXPECT_FALSE(store->Init("vessaclient", CONFIG_BACKEND_NONE));
    long value = 3;
    EXPECT_FALSE(store->GetInteger(5, value)); // no back end: not reported

    ASSERT_TRUE(store->Init("vessaclient"));
    EXPECT_TRUE(store->Init("other")) << "a second Init keeps the first";
    EXPECT_EQ(std::vector<std::string>{"vessaclient"}, FileNames(etc.path() + "/korvex"));
    EXPECT_TRUE(store->AddConfigs(5, table, 2));
    EXPECT_EQ("b", store->GetConfigEntry(6)->key);
    EXPECT_TRUE(store->AddConfig(6, CONFIG_CURRENT_USER, "c", "h", SYS_32));
    EXPECT_EQ("c", store->GetConfigEntry(6)->key);

    EXPECT_FALSE(store->GetInteger(61, value));
    EXPECT_EQ(3, value);
    EXPECT_EQ(std::vector<std::string>{"config entry is NULL"}, log.errors()) << "the only line logged";
}

TEST_F(ConfigTest, MissingFileKeepsPresetAndFirstWriteCreatesIt)
{
    store = NewStore(true);
    long level = 42;
    EXPECT_FALSE(store->GetInteger(15, level));
    EXPECT_EQ(42, level);
    EXPECT_TRUE(FileNames(Dir()).empty()) << "reads never write";

    EXPECT_TRUE(store->SetInteger(15, 4));
    const std::string xml = ReadText(AllUsersFile());
    EXPECT_TRUE(std::regex_search(xml, std::regex(R"(^<\?xml version="1.0" encoding="utf-8"\?>)"))) << xml;
    EXPECT_TRUE(std::regex_search(
        xml, std::regex(R"(<config>\s*<vessa_Client>\s*<Trace>\s*<LogLevel>4</LogLevel>\s*</Trace>\s*</vessa_Client>\s*</config>)")))
        << xml;
    EXPECT_EQ(std::string::npos, xml.find('\t')) << "indent is made of blanks";
}

TEST_F(ConfigTest, TwinsShareAnElementTypesSelectTheFileAndValuesSurvive)
{
    store = NewStore(true);
    ASSERT_TRUE(store->SetInteger(14, 3));
    long level = 0;
    ASSERT_TRUE(store->GetInteger(15, level));
    EXPECT_EQ(3, level);
    ASSERT_TRUE(store->SetString(17, "/var/log/x.log"));
    ASSERT_TRUE(store->SetBoolean(40, true));
    EXPECT_NE(std::string::npos, ReadText(homeDir.path() + "/.korvex/vessaclient/config").find("<Flag>true</Flag>"));
    EXPECT_EQ(std::string::npos, ReadText(AllUsersFile()).find("Flag"));

    Config* second = NewStore(true);
    long reread = 0;
    std::string file;
    bool flag = false;
    EXPECT_TRUE(second->GetInteger(15, reread));
    EXPECT_TRUE(second->GetString(17, file));
    EXPECT_TRUE(second->GetBoolean(40, flag));
    EXPECT_EQ(3, reread);
    EXPECT_EQ("/var/log/x.log", file);
    EXPECT_TRUE(flag);
}

TEST_F(ConfigTest, BlankInValueNameIsKeptAndGroupTextIsReadable)
{
    store = NewStore(true);
    ASSERT_TRUE(store->SetString(30, "1"));
    EXPECT_NE(std::string::npos, ReadText(AllUsersFile()).find("<Enable Logging>1</Enable Logging>"));

    TestSupport::WriteText(AllUsersFile(), "<?xml version=\"1.0\"?><config><vessa_Client>5.1.0<Trace>"
                                          "<LogLevel>x</LogLevel></Trace></vessa_Client></config>");
    Config* second = NewStore(true);
    std::string version;
    EXPECT_TRUE(second->GetString(1, version));
    EXPECT_EQ("5.1.0", version);
    long level = 9;
    EXPECT_FALSE(second->GetInteger(15, level)) << "text that is no number";
    EXPECT_EQ(9, level);
}

TEST_F(ConfigTest, StringBooleans)
{
    store = NewStore(true);
    for (bool value : {true, false}) {
        std::string text;
        ASSERT_TRUE(store->SetStringBoolean(17, value));
        store->GetString(17, text);
        EXPECT_EQ(value ? "YES" : "NO", text);
    }
    const std::pair<const char*, bool> cases[] = {{"yes", true}, {"JA", true}, {"ja", true}, {"y", true},
                                                  {"True", true}, {"1", false}, {"on", false}, {"yess", false},
                                                  {"", false}};
    for (const auto& [text, expected] : cases) {
        ASSERT_TRUE(store->SetString(17, text));
        bool value = !expected;
        EXPECT_TRUE(store->GetStringBoolean(17, value));
        EXPECT_EQ(expected, value) << text;
    }
}

TEST_F(ConfigTest, RemoveKeyAndPath)
{
    store = NewStore(true);
    ASSERT_TRUE(store->SetInteger(15, 2));
    ASSERT_TRUE(store->SetString(17, "f"));
    EXPECT_EQ(std::vector<std::string>{"Trace"}, store->EnumSubDirs(1, ""));
    EXPECT_TRUE(store->RemoveKey(15));
    EXPECT_FALSE(store->RemoveKey(15)) << "nothing left to remove";
    std::string xml = ReadText(AllUsersFile());
    EXPECT_EQ(std::string::npos, xml.find("LogLevel"));
    EXPECT_NE(std::string::npos, xml.find("<Filename>f</Filename>"));
    EXPECT_TRUE(store->RemovePath(17));
    xml = ReadText(AllUsersFile());
    EXPECT_EQ(std::string::npos, xml.find("Trace"));
    EXPECT_NE(std::string::npos, xml.find("vessa_Client"));
}

TEST_F(ConfigTest, SaveIsAtomicKeepsModeAndLeavesNoTemporaryFiles)
{
    store = NewStore(true);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(store->SetInteger(15, i));
    EXPECT_EQ(std::vector<std::string>{"config"}, FileNames(Dir()));
    struct stat info;
    ASSERT_EQ(0, stat(AllUsersFile().c_str(), &info));
    EXPECT_EQ(0644u, info.st_mode & 0777u) << "machine-wide settings stay readable";
    ASSERT_EQ(0, chmod(AllUsersFile().c_str(), 0600));
    ASSERT_TRUE(store->SetInteger(15, 99));
    ASSERT_EQ(0, stat(AllUsersFile().c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 0777u) << "an existing file keeps its mode";
}

TEST_F(ConfigTest, FailedWriteKeepsValueInMemory)
{
    store = NewStore(true);
    // A plain file where the settings directory should be: nothing can be
    // written there, whatever rights the test runs with.
    ASSERT_EQ(0, rmdir(Dir().c_str()));
    TestSupport::WriteText(Dir(), "in the way");
    EXPECT_FALSE(store->SetInteger(15, 8));
    long level = 0;
    EXPECT_TRUE(store->GetInteger(15, level));
    EXPECT_EQ(8, level);
    EXPECT_EQ("in the way", ReadText(Dir()));
    EXPECT_EQ(std::vector<std::string>{"vessaclient"}, FileNames(etc.path() + "/korvex")) << "no temporary file left";
}

TEST_F(ConfigTest, BrokenFileIsKeptBeforeTheFirstWrite)
{
    ASSERT_TRUE(CreateDirectories(Dir()));
    const std::string broken = "<config><vessa_Client>unclosed";
    TestSupport::WriteText(AllUsersFile(), broken);
    TestSupport::WriteText(AllUsersFile() + ".broken", "earlier copy");

    store = NewStore(true);
    ASSERT_TRUE(store->IsInitialized()) << "a broken file is no error at start";
    long level = 5;
    EXPECT_FALSE(store->GetInteger(15, level));
    EXPECT_EQ(5, level);
    EXPECT_EQ(broken, ReadText(AllUsersFile())) << "reading never rewrites";

    ASSERT_TRUE(store->SetInteger(15, 1));
    EXPECT_EQ("earlier copy", ReadText(AllUsersFile() + ".broken"));
    EXPECT_EQ(broken, ReadText(AllUsersFile() + ".broken.1"));
    EXPECT_NE(std::string::npos, ReadText(AllUsersFile()).find("<LogLevel>1</LogLevel>"));
    ASSERT_TRUE(store->SetInteger(15, 2));
    EXPECT_EQ(3u, FileNames(Dir()).size()) << "the copy is made once";
}

TEST_F(ConfigTest, UnusableFilesLeaveTheDefaultsAndStayAsTheyWere)
{
    struct Case {
        const char* what;
        std::function<void(const std::string&)> make;
        const char* logged; // reason in the log line, null: silent
    };
    const Case cases[] = {
        {"directory", [](const std::string& f) { mkdir(f.c_str(), 0755); }, "is not a regular file"},
        {"dangling link", [](const std::string& f) { ASSERT_EQ(0, symlink((f + ".gone").c_str(), f.c_str())); }, nullptr},
        {"empty", [](const std::string& f) { TestSupport::WriteText(f, ""); }, nullptr},
        {"garbage", [](const std::string& f) { TestSupport::WriteText(f, "PK\x03\x04<<\xff\xfe"); },
         "is not well-formed XML"},
        {"truncated", [](const std::string& f) { TestSupport::WriteText(f, "<config><vessa_Client><Trace><Log"); },
         "is not well-formed XML"},
        {"huge", [](const std::string& f) { TestSupport::WriteText(f, "<config>"); ASSERT_EQ(0, truncate(f.c_str(), 100 << 20)); },
         "is too large to be settings"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove_all(Dir());
        ASSERT_TRUE(CreateDirectories(Dir()));
        c.make(AllUsersFile());
        struct stat before;
        ASSERT_EQ(0, lstat(AllUsersFile().c_str(), &before));
        log.clear();
        store = NewStore(true);
        ASSERT_TRUE(store->IsInitialized());
        long level = 7;
        EXPECT_FALSE(store->GetInteger(15, level));
        EXPECT_EQ(7, level);
        if (c.logged != nullptr) {
            ASSERT_EQ(1u, log.errors().size());
            EXPECT_NE(std::string::npos, log.errors()[0].find(AllUsersFile() + " " + c.logged)) << log.errors()[0];
        } else {
            EXPECT_TRUE(log.errors().empty());
        }
        struct stat after;
        ASSERT_EQ(0, lstat(AllUsersFile().c_str(), &after));
        EXPECT_EQ(before.st_mode, after.st_mode);
        EXPECT_EQ(before.st_size, after.st_size) << "reading never changes the file";
        store->Destroy();
    }
}

TEST_F(ConfigTest, StaleTemporaryFilesOfKilledWritesGoAtTheNextWrite)
{
    store = NewStore(true);
    const std::string stale = AllUsersFile() + ".tmpAbC123";
    const std::string recent = AllUsersFile() + ".tmpXyZ789";
    const std::string foreign = AllUsersFile() + ".tmp-notes";
    for (const std::string& file : {stale, recent, foreign})
        TestSupport::WriteText(file, "partial");
    const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::minutes(5);
    std::filesystem::last_write_time(stale, old);
    std::filesystem::last_write_time(foreign, old);
    ASSERT_TRUE(store->SetInteger(15, 3));
    std::vector<std::string> left = FileNames(Dir());
    std::sort(left.begin(), left.end());
    EXPECT_EQ((std::vector<std::string>{"config", "config.tmp-notes", "config.tmpXyZ789"}), left)
        << "only our own temporary files, and only stale ones, are removed";
}
