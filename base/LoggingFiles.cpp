// Log files: opening at Init, the names of backups, and rotation. Backups are
// copies, so the configured name always holds the newest lines; every name is
// checked before use, so no earlier file is ever overwritten. The folder may
// be writable by others: a name that is a link is never followed (see
// PrivateFile), and every file is the user's own with mode 0600.
#include "base/Logging.h"

#include <cstdio>
#include <ctime>
#include <sys/stat.h>

namespace Korvex {

namespace {

const char kLogExtension[] = ".log";

bool EndsWithLogExtension(const std::string& name)
{
    const std::size_t n = sizeof kLogExtension - 1;
    return name.size() >= n && name.compare(name.size() - n, n, kLogExtension) == 0;
}

// A dangling link takes its name too: writing there would create its target.
bool NameIsTaken(const std::string& name)
{
    return NameExists(name);
}

bool NonEmptyFile(const std::string& name)
{
    struct stat info;
    return lstat(name.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0;
}

} // namespace

bool LibLogging::Init(const std::string& path, unsigned entries, bool backup)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_file.is_open())
        m_file.close();

    m_maxEntries = entries;
    // Entries per file only mean something when rotation by entries is on.
    m_rotateByEntries = entries > 0;
    m_level = 5;
    m_entries = 0;
    m_fileSize = 0;
    m_verbose = true;
    m_outputDbgString = true;
    m_logThreadId = false;
    m_fileName = AppendLogExtension(path);
    m_nextBackupNumber = 1;

    if (backup)
        return OpenFileAndRotate();
    return m_file.open(m_fileName, true);
}

std::string LibLogging::AppendLogExtension(const std::string& path) const
{
    return EndsWithLogExtension(path) ? path : path + kLogExtension;
}

void LibLogging::GetExtension(const std::string& name, std::string& base, std::string& extension)
{
    extension = "log";
    base = EndsWithLogExtension(name) ? name.substr(0, name.size() - (sizeof kLogExtension - 1)) : name;
}

std::string LibLogging::NameWithTimeStamp(const std::string& name) const
{
    std::string base, extension;
    GetExtension(name, base, extension);
    return base + "_" + std::to_string(static_cast<long long>(std::time(nullptr))) + "." + extension;
}

std::string LibLogging::NumberedName(const std::string& name)
{
    std::string base, extension;
    GetExtension(name, base, extension);
    for (unsigned n = m_nextBackupNumber;; ++n) {
        const std::string candidate = base + "_" + std::to_string(n) + "." + extension;
        if (!NameIsTaken(candidate)) {
            m_nextBackupNumber = n + 1;
            return candidate;
        }
    }
}

bool LibLogging::BackupFile(const std::string& backupName, bool removeOriginal)
{
    // Writes are unbuffered, so the file holds every line written so far.
    if (CopyToNewPrivateFile(m_fileName, backupName) < 0)
        return false;
    if (removeOriginal)
        std::remove(m_fileName.c_str());
    return true;
}

bool LibLogging::OpenFileAndRotate()
{
    bool keepOld = false;
    if (NonEmptyFile(m_fileName)) {
        std::string backupName = NameWithTimeStamp(m_fileName);
        if (NameIsTaken(backupName))
            backupName = NumberedName(m_fileName);
        // Without a copy the old lines stay where they are and new ones follow.
        keepOld = !BackupFile(backupName, true);
    }
    return m_file.open(m_fileName, !keepOld);
}

bool LibLogging::SplitLog()
{
    const std::string backupName = NumberedName(m_fileName);
    const bool saved = BackupFile(backupName, false);
    m_entries = 0;
    m_fileSize = 0;
    if (!saved)
        return false; // keep appending to the current file; try again later
    m_file.close();
    return m_file.open(m_fileName, true);
}

} // namespace Korvex
