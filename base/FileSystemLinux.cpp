// The platform's base directories and directory primitives.
#include "base/FileAndDirectory.h"

#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace Korvex {

namespace {

std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

} // namespace

std::string GetTempDir()
{
    // An empty TMPDIR would put temporary files in the working directory.
    const std::string value = Environment("TMPDIR");
    return value.empty() ? std::string("/tmp/") : value;
}

std::string GetUserDir()
{
    // Without HOME (a service, "env -i") the account's own home directory,
    // never the file system's root, holds the user's settings.
    const std::string home = Environment("HOME");
    if (!home.empty())
        return home;
    const struct passwd* account = getpwuid(getuid());
    return account != nullptr && account->pw_dir != nullptr ? std::string(account->pw_dir) : std::string();
}

std::string GetAllUsersDir()
{
    // Tests and packaging point the machine-wide settings elsewhere.
    const std::string overridden = Environment("KORVEX_ALLUSERS_DIR");
    return overridden.empty() ? std::string("/etc/") : overridden;
}

std::string GetProgramDir()
{
    char target[4096];
    const ssize_t n = readlink("/proc/self/exe", target, sizeof target - 1);
    if (n <= 0)
        return std::string();
    const std::string exe(target, static_cast<std::size_t>(n));
    const std::string::size_type slash = exe.rfind('/');
    return slash == std::string::npos ? std::string() : exe.substr(0, slash);
}

bool CreateOneDir(const std::string& dir)
{
    if (dir.empty())
        return true;
    struct stat info;
    if (stat(dir.c_str(), &info) == 0)
        return S_ISDIR(info.st_mode);
    if (mkdir(dir.c_str(), 0777) == 0)
        return true;
    // Another process may have made it in the meantime.
    return errno == EEXIST && stat(dir.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool ListAllFilesInDirectory(const std::string& dir, std::vector<std::string>& names)
{
    std::unique_ptr<DIR, int (*)(DIR*)> handle(opendir(dir.c_str()), closedir);
    if (!handle)
        return false;
    while (const dirent* entry = readdir(handle.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        struct stat info;
        // d_type is not filled on every file system; stat decides.
        if (stat(CombinePaths(dir, name).c_str(), &info) == 0 && S_ISREG(info.st_mode))
            names.push_back(name);
    }
    return true;
}

} // namespace Korvex
