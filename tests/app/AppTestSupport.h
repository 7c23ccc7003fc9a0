// Helpers of the application-shell tests: the program's all-users settings
// file and a started toolkit (without display) for the locale code.
#pragma once

#include "tests/support/TestCommon.h"

#include <wx/init.h>

namespace AppTests {

using ScratchDir = TestSupport::TempDir;

// Points the all-users directory at `dir` and writes the program's settings
// file there with the given XML body (inside <config>).
inline void WriteAllUsersConfig(const std::string& dir, const std::string& body)
{
    setenv("KORVEX_ALLUSERS_DIR", (dir + "/").c_str(), 1);
    TestSupport::WriteSettingsFile(dir, body);
}

// The toolkit's non-graphical part, started once for the whole test program.
class ToolkitEnvironment : public testing::Environment {
public:
    void SetUp() override { m_init = new wxInitializer(); }
    void TearDown() override
    {
        delete m_init;
        m_init = nullptr;
    }

private:
    wxInitializer* m_init = nullptr;
};

} // namespace AppTests
