// The saved state of one card as several processes share it (the card
// manager and a companion program may have the module loaded at the same
// time): the file itself, the version this process last read or wrote, so
// that a change made elsewhere shows with one stat, and a lock file that
// keeps two processes from interleaving their read-modify-write cycles.
#pragma once

#include "sim/SimPaths.h"

#include <string>

namespace VessaSim {

class CardStateFile {
public:
    explicit CardStateFile(const std::string& serial);
    ~CardStateFile();
    CardStateFile(const CardStateFile&) = delete;
    CardStateFile& operator=(const CardStateFile&) = delete;

    // True when the file is not the version last read or written here.
    bool changedOnDisk() const;
    // Reads the current version (empty text, false: there is none).
    bool read(std::string& text);
    // Replaces the file atomically.
    bool write(const std::string& text);
    bool remove();
    // Moves a damaged file out of the way, to the first free name of
    // "state.xml.broken", ".broken.1" ... ".broken.9", so that the next write
    // does not destroy what the user had. False when none was free.
    bool setAside();
    const std::string& path() const { return m_path; }

    // Holds the card's lock file (exclusive between processes) while alive.
    // Within one process the module mutex already serialises the callers.
    class Lock {
    public:
        explicit Lock(CardStateFile& file);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        int m_fd;
    };

private:
    int lockDescriptor();

    std::string m_path;
    std::string m_lockPath;
    FileStamp m_known;
    int m_lockFd = -1;
};

// Deletes the saved state of a card that is not loaded here, under its lock.
bool removeCardState(const std::string& serial);

} // namespace VessaSim
