// Start-up and teardown of the process-wide objects.
#include "app/AppStartup.h"

#include "app/I18N.h"
#include "app/ProgramConfig.h"
#include "app/VessaCardsLogger.h"
#include "base/Config.h"
#include "base/Conversion.h"
#include "base/FileAndDirectory.h"
#include "base/FileSystem.h"
#include "base/Logging.h"
#include "token/LoadFreeLib.h"
#include "token/acPKCS11.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <vector>

namespace VessaCards {

namespace {

// A log path shorter than this cannot be meant seriously (a bare root folder).
const size_t kMinimumLogPathLength = 5;
const unsigned kMaxLogEntries = 10000;

bool EndsWithLogSuffix(const std::string& path)
{
    static const std::string suffix = ".log";
    if (path.size() < suffix.size())
        return false;
    return Korvex::nocase_EndsWith(path, suffix);
}

// The settings are read before the log can start (where it goes is itself a
// setting), so what the store reports until then is held and written first.
std::vector<std::string>& HeldSettingsMessages()
{
    static std::vector<std::string> held;
    return held;
}

void HoldSettingsMessage(const char* text)
{
    HeldSettingsMessages().emplace_back(text != nullptr ? text : "");
}

// The store's error hook once the log runs. Every store reads both settings
// files again (the token layer has one of its own), so a problem with a file
// is reported the first time only. The all-users file is where the log
// itself is configured: its problems also go to standard error, the one
// place they reach somebody when that file is broken.
void ReportSettingsProblem(const char* text)
{
    static std::mutex lock;
    static std::set<std::string> reported;
    const std::string message = text != nullptr ? text : "";
    if (message.rfind("settings file ", 0) == 0) {
        std::lock_guard<std::mutex> guard(lock);
        if (!reported.insert(message).second)
            return;
        const std::string allUsersFile = Korvex::CombinePaths(
            Korvex::CombinePaths(Korvex::CombinePaths(Korvex::GetAllUsersDir(), "korvex"), "vessaclient"), "config");
        if (message.compare(14, allUsersFile.size() + 1, allUsersFile + " ") == 0)
            std::fprintf(stderr, "VessaCards: %s\n", message.c_str());
    }
    LogError(message.c_str());
}

} // namespace

bool LogDirectoryFromSettings(long level, const std::string& path, std::string& directory)
{
    // The level only switches the log on; the logger itself runs at its own
    // default threshold.
    if (level <= 0 || path.size() < kMinimumLogPathLength)
        return false;
    directory = EndsWithLogSuffix(path) ? Korvex::RemoveLastPartFromPath(path) : path;
    return true;
}

std::string StartApplicationLog(const std::string& directory)
{
    const std::string file = Korvex::GenerateFilenameWithTimestamp("VessaCards", "log");
    const std::string fullPath = Korvex::CombinePaths(directory, file);
    Korvex::LibLogging* log = AppLog();
    if (!log->Init(fullPath, kMaxLogEntries, true)) {
        // The log cannot say it itself; the program runs on without it.
        const int reason = errno;
        std::fprintf(stderr, "log file %s cannot be written: %s\n", fullPath.c_str(),
                     reason != 0 ? std::strerror(reason) : "unknown reason");
    }
    log->Enabled(true);
    // Both the GUI thread and the card refresh thread write to this log.
    log->LogThreadId(true);
    Korvex::acPKCS11::SetMessageLoggingFunc(VessaCards::LogMessage);
    Korvex::acPKCS11::SetErrorLoggingFunc(VessaCards::LogError);
    return fullPath;
}

void BootstrapProcess()
{
    Korvex::LibConfig::SetErrorLoggingFunc(HoldSettingsMessage);
    GenerateConfig();
    GenerateFileSystem();

    Korvex::Config* config = Korvex::Config::GetHandle(0);
    long language = 0;
    if (config->GetInteger(CFG_LANGUAGE, language))
        I18N::GetHandle()->Initialize(language);
    else
        I18N::GetHandle()->Initialize();

    // Which module the window loads: the vendor's unless a setting names one.
    std::string module;
    config->GetString(CFG_PKCS11_MODULE, module);
    Korvex::SetModuleName(module);

    long level = 0;
    std::string path;
    config->GetInteger(CFG_LOG_LEVEL, level);
    config->GetString(CFG_LOG_FILENAME, path);
    std::string directory;
    if (LogDirectoryFromSettings(level, path, directory))
        StartApplicationLog(directory);

    for (const std::string& message : HeldSettingsMessages())
        ReportSettingsProblem(message.c_str());
    HeldSettingsMessages().clear();
    Korvex::LibConfig::SetErrorLoggingFunc(ReportSettingsProblem);
    const std::string unusable = I18N::GetHandle()->UnusableCatalog();
    if (!unusable.empty())
        LogError(("message catalogue " + unusable + " cannot be used; the German texts are shown").c_str());
}

void TeardownProcess()
{
    Korvex::LibConfig::SetErrorLoggingFunc(nullptr);
    Korvex::Config::GetHandle(0)->Destroy();
    Korvex::FileSystem::GetHandle()->Destroy();
    AppLog()->Destroy();
    I18N::Destroy();
}

} // namespace VessaCards
