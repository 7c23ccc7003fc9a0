// Settings survive a crash: a writer killed with SIGKILL at random moments
// leaves the settings file with either the old or the new content, never a
// broken or lost one.
#include "tests/support/TestCommon.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <signal.h>

#include <random>

namespace {

namespace fs = std::filesystem;

// The value in the file, or -1 when the file is there but broken.
long ReadLevel(const std::string& file)
{
    try {
        boost::property_tree::ptree tree;
        boost::property_tree::read_xml(file, tree);
        return tree.get<long>("config.vessa_Client.Trace.LogLevel");
    } catch (const std::exception&) {
        return -1;
    }
}

int TemporaryFiles(const std::string& dir)
{
    int count = 0;
    std::error_code error;
    for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error))
        count += it->path().filename().string().rfind("config.tmp", 0) == 0;
    return count;
}

// Starts a writer and returns once it is about to write (its start-up, slow
// under the sanitizers, is not part of the random moment).
pid_t StartWriter(long from)
{
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ready[1], STDOUT_FILENO);
        close(ready[0]);
        const std::string writer = KORVEX_SETTINGS_WRITER;
        const std::string start = std::to_string(from);
        execl(writer.c_str(), writer.c_str(), start.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(ready[1]);
    char signal = 0;
    if (read(ready[0], &signal, 1) != 1)
        signal = 0;
    close(ready[0]);
    return signal == 'R' ? pid : -1;
}

TEST(SettingsKillTest, KilledWritesLeaveTheOldOrTheNewContent)
{
    TestSupport::TempDir etc;
    TestSupport::EnvGuard allUsers("KORVEX_ALLUSERS_DIR", etc.path() + "/");
    const std::string dir = etc.path() + "/korvex/vessaclient";
    const std::string file = dir + "/config";
    const char* loops = std::getenv("KORVEX_KILL_LOOPS");  // 1000 for the full run
    const int kills = loops != nullptr && std::atoi(loops) > 0 ? std::atoi(loops) : 60;

    std::mt19937 random(20261125);
    std::uniform_int_distribution<int> moment(500, 12000);  // microseconds
    long seen = -1;
    int broken = 0, lost = 0, exited = 0;
    for (int kill = 0; kill < kills; ++kill) {
        const long from = static_cast<long>(kill) * 100000000L;
        const pid_t writer = StartWriter(from);
        ASSERT_GT(writer, 0);
        usleep(static_cast<useconds_t>(moment(random)));
        ::kill(writer, SIGKILL);
        int status = 0;
        waitpid(writer, &status, 0);
        exited += !WIFSIGNALED(status);
        if (!fs::exists(file)) {
            lost += seen >= 0;
            continue;
        }
        const long level = ReadLevel(file);
        // The old content or something this or an earlier writer wrote.
        if (level < 0 || level < seen)
            ++broken;
        else
            seen = level;
    }
    std::printf("%d kills: %d broken, %d lost settings files, %d temporary files left\n", kills, broken, lost,
                TemporaryFiles(dir));
    EXPECT_EQ(broken, 0);
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(exited, 0) << "the writer ended by itself";
    EXPECT_GT(seen, 0) << "no write got through";
}

} // namespace
