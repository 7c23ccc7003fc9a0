// Opening, writing and copying owner-only files without following links.
#include "base/PrivateFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Korvex {

namespace {

const int kNoFollow = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;  // never wait on a planted FIFO

// The descriptor when it names a regular file of ours with one name (a hard
// link to someone else's file has two); otherwise it is closed and -1.
int KeepIfOwnRegularFile(int fd)
{
    struct stat info;
    if (fd >= 0 && (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != geteuid() ||
                    info.st_nlink != 1)) {
        ::close(fd);
        errno = EPERM;
        return -1;
    }
    if (fd >= 0)
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return fd;
}

int CreateNew(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | kNoFollow, 0600);
    // The process mask can only narrow the mode; make it exact.
    if (fd >= 0)
        fchmod(fd, 0600);
    return KeepIfOwnRegularFile(fd);
}

bool WriteAll(int fd, const char* data, std::size_t length)
{
    while (length > 0) {
        const ssize_t n = ::write(fd, data, length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        length -= static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace

PrivateFile::~PrivateFile() { close(); }

bool PrivateFile::open(const std::string& path, bool truncate)
{
    close();
    // Twice: the file may vanish between the failed creation and the open.
    for (int attempt = 0; attempt < 2 && m_fd < 0; ++attempt) {
        m_fd = CreateNew(path);
        if (m_fd >= 0 || errno != EEXIST)
            break;
        m_fd = KeepIfOwnRegularFile(::open(path.c_str(), O_WRONLY | O_APPEND | kNoFollow));
        if (m_fd >= 0 && (fchmod(m_fd, 0600) != 0 || (truncate && ftruncate(m_fd, 0) != 0)))
            close();
    }
    return m_fd >= 0;
}

void PrivateFile::close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

bool PrivateFile::write(const char* data, std::size_t length)
{
    return m_fd >= 0 && WriteAll(m_fd, data, length);
}

bool NameExists(const std::string& path)
{
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

long long CopyToNewPrivateFile(const std::string& source, const std::string& target)
{
    const int from = KeepIfOwnRegularFile(::open(source.c_str(), O_RDONLY | kNoFollow));
    if (from < 0)
        return -1;
    const int to = CreateNew(target);
    long long copied = to >= 0 ? 0 : -1;
    char buffer[65536];
    while (copied >= 0) {
        const ssize_t n = ::read(from, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0)
            break;
        if (n < 0 || !WriteAll(to, buffer, static_cast<std::size_t>(n)))
            copied = -1;
        else
            copied += n;
    }
    ::close(from);
    if (to >= 0 && ::close(to) != 0)
        copied = -1;
    if (to >= 0 && copied < 0)
        ::unlink(target.c_str());  // a partial copy would duplicate lines later
    return copied;
}

} // namespace Korvex
