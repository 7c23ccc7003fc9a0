// Process start-up: when the settings switch the log on and where it goes.
#include "app/AppStartup.h"

#include "tests/support/TestCommon.h"

namespace {

using VessaCards::LogDirectoryFromSettings;

TEST(LogDirectoryFromSettings, NeedsAPositiveLevelAndAPathOfFiveCharactersAndDropsAFileNameEndingInLog)
{
    const struct {
        long level;
        const char* path;
        const char* dir; // null: no log
    } cases[] = {
        {0, "/var/log/vessa", nullptr}, {-3, "/var/log/vessa", nullptr}, {1, "/var", nullptr}, {5, "", nullptr},
        {1, "/var/", "/var/"}, {99, "/var/log/vessa", "/var/log/vessa"}, // any level of 1 or more only switches it on
        {1, "/var/log/vessa/trace.log", "/var/log/vessa"}, {1, "/var/log/vessa/TRACE.LOG", "/var/log/vessa"},
        {1, "a.log", ""},                  // a bare name of five characters: the working directory
        {1, "/srv/a.logs", "/srv/a.logs"}, // ".log" in the middle is not a suffix
    };
    for (const auto& c : cases) {
        std::string dir = "unchanged";
        EXPECT_EQ(LogDirectoryFromSettings(c.level, c.path, dir), c.dir != nullptr) << c.level << " " << c.path;
        EXPECT_EQ(dir, c.dir != nullptr ? c.dir : "unchanged") << c.level << " " << c.path;
    }
}

} // namespace
