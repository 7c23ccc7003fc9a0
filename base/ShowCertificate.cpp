// Starts the external certificate viewer and writes the file it is given.
//
// The viewer is started through an intermediate child that exits at once:
// the viewer is then adopted by init, which reaps it, and the caller only
// waits for the short-lived intermediate. No SIGCHLD handler is installed,
// so the toolkit's own child handling stays untouched.
#include "base/ShowCertificate.h"

#include <cerrno>
#include <cstring>
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

[[noreturn]] void ExecViewer(const char* path) {
    execlp(kCertificateViewer, kCertificateViewer, path, static_cast<char*>(nullptr));
    const int error = errno;
    // strerrordesc_np needs no locale and no allocation, unlike strerror.
    const char* reason = strerrordesc_np(error);
    WriteAll(STDERR_FILENO, "ERROR: can not execute ");
    WriteAll(STDERR_FILENO, kCertificateViewer);
    WriteAll(STDERR_FILENO, ": ");
    WriteAll(STDERR_FILENO, reason ? reason : "unknown error");
    WriteAll(STDERR_FILENO, "\n");
    _exit(255);
}

} // namespace

bool ShowCertificate(std::string path) {
    const pid_t intermediate = fork();
    if (intermediate < 0) return false;
    if (intermediate == 0) {
        const pid_t viewer = fork();
        if (viewer == 0) ExecViewer(path.c_str());
        _exit(viewer < 0 ? 255 : 0);
    }
    int status = 0;
    while (waitpid(intermediate, &status, 0) < 0 && errno == EINTR) {
    }
    // The intermediate only fails when it could not fork the viewer.
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool WritePrivateFile(const std::string& path, const unsigned char* data, std::size_t length) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) return false;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    // The process mask may have narrowed the mode; the viewer needs read access.
    bool ok = fchmod(fd, 0600) == 0;
    std::size_t written = 0;
    while (ok && written < length) {
        const ssize_t n = write(fd, data + written, length - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        written += static_cast<std::size_t>(n);
    }
    if (close(fd) != 0) ok = false;
    return ok;
}

} // namespace Korvex
