// A card's saved state shared between processes: version checks, atomic
// replacement and the lock around read-modify-write.
#include "sim/CardStateFile.h"

#include <cerrno>
#include <string>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace VessaSim {

namespace {

std::string stateFilePath(const std::string& serial) { return cardStateDirectory(serial) + "/state.xml"; }
std::string lockFilePath(const std::string& serial) { return cardStateDirectory(serial) + "/state.lock"; }

int openLockFile(const std::string& path, bool makeDirectory) {
    if (makeDirectory) makeDirectories(path.substr(0, path.find_last_of('/')));
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

void lockExclusive(int fd) {
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
}

} // namespace

CardStateFile::CardStateFile(const std::string& serial)
    : m_path(stateFilePath(serial)), m_lockPath(lockFilePath(serial)) {}

CardStateFile::~CardStateFile() {
    if (m_lockFd >= 0) ::close(m_lockFd);
}

bool CardStateFile::changedOnDisk() const { return fileStamp(m_path) != m_known; }

bool CardStateFile::read(std::string& text) {
    if (readWholeFile(m_path, text, m_known)) return true;
    // A file that exists but could not be read is tried again next time.
    m_known = FileStamp();
    return false;
}

bool CardStateFile::write(const std::string& text) {
    FileStamp written;
    if (!writeFileAtomically(m_path, text, &written)) return false;
    m_known = written;
    return true;
}

bool CardStateFile::remove() {
    m_known = FileStamp();
    return removeFile(m_path);
}

bool CardStateFile::setAside() {
    for (int n = 0; n < 10; ++n) {
        const std::string aside = m_path + ".broken" + (n == 0 ? "" : "." + std::to_string(n));
        if (::access(aside.c_str(), F_OK) == 0) continue;
        m_known = FileStamp();
        return ::rename(m_path.c_str(), aside.c_str()) == 0;
    }
    return false;
}

int CardStateFile::lockDescriptor() {
    // Opened once per card: the lock is taken on every PIN use.
    if (m_lockFd < 0) m_lockFd = openLockFile(m_lockPath, true);
    return m_lockFd;
}

CardStateFile::Lock::Lock(CardStateFile& file) : m_fd(file.lockDescriptor()) {
    // Without a lock file (a read-only state directory) the change cannot be
    // saved either, so going on unlocked loses nothing.
    if (m_fd >= 0) lockExclusive(m_fd);
}

CardStateFile::Lock::~Lock() {
    // Unlocked explicitly: a child forked meanwhile shares the descriptor
    // until it execs, and closing ours would not release the lock.
    if (m_fd >= 0) ::flock(m_fd, LOCK_UN);
}

bool removeCardState(const std::string& serial) {
    // No directory, no state to remove.
    const int fd = openLockFile(lockFilePath(serial), false);
    if (fd >= 0) lockExclusive(fd);
    const bool removed = removeFile(stateFilePath(serial));
    if (fd >= 0) ::close(fd);
    return removed;
}

} // namespace VessaSim
