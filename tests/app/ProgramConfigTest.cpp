// The registered configuration and path tables: every row, the irregular
// ones included, and how the entries meet the XML file.
#include "app/ProgramConfig.h"
#include "base/Config.h"
#include "base/FileSystem.h"
#include "tests/app/AppTestSupport.h"

#include <gtest/gtest.h>

#include <set>

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

} // namespace
