// Scratch directory for one test, removed with everything in it afterwards,
// plus a guard that sets an environment variable for the test's duration.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace KorvexTest {

class TempDir {
public:
    TempDir()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp/");
        if (pattern.back() != '/')
            pattern += '/';
        pattern += "korvex-base-XXXXXX";
        if (!mkdtemp(&pattern[0]))
            throw std::runtime_error("mkdtemp failed");
        m_path = pattern;
    }
    ~TempDir()
    {
        std::error_code ignored;  // cleanup must not throw from a destructor
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

class EnvGuard {
public:
    EnvGuard(const char* name, const std::string& value) : m_name(name), m_had(std::getenv(name) != nullptr)
    {
        m_old = m_had ? std::getenv(name) : "";
        setenv(name, value.c_str(), 1);
    }
    ~EnvGuard() { m_had ? setenv(m_name.c_str(), m_old.c_str(), 1) : unsetenv(m_name.c_str()); }
    EnvGuard(const EnvGuard&) = delete;
    EnvGuard& operator=(const EnvGuard&) = delete;

private:
    std::string m_name, m_old;
    bool m_had;
};

inline std::string ReadText(const std::string& path)
{
    std::ostringstream all;
    all << std::ifstream(path, std::ios::binary).rdbuf();
    return all.str();
}

inline void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

inline std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

inline std::vector<std::string> FileNames(const std::string& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    return names;
}

} // namespace KorvexTest
