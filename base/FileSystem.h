// Registry of numbered path entries on top of the four base directories
// (user, all users, program, temporary).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Korvex {

enum BasePath : int {
    BASE_USER = 0,
    BASE_ALLUSERS = 1,
    BASE_PROGRAM = 2,
    BASE_TEMP = 3 // any value above 2 means the temporary directory
};

struct _PathConfig {
    BasePath base;
    std::string path; // relative directory, may be empty
    std::string file; // file name, may be empty
};

class FileSystem {
public:
    static FileSystem* GetHandle();

    // Stores the application sub-folder and fixes the base directories.
    void Initialize(std::string name);

    std::string GetUserDirectory() const { return m_userDir; }
    std::string GetAllUserDirectory() const { return m_allUsersDir; }
    std::string GetProgramDirectory() const { return m_programDir; }
    std::string GetTempDirectory() const { return m_tempDir; }

    void AddConfig(unsigned id, BasePath base, std::string path, std::string file);
    void AddConfigs(unsigned id, const _PathConfig* table, int count);
    _PathConfig* GetConfigEntry(unsigned id);

    // "" for an unknown entry. With `create` the directory is made; GetFile
    // also creates (or empties) the file itself.
    std::string GetPath(unsigned id, bool create);
    std::string GetFile(unsigned id, bool create);

    static std::string toNativeFS(const std::string& path);

    void Destroy();

    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;

private:
    FileSystem();
    void InitIntern();
    std::string BuildPath(const _PathConfig* entry, bool create) const;
    std::string BaseDirectory(BasePath base) const;

    std::string m_name;
    std::string m_userDir;
    std::string m_allUsersDir;
    std::string m_programDir;
    std::string m_tempDir;
    std::map<std::uint32_t, std::unique_ptr<_PathConfig>> m_entries;
};

} // namespace Korvex
