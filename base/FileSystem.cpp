// Registry of numbered path entries over the base directories.
#include "base/FileSystem.h"

#include "base/FileAndDirectory.h"

#include <cstdio>

namespace Korvex {

FileSystem* FileSystem::GetHandle()
{
    // Created on first use and kept for the life of the process.
    static FileSystem* instance = new FileSystem();
    return instance;
}

FileSystem::FileSystem()
{
    InitIntern();
}

void FileSystem::Initialize(std::string name)
{
    m_name = std::move(name);
    InitIntern();
}

void FileSystem::InitIntern()
{
    m_userDir = CombinePaths(GetUserDir(), ".korvex");
    m_allUsersDir = CombinePaths(GetAllUsersDir(), "korvex");
    m_programDir = GetProgramDir();
    m_tempDir = GetTempDir();
}

void FileSystem::AddConfig(unsigned id, BasePath base, std::string path, std::string file)
{
    m_entries[id] = std::unique_ptr<_PathConfig>(new _PathConfig{base, std::move(path), std::move(file)});
}

void FileSystem::AddConfigs(unsigned id, const _PathConfig* table, int count)
{
    for (int i = 0; table && i < count; ++i)
        AddConfig(id + static_cast<unsigned>(i), table[i].base, table[i].path, table[i].file);
}

_PathConfig* FileSystem::GetConfigEntry(unsigned id)
{
    const auto it = m_entries.find(id);
    return it == m_entries.end() ? nullptr : it->second.get();
}

std::string FileSystem::BaseDirectory(BasePath base) const
{
    switch (base) {
    case BASE_USER:
        return m_userDir;
    case BASE_ALLUSERS:
        return m_allUsersDir;
    case BASE_PROGRAM:
        return m_programDir;
    default:
        return m_tempDir;
    }
}

std::string FileSystem::BuildPath(const _PathConfig* entry, bool create) const
{
    std::string dir = BaseDirectory(entry->base);
    if (!m_name.empty())
        dir = CombinePaths(dir, m_name);
    if (!entry->path.empty())
        dir = CombinePaths(dir, entry->path);
    if (create)
        CreateDirectories(dir);
    return dir;
}

std::string FileSystem::GetPath(unsigned id, bool create)
{
    const _PathConfig* entry = GetConfigEntry(id);
    return entry ? BuildPath(entry, create) : std::string();
}

std::string FileSystem::GetFile(unsigned id, bool create)
{
    const _PathConfig* entry = GetConfigEntry(id);
    if (!entry)
        return std::string();
    const std::string file = CombinePaths(BuildPath(entry, create), entry->file);
    if (create) {
        if (std::FILE* f = std::fopen(file.c_str(), "wb"))
            std::fclose(f);
    }
    return file;
}

std::string FileSystem::toNativeFS(const std::string& path)
{
    return path;
}

void FileSystem::Destroy()
{
    m_entries.clear();
}

} // namespace Korvex
