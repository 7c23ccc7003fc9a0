// Registration of the configuration and path tables. The rows are kept
// exactly as the maker's other programs number them, irregular ones included
// (a value without twin, repeated registrations, two number pairs for one
// value, the spelling "Secury"), so one number means one setting everywhere.
#include "app/ProgramConfig.h"

#include "base/Config.h"
#include "base/FileSystem.h"

namespace VessaCards {
const char* const ClientRegKeyName = "vessa Client";
} // namespace VessaCards

namespace {

struct ConfigRow {
    unsigned id;
    int sys;
    const char* path; // null: the client group
    const char* key;
};

const char* const kTrace = "vessa Client\\Trace";
const char* const kDriver = "VessaMiniDriver";

const ConfigRow kConfigRows[] = {
    {0, 0, nullptr, ""},
    {1, 1, nullptr, ""},
    {2, 0, nullptr, "CheckForUpdates"},
    {3, 1, nullptr, "CheckForUpdates"},
    {4, 0, nullptr, "DXR"},
    {5, 1, nullptr, "DXR"},
    {6, 0, nullptr, "InstallDir"},
    {7, 1, nullptr, "InstallDir"},
    {8, 0, nullptr, "Updateable"},
    {9, 1, nullptr, "Updateable"},
    {10, 0, nullptr, "Version"},
    {11, 1, nullptr, "Version"},
    {27, 0, nullptr, "Language"},
    {28, 1, nullptr, "Language"},
    {14, 0, kTrace, "LogLevel"},
    {15, 1, kTrace, "LogLevel"},
    {12, 0, kTrace, "LogMode"},
    {13, 1, kTrace, "LogMode"},
    {16, 0, kTrace, "Filename"},
    {17, 1, kTrace, "Filename"},
    {18, 0, nullptr, "DeleteLogfilesAfterXDays"},
    {19, 1, nullptr, "DeleteLogfilesAfterXDays"},
    {20, 0, nullptr, "FixIt"},
    {21, 1, nullptr, "FixIt"},
    {22, 0, nullptr, "CleanCertsOnRefresh"},
    {23, 1, nullptr, "CleanCertsOnRefresh"},
    {24, 0, nullptr, "MakeDialogsStayOnTop"},
    {25, 1, nullptr, "MakeDialogsStayOnTop"},
    {26, 0, "Orbelia", "InstallDir"},
    {29, 0, kDriver, "EnableKorvexPinDialog"},
    {30, 1, kDriver, "EnableKorvexPinDialog"},
    {31, 0, kDriver, "EnableExternalPin"},
    {32, 1, kDriver, "EnableExternalPin"},
    {33, 0, kDriver, "EnableLogging"},
    {34, 1, kDriver, "EnableLogging"},
    {35, 0, kDriver, "EnableCardAuthenticateEx"},
    {36, 1, kDriver, "EnableCardAuthenticateEx"},
    {37, 0, kDriver, "PinCachePolicyType"},
    {38, 1, kDriver, "PinCachePolicyType"},
    {39, 0, kDriver, "PinCachePolicyInfo"},
    {40, 1, kDriver, "PinCachePolicyInfo"},
    {41, 0, kDriver, "EnableOutputDebugString"},
    {42, 1, kDriver, "EnableOutputDebugString"},
    {43, 0, kDriver, "EnableKorvexPinDialog"},
    {44, 1, kDriver, "EnableKorvexPinDialog"},
    {45, 0, kDriver, "PinEntryRequireSecuryMode"},
    {46, 1, kDriver, "PinEntryRequireSecuryMode"},
    {37, 0, kDriver, "PinCachePolicyType"},
    {38, 1, kDriver, "PinCachePolicyType"},
    {39, 0, kDriver, "PinCachePolicyInfo"},
    {40, 1, kDriver, "PinCachePolicyInfo"},
    {47, 0, kDriver, "EnableExternalPin"},
    {48, 1, kDriver, "EnableExternalPin"},
    {49, 0, kDriver, "IgnoreAcosSubVersion"},
    {50, 1, kDriver, "IgnoreAcosSubVersion"},
    {51, 0, kDriver, "CheckReaderCapabilities"},
    {52, 1, kDriver, "CheckReaderCapabilities"},
    {53, 0, kDriver, "EnableDiagnostics"},
    {54, 1, kDriver, "EnableDiagnostics"},
    {55, 0, kDriver, "DoExclusiveReconnect"},
    {56, 1, kDriver, "DoExclusiveReconnect"},
    {57, 0, kDriver, "MiniDriverVersion"},
    {58, 1, kDriver, "MiniDriverVersion"},
    {59, 0, kDriver, "MiniDriverMinVersion"},
    {60, 1, kDriver, "MiniDriverMinVersion"},
    {61, 0, nullptr, "AutoRefresh"},
    {62, 1, nullptr, "AutoRefresh"},
    {63, 0, nullptr, "PKCS11Module"},
    {64, 1, nullptr, "PKCS11Module"},
};

} // namespace

void GenerateConfig()
{
    Korvex::Config* config = Korvex::Config::GetHandle(0);
    config->Init("vessaclient");
    for (const ConfigRow& row : kConfigRows) {
        const std::string path = row.path != nullptr ? row.path : VessaCards::ClientRegKeyName;
        config->AddConfig(row.id, Korvex::CONFIG_ALL_USERS, row.key, path,
                          static_cast<Korvex::SysType>(row.sys));
    }
}

void GenerateFileSystem()
{
    Korvex::FileSystem* paths = Korvex::FileSystem::GetHandle();
    std::string logFile;
    Korvex::Config::GetHandle(0)->GetString(VessaCards::CFG_LOG_FILENAME, logFile);
    paths->Initialize("");
    // The log file lives relative to the user directory. Entries 1 to 7 stay
    // free: the other programs of the maker keep their log folders there.
    paths->AddConfig(VessaCards::PATH_LOGFILE, Korvex::BASE_USER, logFile, "");
}
