// Where the simulator keeps its files, and the small file helpers it needs:
// every write goes to a temporary file that is renamed over the target, so
// a reader (or a crash) never sees half a file.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace VessaSim {

// VESSA_SIM_STATE_DIR, else $HOME/.local/state/vessa-sim.
std::string stateDirectory();
// VESSA_SIM_KEY_DIR, else <state>/cards (keys next to each card's state).
std::string keyDirectory();
std::string controlFilePath();
std::string cardStateDirectory(const std::string& serial);
std::string cardKeyDirectory(const std::string& serial);

// What identifies one version of a file without reading it. Every atomic
// write gives the file a new inode and an mtime taken from a nanosecond
// clock, so two versions never look alike even within one timer tick.
struct FileStamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long mtimeSeconds = 0;
    long mtimeNanoseconds = 0;

    bool operator==(const FileStamp& other) const;
    bool operator!=(const FileStamp& other) const { return !(*this == other); }
};

// The stamp of a path (exists false when there is no such file).
FileStamp fileStamp(const std::string& path);

bool makeDirectories(const std::string& path);
// `written` (optional) receives the stamp of the new version.
bool writeFileAtomically(const std::string& path, const std::vector<unsigned char>& data,
                         FileStamp* written = nullptr);
bool writeFileAtomically(const std::string& path, const std::string& text, FileStamp* written = nullptr);
bool readWholeFile(const std::string& path, std::vector<unsigned char>& out);
bool readWholeFile(const std::string& path, std::string& out);
// Reads a file and the stamp of the very version read (false, stamp with
// exists false: no such file).
bool readWholeFile(const std::string& path, std::string& out, FileStamp& stamp);
bool removeFile(const std::string& path);

// Holds an exclusive advisory lock on a file for its lifetime, so that two
// processes sharing a key directory do not generate the same key twice.
class FileLock {
public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int m_fd;
};

} // namespace VessaSim
