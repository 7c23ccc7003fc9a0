// File locations of the simulator and atomic file writes.
#include "sim/SimPaths.h"

#include "base/FileAndDirectory.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace VessaSim {

namespace {

std::string environmentOr(const char* name, const std::string& fallback) {
    const char* value = std::getenv(name);
    return (value && *value) ? std::string(value) : fallback;
}

bool writeAll(int fd, const unsigned char* data, size_t size) {
    while (size > 0) {
        ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

FileStamp stampOf(const struct stat& info) {
    FileStamp stamp;
    stamp.exists = true;
    stamp.device = info.st_dev;
    stamp.inode = info.st_ino;
    stamp.size = info.st_size;
    stamp.mtimeSeconds = info.st_mtim.tv_sec;
    stamp.mtimeNanoseconds = info.st_mtim.tv_nsec;
    return stamp;
}

} // namespace

bool FileStamp::operator==(const FileStamp& other) const {
    if (exists != other.exists) return false;
    return !exists || (device == other.device && inode == other.inode && size == other.size &&
                       mtimeSeconds == other.mtimeSeconds && mtimeNanoseconds == other.mtimeNanoseconds);
}

FileStamp fileStamp(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 ? stampOf(info) : FileStamp();
}

std::string stateDirectory() {
    return environmentOr("VESSA_SIM_STATE_DIR",
                         environmentOr("HOME", "/tmp") + "/.local/state/vessa-sim");
}

// By default a card's keys sit in its own state directory; tests share one
// key directory between many state directories to make keys only once.
std::string keyDirectory() { return environmentOr("VESSA_SIM_KEY_DIR", stateDirectory() + "/cards"); }

std::string controlFilePath() { return stateDirectory() + "/control"; }

std::string cardStateDirectory(const std::string& serial) {
    return stateDirectory() + "/cards/" + serial;
}

std::string cardKeyDirectory(const std::string& serial) { return keyDirectory() + "/" + serial; }

bool makeDirectories(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
    Korvex::CreateDirectories(path);
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool writeFileAtomically(const std::string& path, const std::vector<unsigned char>& data, FileStamp* written) {
    std::string directory = Korvex::RemoveLastPartFromPath(path);
    if (!directory.empty() && !makeDirectories(directory)) return false;
    std::string temporary = path + ".tmp." + std::to_string(::getpid());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    bool ok = writeAll(fd, data.data(), data.size());
    // The file system stamps writes with a clock that only moves every few
    // milliseconds; a fine stamp lets other processes tell quick successive
    // versions apart.
    struct timespec now[2];
    clock_gettime(CLOCK_REALTIME, &now[0]);
    now[1] = now[0];
    struct stat info;
    if (ok && written) ok = ::futimens(fd, now) == 0 && ::fstat(fd, &info) == 0;
    ok = (::close(fd) == 0) && ok;
    if (ok && written) *written = stampOf(info);
    if (ok && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
}

bool writeFileAtomically(const std::string& path, const std::string& text, FileStamp* written) {
    return writeFileAtomically(path, std::vector<unsigned char>(text.begin(), text.end()), written);
}

bool readWholeFile(const std::string& path, std::vector<unsigned char>& out) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    out.clear();
    unsigned char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) out.insert(out.end(), buffer, buffer + got);
    bool ok = !std::ferror(file);
    std::fclose(file);
    return ok;
}

bool readWholeFile(const std::string& path, std::string& out) {
    std::vector<unsigned char> bytes;
    if (!readWholeFile(path, bytes)) return false;
    out.assign(bytes.begin(), bytes.end());
    return true;
}

bool readWholeFile(const std::string& path, std::string& out, FileStamp& stamp) {
    out.clear();
    stamp = FileStamp();
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    // The stamp of the descriptor, not of the path: another process renaming
    // a new version in between would otherwise pair this text with the
    // newer version's stamp, and that version would never be read.
    struct stat info;
    bool ok = ::fstat(fd, &info) == 0;
    if (ok) stamp = stampOf(info);
    char buffer[4096];
    while (ok) {
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            ok = got == 0;
            break;
        }
        out.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    return ok;
}

bool removeFile(const std::string& path) { return ::unlink(path.c_str()) == 0 || errno == ENOENT; }

FileLock::FileLock(const std::string& path) : m_fd(-1) {
    std::string directory = Korvex::RemoveLastPartFromPath(path);
    if (!directory.empty()) makeDirectories(directory);
    m_fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_fd >= 0) {
        while (::flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
}

FileLock::~FileLock() {
    if (m_fd >= 0) ::close(m_fd);
}

} // namespace VessaSim
