// Numbered configuration entries over a pluggable back end; on this platform
// the back end keeps the values in two XML files (all users, current user).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Korvex {

// Which file an entry lives in.
enum ConfigType : int {
    CONFIG_CURRENT_USER = 0,
    CONFIG_ALL_USERS = 1
};

// Registry view on the registry back end of another platform; the XML back
// end ignores it, so both values address the same element.
enum SysType : int {
    SYS_32 = 0,
    SYS_64 = 1
};

enum ConfigBackend : int {
    CONFIG_BACKEND_NONE = 0,
    CONFIG_BACKEND_XML = 1
};

struct sConfig {
    ConfigType type;
    std::string path; // group path, groups separated by "\"
    std::string key;  // value name; empty for the group itself
    SysType sys;
};

// Abstract back end.
class iConfigImpl {
public:
    virtual ~iConfigImpl() = default;

    virtual bool SetInteger(sConfig* entry, long value) = 0;
    virtual bool SetString(sConfig* entry, const std::string& value) = 0;
    virtual bool SetBoolean(sConfig* entry, bool value) = 0;
    virtual bool GetInteger(sConfig* entry, long& value) = 0;
    virtual bool GetString(sConfig* entry, std::string& value) = 0;
    virtual bool GetBoolean(sConfig* entry, bool& value) = 0;
    // Names of the sub-groups below the entry's group (joined with `subPath`
    // when that is not empty).
    virtual std::vector<std::string> EnumSubDirs(sConfig* entry, const std::string& subPath) = 0;
    virtual bool RemoveKey(sConfig* entry) = 0;
    virtual bool RemovePath(sConfig* entry) = 0;
    virtual bool DoInit() = 0;
    virtual bool DoDestroy() = 0;

    bool Init(const std::string& name);
    bool Destroy();
    // Joins [root, parts...] with "\" after every part; see the .cpp.
    std::string BuildRegPath(const std::string* parts, int count) const;
    std::vector<std::string> EnumSubDirs(sConfig* entry);

    void SetRootName(const std::string& root) { m_rootName = root; }
    // The XML root element; "config" when none was set.
    std::string GetRootName() const;

protected:
    std::string m_name;
    std::string m_rootName;
};

class Config {
public:
    // The store in slot n. An empty registry creates store 0 whatever n is;
    // n outside the registry gives null; an empty slot gets a new store.
    static Config* GetHandle(unsigned n);
    // Appends a store; slot 0 stays reserved for GetHandle(0).
    static unsigned Register();

    virtual ~Config();

    bool Init(const std::string& name, ConfigBackend backend);
    bool Init(const std::string& name);
    bool IsInitialized() const { return m_initialized; }

    // Note the order: value name first, then group path.
    bool AddConfig(unsigned id, ConfigType type, const std::string& key, const std::string& path, SysType sys);
    bool AddConfigs(unsigned id, const sConfig* table, int count);
    // Null (reported through LibConfig) for an unknown number.
    sConfig* GetConfigEntry(unsigned id);

    // A missing value leaves `value` as the caller preset it.
    bool GetInteger(unsigned id, long& value);
    bool GetString(unsigned id, std::string& value);
    bool GetBoolean(unsigned id, bool& value);
    // Writes are saved to the file at once.
    bool SetInteger(unsigned id, long value);
    bool SetString(unsigned id, const std::string& value);
    bool SetBoolean(unsigned id, bool value);
    // "YES" / "NO".
    bool SetStringBoolean(unsigned id, bool value);
    // true for "YES", "JA", "Y", "TRUE" in any letter case.
    bool GetStringBoolean(unsigned id, bool& value);

    bool RemoveKey(unsigned id);
    bool RemovePath(unsigned id);
    std::vector<std::string> EnumSubDirs(unsigned id, const std::string& subPath);

    // The file that holds entries of `type`; empty when the back end keeps
    // its values elsewhere or none was set up.
    std::string GetFileName(ConfigType type) const;

    void CleanConfigMap();
    void Destroy();
    void FreeImpl();

    Config(const Config&) = delete;
    Config& operator=(const Config&) = delete;

private:
    explicit Config(unsigned index);
    iConfigImpl* ImplFor(unsigned id, sConfig*& entry);

    unsigned m_index;
    std::string m_name;
    std::map<std::uint32_t, std::unique_ptr<sConfig>> m_entries;
    std::unique_ptr<iConfigImpl> m_impl;
    bool m_initialized = false;
};

// Error hook of the configuration library; with no hook, lines are dropped.
class LibConfig {
public:
    static void SetErrorLoggingFunc(void (*func)(const char*));
    static void LogError(const char* text);
    static void LogError(const char* text, unsigned long number);
};

} // namespace Korvex
