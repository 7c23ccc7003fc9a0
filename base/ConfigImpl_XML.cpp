// XML back end of the configuration store. Each file is read once at Init and
// written whole after every change: first to a temporary file in the same
// directory, synced, then renamed over the old one, so a crash never leaves a
// half-written settings file. A file that did not parse is copied aside before
// it is replaced, so nobody's hand-edited settings vanish silently. Whatever
// the user's machine holds at a settings path (a directory, garbage, a huge
// file) leaves the defaults in force with one log line; it never aborts.
#include "base/ConfigImpl_XML.h"

#include "base/FileAndDirectory.h"

#include <boost/property_tree/xml_parser.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <sstream>

namespace Korvex {

namespace pt = boost::property_tree;

namespace {

// "\" and "/" separate groups; "." and blanks would break the tree path.
std::string MangleRegPath(const std::string& regPath)
{
    std::string out = regPath;
    for (char& c : out) {
        if (c == '\\' || c == '/')
            c = '.';
        else if (c == '.' || c == ' ')
            c = '_';
    }
    return out;
}

// Tree path of an element; a closing separator would name an element without
// a name, so the group path addresses the group element itself.
pt::ptree::path_type TreePath(std::string path)
{
    if (!path.empty() && path.back() == '.')
        path.pop_back();
    return pt::ptree::path_type(path, '.');
}

void SplitLast(std::string path, std::string& parent, std::string& last)
{
    if (!path.empty() && path.back() == '.')
        path.pop_back();
    const std::string::size_type dot = path.rfind('.');
    if (dot == std::string::npos) {
        parent.clear();
        last = path;
    } else {
        parent = path.substr(0, dot);
        last = path.substr(dot + 1);
    }
}

bool WriteAll(int fd, const std::string& data)
{
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

void SyncDirectory(const std::string& dir)
{
    const int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// Settings files are a few kilobytes; anything far larger is not ours to parse.
constexpr off_t kMaxSettingsFileBytes = 1 << 20;

void LogUnusable(const std::string& file, const char* reason)
{
    LibConfig::LogError(("settings file " + file + " " + reason + "; its defaults are used").c_str());
}

// A write killed between its temporary file and the rename leaves that file
// behind. Ours are "<file>.tmp" plus six characters; one older than a minute
// cannot belong to a write still under way.
void RemoveStaleTemporaryFiles(const std::string& file)
{
    namespace fs = std::filesystem;
    const fs::path target(file);
    const std::string prefix = target.filename().string() + ".tmp";
    std::error_code error;
    const auto now = fs::file_time_type::clock::now();
    for (fs::directory_iterator it(target.parent_path(), error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (name.size() != prefix.size() + 6 || name.compare(0, prefix.size(), prefix) != 0 ||
            !std::all_of(name.begin() + prefix.size(), name.end(), [](unsigned char c) { return std::isalnum(c); }))
            continue;
        std::error_code ignored;
        const auto written = fs::last_write_time(it->path(), ignored);
        if (!ignored && it->is_regular_file(ignored) && now - written > std::chrono::minutes(1))
            fs::remove(it->path(), ignored);
    }
}

// Replaces `file` by `data` through a synced temporary file and a rename.
bool ReplaceFileAtomically(const std::string& file, const std::string& data)
{
    const std::string dir = RemoveLastPartFromPath(file);
    RemoveStaleTemporaryFiles(file);
    std::string pattern = file + ".tmpXXXXXX";
    const int fd = ::mkstemp(&pattern[0]);
    if (fd < 0)
        return false;
    // Keep the old file's permissions; a new file is readable by everyone,
    // which the machine-wide settings need.
    struct stat old;
    const mode_t mode = (::stat(file.c_str(), &old) == 0) ? (old.st_mode & 07777) : 0644;
    bool ok = ::fchmod(fd, mode) == 0;
    ok = ok && WriteAll(fd, data);
    ok = ok && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    ok = ok && ::rename(pattern.c_str(), file.c_str()) == 0;
    if (!ok) {
        ::unlink(pattern.c_str());
        return false;
    }
    SyncDirectory(dir);
    return true;
}

} // namespace

int ConfigImpl_XML::Slot(ConfigType type)
{
    return type == CONFIG_ALL_USERS ? 1 : 0;
}

std::string ConfigImpl_XML::GetFileName(ConfigType type) const
{
    return m_files[Slot(type)];
}

std::string ConfigImpl_XML::getPath(const sConfig* entry) const
{
    const std::string parts[2] = {GetRootName(), entry->path};
    return MangleRegPath(BuildRegPath(parts, 2));
}

std::string ConfigImpl_XML::getPathKey(const sConfig* entry) const
{
    return getPath(entry) + entry->key;
}

bool ConfigImpl_XML::DoInit()
{
    const std::string allUsersDir = CombinePaths(CombinePaths(GetAllUsersDir(), "korvex"), m_name);
    CreateDirectories(allUsersDir);
    m_files[Slot(CONFIG_ALL_USERS)] = CombinePaths(allUsersDir, "config");

    const std::string userDir = CombinePaths(CombinePaths(GetUserDir(), ".korvex"), m_name);
    CreateDirectories(userDir);
    m_files[Slot(CONFIG_CURRENT_USER)] = CombinePaths(userDir, "config");

    read(CONFIG_ALL_USERS);
    read(CONFIG_CURRENT_USER);
    // Missing or unreadable files are not an error: the first write makes them.
    return true;
}

bool ConfigImpl_XML::DoDestroy()
{
    for (pt::ptree& tree : m_trees)
        tree.clear();
    return true;
}

bool ConfigImpl_XML::read(ConfigType type)
{
    const int slot = Slot(type);
    m_trees[slot].clear();
    m_broken[slot] = false;
    const std::string& file = m_files[slot];
    struct stat info;
    if (::stat(file.c_str(), &info) != 0)
        return false; // missing (or a dangling link): the first write makes it
    if (!S_ISREG(info.st_mode)) {
        LogUnusable(file, "is not a regular file");
        return false;
    }
    if (info.st_size > kMaxSettingsFileBytes) {
        LogUnusable(file, "is too large to be settings");
        m_broken[slot] = true;
        return false;
    }
    const std::string content = ReadCompleteFile(file);
    if (content.empty()) {
        if (info.st_size > 0)
            LogUnusable(file, "cannot be read");
        return false;
    }
    try {
        std::istringstream in(content);
        pt::read_xml(in, m_trees[slot], pt::xml_parser::trim_whitespace);
        return true;
    } catch (const std::exception&) {
        m_trees[slot].clear();
        LogUnusable(file, "is not well-formed XML (kept as .broken at the next save)");
        m_broken[slot] = true;
        return false;
    }
}

bool ConfigImpl_XML::PreserveBrokenFile(ConfigType type)
{
    const int slot = Slot(type);
    const std::string& file = m_files[slot];
    if (!FileExists(file)) {
        m_broken[slot] = false;
        return true;
    }
    std::string keep = file + ".broken";
    for (unsigned n = 1; FileExists(keep); ++n)
        keep = file + ".broken." + std::to_string(n);
    if (!CopyFile(file, keep)) {
        RemoveFile(keep);
        return false;
    }
    m_broken[slot] = false;
    return true;
}

bool ConfigImpl_XML::write(ConfigType type)
{
    const int slot = Slot(type);
    const std::string& file = m_files[slot];
    if (file.empty())
        return false;
    if (m_broken[slot] && !PreserveBrokenFile(type))
        return false;
    std::ostringstream out;
    try {
        pt::write_xml(out, m_trees[slot], pt::xml_writer_make_settings<std::string>(' ', 2, "utf-8"));
    } catch (const pt::ptree_error&) {
        return false;
    }
    if (!out)
        return false;
    CreateDirectories(RemoveLastPartFromPath(file));
    return ReplaceFileAtomically(file, out.str());
}

template <typename T> bool ConfigImpl_XML::getValue(sConfig* entry, T& value)
{
    if (!entry)
        return false;
    try {
        const boost::optional<T> found = m_trees[Slot(entry->type)].get_optional<T>(TreePath(getPathKey(entry)));
        if (!found)
            return false;
        value = *found;
        return true;
    } catch (const pt::ptree_error&) {
        return false;
    }
}

template <typename T> bool ConfigImpl_XML::setValue(sConfig* entry, const T& value)
{
    if (!entry)
        return false;
    try {
        m_trees[Slot(entry->type)].put(TreePath(getPathKey(entry)), value);
    } catch (const pt::ptree_error&) {
        return false;
    }
    return write(entry->type);
}

bool ConfigImpl_XML::SetInteger(sConfig* entry, long value)
{
    return setValue(entry, value);
}

bool ConfigImpl_XML::SetString(sConfig* entry, const std::string& value)
{
    return setValue(entry, value);
}

bool ConfigImpl_XML::SetBoolean(sConfig* entry, bool value)
{
    return setValue(entry, value);
}

bool ConfigImpl_XML::GetInteger(sConfig* entry, long& value)
{
    return getValue(entry, value);
}

bool ConfigImpl_XML::GetString(sConfig* entry, std::string& value)
{
    return getValue(entry, value);
}

bool ConfigImpl_XML::GetBoolean(sConfig* entry, bool& value)
{
    return getValue(entry, value);
}

std::vector<std::string> ConfigImpl_XML::EnumSubDirs(sConfig* entry, const std::string& subPath)
{
    std::vector<std::string> names;
    if (!entry)
        return names;
    const std::string parts[3] = {GetRootName(), entry->path, subPath};
    try {
        const pt::ptree& tree = m_trees[Slot(entry->type)];
        const boost::optional<const pt::ptree&> group =
            tree.get_child_optional(TreePath(MangleRegPath(BuildRegPath(parts, 3))));
        if (!group)
            return names;
        for (const auto& child : *group) {
            // Only real elements, not the reader's attribute or comment nodes.
            if (child.first.empty() || child.first[0] == '<')
                continue;
            bool seen = false;
            for (const std::string& name : names)
                seen = seen || name == child.first;
            if (!seen)
                names.push_back(child.first);
        }
    } catch (const pt::ptree_error&) {
        names.clear();
    }
    return names;
}

bool ConfigImpl_XML::RemoveKey(sConfig* entry)
{
    if (!entry)
        return false;
    std::string parent, last;
    SplitLast(getPathKey(entry), parent, last);
    pt::ptree& tree = m_trees[Slot(entry->type)];
    try {
        pt::ptree* node = &tree;
        if (!parent.empty()) {
            boost::optional<pt::ptree&> found = tree.get_child_optional(TreePath(parent));
            if (!found)
                return false;
            node = &*found;
        }
        if (node->erase(last) == 0)
            return false;
    } catch (const pt::ptree_error&) {
        return false;
    }
    return write(entry->type);
}

bool ConfigImpl_XML::RemovePath(sConfig* entry)
{
    if (!entry)
        return false;
    sConfig group = *entry;
    group.key.clear();
    return RemoveKey(&group);
}

} // namespace Korvex
