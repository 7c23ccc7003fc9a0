// The program's tables of numbered configuration entries and path entries.
// After start-up every setting is read by its number only.
#pragma once

#include <string>

namespace VessaCards {

// Group of the client's settings in the configuration files.
extern const char* const ClientRegKeyName;

// Entry numbers this program reads.
enum ConfigEntry : unsigned {
    CFG_CLIENT_GROUP = 1,      // text of the client group element: client version
    CFG_VERSION = 11,          // client version shown in the title
    CFG_LOG_LEVEL = 15,        // logging on when 1 or more
    CFG_LOG_FILENAME = 17,     // log directory or .log file; also path entry 0
    CFG_ORBELIA_INSTALLDIR = 26, // installation folder of the identity-link writer
    CFG_LANGUAGE = 28,         // user interface language (toolkit language number)
    CFG_AUTO_REFRESH = 62,     // 0: no automatic card-list refresh on insert and remove
    CFG_PKCS11_MODULE = 64     // module file (bare name or path); empty: the vendor's module
};

// Path entry of the log file (relative to the user directory).
enum PathEntry : unsigned { PATH_LOGFILE = 0 };

} // namespace VessaCards

// Registers every configuration entry and loads the configuration of the
// application "vessaclient".
void GenerateConfig();
// Registers the program's path entries.
void GenerateFileSystem();
