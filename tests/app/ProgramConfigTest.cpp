// The registered configuration and path tables: every row, the irregular
// ones included, and the log file setting as path entry 0.
#include "app/ProgramConfig.h"
#include "base/Config.h"
#include "base/FileSystem.h"
#include "tests/app/AppTestSupport.h"

#include "tests/support/TestCommon.h"

namespace {

using Korvex::Config;

class ProgramConfigTest : public testing::Test {
protected:
    void SetUp() override
    {
        AppTests::WriteAllUsersConfig(m_dir.path(), "");
        GenerateConfig();
    }
    void TearDown() override { Config::GetHandle(0)->Destroy(); }

    void ExpectEntry(unsigned id, int sys, const std::string& path, const std::string& key)
    {
        Korvex::sConfig* entry = Config::GetHandle(0)->GetConfigEntry(id);
        ASSERT_NE(entry, nullptr) << "entry " << id;
        EXPECT_EQ(entry->type, Korvex::CONFIG_ALL_USERS) << "entry " << id;
        EXPECT_EQ(static_cast<int>(entry->sys), sys) << "entry " << id;
        EXPECT_EQ(entry->path, path) << "entry " << id;
        EXPECT_EQ(entry->key, key) << "entry " << id;
    }

    AppTests::ScratchDir m_dir;
};

// Rows come in pairs of both system types from the first number on. The
// driver group is irregular on purpose: two number pairs for
// EnableKorvexPinDialog and EnableExternalPin, and the spelling of
// PinEntryRequireSecuryMode.
TEST_F(ProgramConfigTest, EveryRowAndNoNumberAboveSixtyFour)
{
    const struct {
        unsigned first;
        const char* path;
        std::vector<const char*> keys;
    } pairs[] = {
        {0, "vessa Client", {"", "CheckForUpdates", "DXR", "InstallDir", "Updateable", "Version"}},
        {12, "vessa Client\\Trace", {"LogMode", "LogLevel", "Filename"}},
        {18, "vessa Client", {"DeleteLogfilesAfterXDays", "FixIt", "CleanCertsOnRefresh", "MakeDialogsStayOnTop"}},
        {27, "vessa Client", {"Language"}},
        {29, "VessaMiniDriver", {"EnableKorvexPinDialog", "EnableExternalPin", "EnableLogging",
                                 "EnableCardAuthenticateEx", "PinCachePolicyType", "PinCachePolicyInfo",
                                 "EnableOutputDebugString", "EnableKorvexPinDialog", "PinEntryRequireSecuryMode",
                                 "EnableExternalPin", "IgnoreAcosSubVersion", "CheckReaderCapabilities",
                                 "EnableDiagnostics", "DoExclusiveReconnect", "MiniDriverVersion",
                                 "MiniDriverMinVersion"}},
        {61, "vessa Client", {"AutoRefresh", "PKCS11Module"}},
    };
    for (const auto& group : pairs) {
        for (unsigned i = 0; i < group.keys.size(); ++i) {
            ExpectEntry(group.first + 2 * i, 0, group.path, group.keys[i]);
            ExpectEntry(group.first + 2 * i + 1, 1, group.path, group.keys[i]);
        }
    }
    ExpectEntry(26, 0, "Orbelia", "InstallDir"); // no twin: 27 is the Language entry
    EXPECT_EQ(Config::GetHandle(0)->GetConfigEntry(65), nullptr);
    EXPECT_EQ(Config::GetHandle(0)->GetConfigEntry(100), nullptr);
}

TEST_F(ProgramConfigTest, LogFileBecomesPathEntryZeroUnderTheUserDirectory)
{
    Config::GetHandle(0)->Destroy();
    AppTests::WriteAllUsersConfig(
        m_dir.path(), "<vessa_Client><Trace><Filename>logs/trace</Filename></Trace></vessa_Client>");
    GenerateConfig();
    GenerateFileSystem();

    Korvex::FileSystem* paths = Korvex::FileSystem::GetHandle();
    Korvex::_PathConfig* entry = paths->GetConfigEntry(VessaCards::PATH_LOGFILE);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->base, Korvex::BASE_USER);
    EXPECT_EQ(entry->path, "logs/trace");
    EXPECT_EQ(entry->file, "");
    // No application sub-folder: the entry sits directly below the user directory.
    EXPECT_EQ(paths->GetPath(VessaCards::PATH_LOGFILE, false),
              paths->GetUserDirectory() + "/logs/trace");
    for (unsigned unused = 1; unused <= 7; ++unused)
        EXPECT_EQ(paths->GetConfigEntry(unused), nullptr) << "path entry " << unused;
    paths->Destroy();
}

} // namespace
