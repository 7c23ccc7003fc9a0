// Configuration store: registry of stores, numbered entries, the typed
// accessors and the error hook. The values themselves live in the back end.
#include "base/Config.h"

#include "base/ConfigImpl_XML.h"
#include "base/Conversion.h"

#include <cstdio>

namespace Korvex {

namespace {

// Stores live for the whole process; the registry is never torn down, so a
// store stays reachable from static code running at exit.
std::vector<Config*>& ConfigVector()
{
    static std::vector<Config*>* stores = new std::vector<Config*>();
    return *stores;
}

void (*g_errorHook)(const char*) = nullptr;

} // namespace

// ---------------------------------------------------------------------------
// LibConfig

void LibConfig::SetErrorLoggingFunc(void (*func)(const char*))
{
    g_errorHook = func;
}

void LibConfig::LogError(const char* text)
{
    if (g_errorHook && text)
        g_errorHook(text);
}

void LibConfig::LogError(const char* text, unsigned long number)
{
    if (!g_errorHook)
        return;
    const std::string message = std::string(text ? text : "") + " " + std::to_string(number);
    g_errorHook(message.c_str());
}

// ---------------------------------------------------------------------------
// iConfigImpl

bool iConfigImpl::Init(const std::string& name)
{
    m_name = name;
    return DoInit();
}

bool iConfigImpl::Destroy()
{
    return DoDestroy();
}

std::string iConfigImpl::GetRootName() const
{
    return m_rootName.empty() ? std::string("config") : m_rootName;
}

std::string iConfigImpl::BuildRegPath(const std::string* parts, int count) const
{
    std::string path;
    for (int i = 0; parts && i < count; ++i) {
        std::string part = parts[i];
        if (part.empty())
            continue;
        if (part[0] == '\\')
            part.erase(0, 1);
        path += part;
        if (path.empty() || path.back() != '\\')
            path += '\\';
    }
    return path;
}

std::vector<std::string> iConfigImpl::EnumSubDirs(sConfig* entry)
{
    return EnumSubDirs(entry, std::string());
}

// ---------------------------------------------------------------------------
// Config

Config* Config::GetHandle(unsigned n)
{
    std::vector<Config*>& stores = ConfigVector();
    if (stores.empty()) {
        stores.push_back(new Config(0));
        return stores[0];
    }
    if (n >= stores.size())
        return nullptr;
    if (!stores[n])
        stores[n] = new Config(n);
    return stores[n];
}

unsigned Config::Register()
{
    std::vector<Config*>& stores = ConfigVector();
    // Slot 0 belongs to the application's own store from GetHandle(0).
    if (stores.empty())
        stores.push_back(nullptr);
    const unsigned index = static_cast<unsigned>(stores.size());
    stores.push_back(new Config(index));
    return index;
}

Config::Config(unsigned index) : m_index(index) {}

Config::~Config()
{
    CleanConfigMap();
    FreeImpl();
}

bool Config::Init(const std::string& name, ConfigBackend backend)
{
    if (m_initialized)
        return m_initialized;
    m_name = name;
    FreeImpl();
    if (backend != CONFIG_BACKEND_XML)
        return false;
    m_impl.reset(new ConfigImpl_XML());
    m_initialized = m_impl->Init(name);
    return m_initialized;
}

bool Config::Init(const std::string& name)
{
    return Init(name, CONFIG_BACKEND_XML);
}

bool Config::AddConfig(unsigned id, ConfigType type, const std::string& key, const std::string& path, SysType sys)
{
    if (!m_initialized)
        return false;
    m_entries[id] = std::unique_ptr<sConfig>(new sConfig{type, path, key, sys});
    return true;
}

bool Config::AddConfigs(unsigned id, const sConfig* table, int count)
{
    if (!m_initialized || count < 1 || !table)
        return m_initialized;
    bool allAdded = true;
    for (int i = 0; i < count; ++i) {
        const sConfig& row = table[i];
        if (!AddConfig(id + static_cast<unsigned>(i), row.type, row.key, row.path, row.sys))
            allAdded = false;
    }
    return allAdded;
}

sConfig* Config::GetConfigEntry(unsigned id)
{
    const auto it = m_entries.find(id);
    if (it == m_entries.end()) {
        LibConfig::LogError("config entry is NULL");
        return nullptr;
    }
    return it->second.get();
}

iConfigImpl* Config::ImplFor(unsigned id, sConfig*& entry)
{
    entry = nullptr;
    if (!m_impl)
        return nullptr;
    entry = GetConfigEntry(id);
    return entry ? m_impl.get() : nullptr;
}

bool Config::GetInteger(unsigned id, long& value)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->GetInteger(entry, value);
}

bool Config::GetString(unsigned id, std::string& value)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->GetString(entry, value);
}

bool Config::GetBoolean(unsigned id, bool& value)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->GetBoolean(entry, value);
}

bool Config::SetInteger(unsigned id, long value)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->SetInteger(entry, value);
}

bool Config::SetString(unsigned id, const std::string& value)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->SetString(entry, value);
}

bool Config::SetBoolean(unsigned id, bool value)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->SetBoolean(entry, value);
}

bool Config::SetStringBoolean(unsigned id, bool value)
{
    return SetString(id, value ? "YES" : "NO");
}

bool Config::GetStringBoolean(unsigned id, bool& value)
{
    std::string text;
    const bool read = GetString(id, text);
    const std::string upper = Str2Upper(text);
    value = upper == "YES" || upper == "JA" || upper == "Y" || upper == "TRUE";
    return read;
}

bool Config::RemoveKey(unsigned id)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->RemoveKey(entry);
}

bool Config::RemovePath(unsigned id)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl && impl->RemovePath(entry);
}

std::vector<std::string> Config::EnumSubDirs(unsigned id, const std::string& subPath)
{
    sConfig* entry;
    iConfigImpl* impl = ImplFor(id, entry);
    return impl ? impl->EnumSubDirs(entry, subPath) : std::vector<std::string>();
}

void Config::CleanConfigMap()
{
    m_entries.clear();
}

void Config::Destroy()
{
    if (m_impl)
        m_impl->Destroy();
    FreeImpl();
    CleanConfigMap();
    m_initialized = false;
}

void Config::FreeImpl()
{
    m_impl.reset();
}

std::string Config::GetFileName(ConfigType type) const
{
    const auto* xml = dynamic_cast<const ConfigImpl_XML*>(m_impl.get());
    return xml != nullptr ? xml->GetFileName(type) : std::string();
}

} // namespace Korvex
