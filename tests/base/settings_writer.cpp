// Helper of the kill test: writes the log level setting of the all-users
// file over and over, counting up from the number it is given, until it is
// killed.
#include "base/Config.h"

#include <cstdlib>

#include <unistd.h>

using namespace Korvex;

int main(int argc, char** argv)
{
    long value = argc > 1 ? std::atol(argv[1]) : 0;
    Config* store = Config::GetHandle(0);
    if (!store->Init("vessaclient") ||
        !store->AddConfig(15, CONFIG_ALL_USERS, "LogLevel", "vessa Client\\Trace", SYS_64))
        return 1;
    // Ready: the killer's clock starts now, not at the slow process start.
    if (write(STDOUT_FILENO, "R", 1) != 1)
        return 3;
    for (;;) {
        if (!store->SetInteger(15, value++))
            return 2;
    }
}
