// Helpers shared by the crypto tests: fixture files, hex, log capture and a
// time-zone guard.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace CryptoTest {

inline std::string FixturePath(const std::string& file)
{
    return std::string(KORVEX_CERT_FIXTURES) + "/" + file;
}

inline std::vector<unsigned char> ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

inline std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// One value of the <name>.expect file written by make-certs.sh.
inline std::string Expected(const std::string& cert, const std::string& key)
{
    std::ifstream in(FixturePath(cert + ".expect"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, key.size() + 1, key + "=") == 0)
            return line.substr(key.size() + 1);
    }
    ADD_FAILURE() << "no " << key << " in " << cert << ".expect";
    return "";
}

inline std::vector<unsigned char> FromHex(const std::string& hex)
{
    std::vector<unsigned char> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

// Collects every line sent to the hooks it is installed in.
struct LogCapture {
    static std::vector<std::string>& Lines()
    {
        static std::vector<std::string> lines;
        return lines;
    }
    static void Hook(std::string line) { Lines().push_back(line); }
};

// Sets TZ for one test and restores the previous zone afterwards.
class TimeZoneGuard {
public:
    explicit TimeZoneGuard(const char* zone)
    {
        const char* old = std::getenv("TZ");
        m_hadZone = old != nullptr;
        if (old)
            m_oldZone = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZoneGuard()
    {
        if (m_hadZone)
            setenv("TZ", m_oldZone.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    bool m_hadZone = false;
    std::string m_oldZone;
};

} // namespace CryptoTest
