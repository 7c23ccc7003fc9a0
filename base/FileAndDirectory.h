// Free helpers for joining paths and for reading, writing, copying and naming
// files. Failures are reported by the result, never by an exception.
#pragma once

#include <string>
#include <vector>

namespace Korvex {

std::string CombinePaths(const std::string& a, const std::string& b);
std::string CombinePaths(const std::string* parts, int count);
// "/a/b/c" gives "/a/b", "c" gives "", "/c" gives "/".
std::string RemoveLastPartFromPath(const std::string& path);
std::string GetFilenameFromPath(const std::string& path);

// `data` is allocated with new[] (the caller frees it with delete[]); it is
// null after a failure. An empty file gives false.
bool ReadCompleteFileBinary(const std::string& path, unsigned char** data, long& size);
std::string ReadCompleteFile(const std::string& path);
bool RenameFile(const std::string& from, const std::string& to);
bool RemoveFile(const std::string& path);
bool FileExists(const std::string& path);
bool CopyFile(const std::string& from, const std::string& to);
// An empty text gives false (the file is still created or emptied).
bool WriteToFile(const std::string& path, const std::string& text, bool removeFirst);

bool CreateOneDir(const std::string& dir);
bool CreateDirectories(const std::string& path);

// base "_" local time "%Y-%m-%d-%H-%M-%S" "." extension
std::string GenerateFilenameWithTimestamp(std::string base, std::string extension);
// directory / prefix + five-digit random number + ".tmp"
void GenerateTempFilename(std::string& out, const std::string& prefix, const std::string& directory);
void GenerateTempFilename(std::string& out, const std::string& prefix);

// $TMPDIR, else "/tmp/".
std::string GetTempDir();
// $HOME ("" when it is not set).
std::string GetUserDir();
// $KORVEX_ALLUSERS_DIR when set and not empty, else "/etc/".
std::string GetAllUsersDir();
// Directory of the running executable, without a closing "/".
std::string GetProgramDir();

// Appends the names (not paths) of the regular files in `dir`, hidden ones
// included; false when the directory cannot be read.
bool ListAllFilesInDirectory(const std::string& dir, std::vector<std::string>& names);

} // namespace Korvex
