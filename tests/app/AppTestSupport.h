// Helpers of the application-shell tests: private scratch folders, the
// program's all-users settings file, and a started toolkit (without display)
// for the locale code.
#pragma once

#include <wx/init.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <unistd.h>

namespace AppTests {

// A fresh folder below TMPDIR, removed with everything in it at the end.
class ScratchDir {
public:
    ScratchDir()
    {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr ? tmp : "/tmp/") + "/apptest-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (mkdtemp(buffer.data()) != nullptr)
            m_path = buffer.data();
    }
    ~ScratchDir()
    {
        if (!m_path.empty())
            std::system(("rm -rf '" + m_path + "'").c_str());
    }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

// Points the all-users directory at `dir` and writes the program's settings
// file there with the given XML body (inside <config>).
inline void WriteAllUsersConfig(const std::string& dir, const std::string& body)
{
    setenv("KORVEX_ALLUSERS_DIR", (dir + "/").c_str(), 1);
    const std::string folder = dir + "/korvex/vessaclient";
    std::system(("mkdir -p '" + folder + "'").c_str());
    std::ofstream out(folder + "/config");
    out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<config>" << body << "</config>\n";
}

inline std::string ReadText(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Names of the files in `dir` that begin with `prefix`.
inline std::vector<std::string> FilesStartingWith(const std::string& dir, const std::string& prefix)
{
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name.compare(0, prefix.size(), prefix) == 0)
                names.push_back(name);
        }
        closedir(d);
    }
    return names;
}

// The toolkit's non-graphical part, started once for the whole test program.
class ToolkitEnvironment : public testing::Environment {
public:
    void SetUp() override { m_init = new wxInitializer(); }
    void TearDown() override
    {
        delete m_init;
        m_init = nullptr;
    }

private:
    wxInitializer* m_init = nullptr;
};

} // namespace AppTests
