// The registered configuration and path tables as the settings file meets
// them: a relative log file name lands below the user directory.
#include "app/ProgramConfig.h"
#include "base/Config.h"
#include "base/FileSystem.h"
#include "tests/app/AppTestSupport.h"

#include <gtest/gtest.h>


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

    AppTests::ScratchDir m_dir;
};

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
