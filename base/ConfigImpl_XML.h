// XML back end of the configuration store: one property tree per file, each
// saved whole and atomically after every change.
#pragma once

#include "base/Config.h"

#include <boost/property_tree/ptree.hpp>

#include <string>
#include <vector>

namespace Korvex {

class ConfigImpl_XML : public iConfigImpl {
public:
    ConfigImpl_XML() = default;
    ~ConfigImpl_XML() override = default;

    bool SetInteger(sConfig* entry, long value) override;
    bool SetString(sConfig* entry, const std::string& value) override;
    bool SetBoolean(sConfig* entry, bool value) override;
    bool GetInteger(sConfig* entry, long& value) override;
    bool GetString(sConfig* entry, std::string& value) override;
    bool GetBoolean(sConfig* entry, bool& value) override;
    std::vector<std::string> EnumSubDirs(sConfig* entry, const std::string& subPath) override;
    bool RemoveKey(sConfig* entry) override;
    bool RemovePath(sConfig* entry) override;
    bool DoInit() override;
    bool DoDestroy() override;

    // Property-tree path of the entry's group ("config.vessa_Client.Trace.")
    // and of its value ("config.vessa_Client.Trace.LogLevel").
    std::string getPath(const sConfig* entry) const;
    std::string getPathKey(const sConfig* entry) const;
    // Full name of the file that holds entries of `type`.
    std::string GetFileName(ConfigType type) const;

private:
    template <typename T> bool getValue(sConfig* entry, T& value);
    template <typename T> bool setValue(sConfig* entry, const T& value);
    bool write(ConfigType type);
    bool read(ConfigType type);
    bool PreserveBrokenFile(ConfigType type);
    static int Slot(ConfigType type);

    boost::property_tree::ptree m_trees[2];
    std::string m_files[2];
    // A file that existed but did not parse is copied aside before the first
    // write replaces it.
    bool m_broken[2] = {false, false};
};

} // namespace Korvex
