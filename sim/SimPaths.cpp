// File locations of the simulator and atomic file writes.
#include "sim/SimPaths.h"

#include "base/FileAndDirectory.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
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

} // namespace

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

bool writeFileAtomically(const std::string& path, const std::vector<unsigned char>& data) {
    std::string directory = Korvex::RemoveLastPartFromPath(path);
    if (!directory.empty() && !makeDirectories(directory)) return false;
    std::string temporary = path + ".tmp." + std::to_string(::getpid());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    bool ok = writeAll(fd, data.data(), data.size());
    ok = (::close(fd) == 0) && ok;
    if (ok && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
}

bool writeFileAtomically(const std::string& path, const std::string& text) {
    return writeFileAtomically(path, std::vector<unsigned char>(text.begin(), text.end()));
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
