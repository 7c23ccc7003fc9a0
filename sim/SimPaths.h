// Where the simulator keeps its files, and the small file helpers it needs:
// every write goes to a temporary file that is renamed over the target, so
// a reader (or a crash) never sees half a file.
#pragma once

#include <string>
#include <vector>

namespace VessaSim {

// VESSA_SIM_STATE_DIR, else $HOME/.local/state/vessa-sim.
std::string stateDirectory();
// VESSA_SIM_KEY_DIR, else <state>/cards (keys next to each card's state).
std::string keyDirectory();
std::string controlFilePath();
std::string cardStateDirectory(const std::string& serial);
std::string cardKeyDirectory(const std::string& serial);

bool makeDirectories(const std::string& path);
bool writeFileAtomically(const std::string& path, const std::vector<unsigned char>& data);
bool writeFileAtomically(const std::string& path, const std::string& text);
bool readWholeFile(const std::string& path, std::vector<unsigned char>& out);
bool readWholeFile(const std::string& path, std::string& out);
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
