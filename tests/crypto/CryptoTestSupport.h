// Helpers shared by the crypto tests: fixture files, hex, log capture and a
// time-zone guard.
#pragma once

#include "tests/support/TestCommon.h"

#include "crypto/slCertificate.h"

#include <ctime>

namespace CryptoTest {

using Bytes = std::vector<unsigned char>;

inline std::string FixturePath(const std::string& file)
{
    return std::string(KORVEX_CERT_FIXTURES) + "/" + file;
}

using TestSupport::ReadBytes;

// A fixture certificate, from its DER or PEM file.
inline Korvex::slCertificate Load(const std::string& name, const char* ext = ".der")
{
    Korvex::slCertificate cert;
    EXPECT_TRUE(cert.LoadFromFile(FixturePath(name + ext))) << name;
    return cert;
}

// One value of the <cert>.expect file that make-certs.sh writes.
inline std::string Expected(const std::string& cert, const std::string& key)
{
    std::ifstream in(FixturePath(cert + ".expect"));
    for (std::string line; std::getline(in, line);)
        if (line.compare(0, key.size() + 1, key + "=") == 0)
            return line.substr(key.size() + 1);
    ADD_FAILURE() << "no " << key << " in " << cert << ".expect";
    return "";
}

inline Bytes FromHex(const std::string& hex)
{
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

using TestSupport::LogCapture;

// Sets TZ for one scope; the zone is read again on entry and once the
// previous one is back (members end in reverse order).
class TimeZoneGuard {
    struct Reread {
        ~Reread() { tzset(); }
    } m_reread;
    TestSupport::EnvGuard m_zone;

public:
    explicit TimeZoneGuard(const char* zone) : m_zone("TZ", zone) { tzset(); }
};

} // namespace CryptoTest
