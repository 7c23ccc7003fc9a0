// The client version entry of the configuration, read by the token layer to
// decide whether the forced software PIN entry may be requested.
#include "token/ClientVersion.h"

#include "base/Config.h"

#include <cstdio>

namespace Korvex {

Config* ClientVersionConfig()
{
    // One store for the whole process; a function-local static keeps the
    // registration thread-safe and single.
    static const unsigned index = Config::Register();
    Config* config = Config::GetHandle(index);
    if (config == nullptr)
        return nullptr;
    config->Init("vessaclient");
    config->AddConfig(0, CONFIG_ALL_USERS, "", "vessa Client", SYS_32);
    config->AddConfig(kClientVersionEntry, CONFIG_ALL_USERS, "Version", "vessa Client", SYS_32);
    return config;
}

bool ParseClientVersion(const std::string& text, int32_t* version)
{
    int parts[4] = {0, 0, 0, 0};
    if (text.empty() ||
        std::sscanf(text.c_str(), "%d.%d.%d.%d", &parts[0], &parts[1], &parts[2], &parts[3]) != 4)
        return false;
    for (int i = 0; i < 4; ++i)
        version[i] = parts[i];
    return true;
}

} // namespace Korvex
