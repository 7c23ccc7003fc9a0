// Path joining and whole-file helpers. Every failure is a result value; a
// missing or empty file never ends in a crash or an exception.
#include "base/FileAndDirectory.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>

#include <sys/stat.h>

namespace Korvex {

namespace {

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

FilePtr OpenFile(const std::string& path, const char* mode)
{
    return FilePtr(std::fopen(path.c_str(), mode));
}

// Position of the separator before the last component, ignoring one closing "/".
std::string::size_type LastSeparator(const std::string& path, std::string::size_type& end)
{
    end = path.size();
    if (end > 1 && path[end - 1] == '/')
        --end;
    if (end == 0)
        return std::string::npos;
    return path.rfind('/', end - 1);
}

} // namespace

std::string CombinePaths(const std::string& a, const std::string& b)
{
    std::string result = a;
    if (!result.empty() && result.back() != '/')
        result += '/';
    if (!b.empty() && b[0] == '/')
        result.append(b, 1, std::string::npos);
    else
        result += b;
    return result;
}

std::string CombinePaths(const std::string* parts, int count)
{
    std::string result;
    for (int i = 0; parts && i < count; ++i)
        result = (i == 0) ? parts[0] : CombinePaths(result, parts[i]);
    return result;
}

std::string RemoveLastPartFromPath(const std::string& path)
{
    std::string::size_type end;
    const std::string::size_type sep = LastSeparator(path, end);
    if (sep == std::string::npos)
        return std::string();
    if (sep == 0)
        return "/";
    return path.substr(0, sep);
}

std::string GetFilenameFromPath(const std::string& path)
{
    std::string::size_type end;
    const std::string::size_type sep = LastSeparator(path, end);
    if (sep == std::string::npos)
        return path.substr(0, end);
    return path.substr(sep + 1, end - sep - 1);
}

bool ReadCompleteFileBinary(const std::string& path, unsigned char** data, long& size)
{
    if (!data)
        return false;
    *data = nullptr;
    size = 0;
    FilePtr file = OpenFile(path, "rb");
    if (!file)
        return false;
    // A directory opens fine but reports a nonsense size.
    struct stat info;
    if (fstat(fileno(file.get()), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    if (std::fseek(file.get(), 0, SEEK_END) != 0)
        return false;
    const long length = std::ftell(file.get());
    if (length <= 0 || std::fseek(file.get(), 0, SEEK_SET) != 0)
        return false;
    unsigned char* buffer = new (std::nothrow) unsigned char[static_cast<std::size_t>(length)]();
    if (!buffer)
        return false;
    if (std::fread(buffer, static_cast<std::size_t>(length), 1, file.get()) != 1) {
        delete[] buffer;
        return false;
    }
    *data = buffer;
    size = length;
    return true;
}

std::string ReadCompleteFile(const std::string& path)
{
    unsigned char* data = nullptr;
    long size = 0;
    if (!ReadCompleteFileBinary(path, &data, size))
        return std::string();
    std::string text(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
    delete[] data;
    return text;
}

bool RenameFile(const std::string& from, const std::string& to)
{
    return std::rename(from.c_str(), to.c_str()) == 0;
}

bool RemoveFile(const std::string& path)
{
    return std::remove(path.c_str()) == 0;
}

bool FileExists(const std::string& path)
{
    return OpenFile(path, "rb") != nullptr;
}

bool CopyFile(const std::string& from, const std::string& to)
{
    FilePtr source = OpenFile(from, "rb");
    if (!source)
        return false;
    FilePtr target = OpenFile(to, "wb");
    if (!target)
        return false;
    unsigned char block[1024];
    for (;;) {
        const std::size_t got = std::fread(block, 1, sizeof block, source.get());
        if (got > 0 && std::fwrite(block, 1, got, target.get()) != got)
            return false;
        if (got < sizeof block) {
            // A short block is the normal end of the file unless the read failed.
            if (std::ferror(source.get())) {
                std::fprintf(stderr, "WARNING: error during copy from %s\n", from.c_str());
                return false;
            }
            break;
        }
    }
    return std::fflush(target.get()) == 0;
}

bool WriteToFile(const std::string& path, const std::string& text, bool removeFirst)
{
    if (removeFirst)
        std::remove(path.c_str());
    FilePtr file = OpenFile(path, "wb");
    if (!file)
        return false;
    if (std::fwrite(text.data(), text.size(), 1, file.get()) != 1)
        return false;
    return std::fclose(file.release()) == 0;
}

bool CreateDirectories(const std::string& path)
{
    if (path.empty())
        return true;
    std::string::size_type pos = 0;
    while ((pos = path.find('/', pos + 1)) != std::string::npos) {
        if (!CreateOneDir(path.substr(0, pos)))
            return false;
    }
    return CreateOneDir(path);
}

std::string GenerateFilenameWithTimestamp(std::string base, std::string extension)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[80];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d-%H-%M-%S", &local);
    return base + "_" + stamp + "." + extension;
}

void GenerateTempFilename(std::string& out, const std::string& prefix, const std::string& directory)
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    char number[16];
    std::snprintf(number, sizeof number, "%05d", std::rand() % 100000);
    out = CombinePaths(directory, prefix + number + ".tmp");
}

void GenerateTempFilename(std::string& out, const std::string& prefix)
{
    GenerateTempFilename(out, prefix, GetTempDir());
}

} // namespace Korvex
