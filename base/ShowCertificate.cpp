// Starts the external certificate viewer and writes the file it is given.
// A hand-off file is removed by the viewer once it has its own copy (or here,
// when no viewer could be started), so none stays behind in a shared folder.
//
// The viewer is started through an intermediate child that exits at once:
// the viewer is then adopted by init, which reaps it, and the caller only
// waits for the short-lived intermediate. No SIGCHLD handler is installed,
// so the toolkit's own child handling stays untouched.
#include "base/ShowCertificate.h"

#include <cerrno>
#include <cstring>
#include <vector>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Korvex {

namespace {

// Only async-signal-safe calls between fork and exec: the caller may have
// other threads holding locks.
void WriteAll(int fd, const char* text) {
    size_t left = strlen(text);
    while (left > 0) {
        ssize_t n = write(fd, text, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        text += n;
        left -= static_cast<size_t>(n);
    }
}

// environment: null for the process's own; handOff: remove `path` when the
// viewer cannot be started, as nobody else will.
[[noreturn]] void ExecViewer(const char* path, char* const* environment, bool handOff) {
    if (environment == nullptr) {
        execlp(kCertificateViewer, kCertificateViewer, path, static_cast<char*>(nullptr));
    } else {
        char* const arguments[] = {const_cast<char*>(kCertificateViewer), const_cast<char*>(path), nullptr};
        execvpe(kCertificateViewer, arguments, environment);
    }
    const int error = errno;
    if (handOff) unlink(path);
    // strerrordesc_np needs no locale and no allocation, unlike strerror.
    const char* reason = strerrordesc_np(error);
    WriteAll(STDERR_FILENO, "ERROR: can not execute ");
    WriteAll(STDERR_FILENO, kCertificateViewer);
    WriteAll(STDERR_FILENO, ": ");
    WriteAll(STDERR_FILENO, reason ? reason : "unknown error");
    WriteAll(STDERR_FILENO, "\n");
    _exit(255);
}

bool StartViewer(const std::string& path, bool handOff) {
    // Built before the fork: the child may only make async-signal-safe calls.
    std::vector<std::string> variables;
    std::vector<char*> environment;
    if (handOff) {
        const std::string prefix = std::string(kCertificateHandOffVariable) + "=";
        for (char** entry = environ; *entry != nullptr; ++entry)
            if (std::strncmp(*entry, prefix.c_str(), prefix.size()) != 0) environment.push_back(*entry);
        variables.push_back(prefix + path);
        environment.push_back(variables.back().data());
        environment.push_back(nullptr);
    }
    char* const* childEnvironment = handOff ? environment.data() : nullptr;
    const pid_t intermediate = fork();
    if (intermediate < 0) return false;
    if (intermediate == 0) {
        const pid_t viewer = fork();
        if (viewer == 0) ExecViewer(path.c_str(), childEnvironment, handOff);
        _exit(viewer < 0 ? 255 : 0);
    }
    int status = 0;
    while (waitpid(intermediate, &status, 0) < 0 && errno == EINTR) {
    }
    // The intermediate only fails when it could not fork the viewer.
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

bool ShowCertificate(std::string path) { return StartViewer(path, false); }

bool HandCertificateToViewer(const std::string& path) {
    if (StartViewer(path, true)) return true;
    unlink(path.c_str());
    return false;
}

bool WritePrivateFile(const std::string& path, const unsigned char* data, std::size_t length,
                      std::string* reason) {
    auto failed = [reason](const char* step) {
        if (reason != nullptr) *reason = std::string(step) + ": " + std::strerror(errno);
        return false;
    };
    // In a sticky folder another user's file cannot be removed: that is
    // reported, never worked around by writing into it.
    if (unlink(path.c_str()) != 0 && errno != ENOENT) return failed("cannot remove the file there");
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return failed("cannot create");
    // The process mask may have narrowed the mode; the viewer needs read access.
    bool ok = fchmod(fd, 0600) == 0;
    std::size_t written = 0;
    while (ok && written < length) {
        const ssize_t n = write(fd, data + written, length - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            ok = false;
            break;
        }
        written += static_cast<std::size_t>(n);
    }
    if (close(fd) != 0) ok = false;
    if (ok) return true;
    const int error = errno;
    unlink(path.c_str());  // a partial certificate helps nobody
    errno = error;
    return failed("cannot write");
}

} // namespace Korvex
