// Fuzz target: the settings store's own read path on an arbitrary settings
// file, then a read of every entry kind and one save. Nothing may abort; a
// file that did not parse is kept aside before the save replaces it.
#include "base/Config.h"
#include "base/FileAndDirectory.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

// Every input ends in a synced save; on a memory file system the sync costs
// nothing, which is what lets a campaign reach millions of inputs.
std::string Scratch()
{
    static std::string dir;
    if (dir.empty()) {
        char inMemory[] = "/dev/shm/fuzz-settings-XXXXXX";
        char onDisk[] = "/tmp/fuzz-settings-XXXXXX";
        char* made = mkdtemp(inMemory);
        if (made == nullptr)
            made = mkdtemp(onDisk);
        if (made == nullptr)
            std::abort();
        dir = made;
        setenv("KORVEX_ALLUSERS_DIR", (dir + "/etc/").c_str(), 1);
        setenv("HOME", (dir + "/home").c_str(), 1);
    }
    return dir;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string dir = Scratch() + "/etc/korvex/fuzz";
    Korvex::CreateDirectories(dir);
    for (const char* stale : {"/config", "/config.broken"})
        unlink((dir + stale).c_str());
    std::ofstream(dir + "/config", std::ios::binary).write(reinterpret_cast<const char*>(data), size);

    // Registered once: every registration is a store kept for the process's
    // life, and a growing heap sends libFuzzer into a leak scan per input.
    static Korvex::Config* const config = Korvex::Config::GetHandle(Korvex::Config::Register());
    if (!config->Init("fuzz"))
        std::abort();
    config->AddConfig(1, Korvex::CONFIG_ALL_USERS, "LogLevel", "vessa Client\\Trace", Korvex::SYS_64);
    config->AddConfig(2, Korvex::CONFIG_ALL_USERS, "Filename", "vessa Client\\Trace", Korvex::SYS_64);
    config->AddConfig(3, Korvex::CONFIG_ALL_USERS, "", "vessa Client", Korvex::SYS_64);
    long number = 0;
    std::string text;
    bool flag = false;
    config->GetInteger(1, number);
    config->GetString(2, text);
    config->GetBoolean(3, flag);
    config->GetStringBoolean(3, flag);
    if (!config->SetInteger(1, 3))
        std::abort();
    config->Destroy();
    return 0;
}
