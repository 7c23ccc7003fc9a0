// Files that only their owner may read, opened so that nothing is ever
// written through a link somebody planted at the name: the log files and
// their backups. New files are made with O_CREAT|O_EXCL and mode 0600; an
// existing file is used only when it is a regular file of this user with no
// second name.
#pragma once

#include <cstddef>
#include <string>

namespace Korvex {

// An open log file: appends go straight to the file, without a buffer.
class PrivateFile {
public:
    PrivateFile() = default;
    ~PrivateFile();
    PrivateFile(const PrivateFile&) = delete;
    PrivateFile& operator=(const PrivateFile&) = delete;

    // Opens `path` for appending, emptied first with `truncate`; creates it
    // when missing. False for a link, a special file or a file of another user.
    bool open(const std::string& path, bool truncate);
    bool is_open() const { return m_fd >= 0; }
    void close();
    bool write(const char* data, std::size_t length);
    void flush() {}

private:
    int m_fd = -1;
};

// Whether anything, a dangling link included, has this name.
bool NameExists(const std::string& path);

// Copies the regular file `source` (never through a link) into a new file
// `target`, which must not exist yet. Returns the bytes copied, -1 on failure
// (a target it made is then removed again).
long long CopyToNewPrivateFile(const std::string& source, const std::string& target);

} // namespace Korvex
