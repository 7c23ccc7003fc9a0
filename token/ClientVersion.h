// Where the token layer finds the installed client's version: a configuration
// store of its own ("vessaclient"), entry 1 = group "vessa Client", value
// "Version", text "major.minor.build.revision".
#pragma once

#include <cstdint>
#include <string>

namespace Korvex {

class Config;

constexpr unsigned kClientVersionEntry = 1;

// The store, registered on first use and initialised with the two entries
// declared; null if the configuration library cannot provide one.
Config* ClientVersionConfig();

// Parses "%d.%d.%d.%d" into version; false (version untouched) unless all
// four numbers are there.
bool ParseClientVersion(const std::string& text, int32_t* version);

} // namespace Korvex
