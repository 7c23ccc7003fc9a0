// Process bootstrap and teardown of the process-wide singletons: the
// configuration and path tables, the language and the application log.
#pragma once

#include <string>

namespace VessaCards {

// Configuration, paths, language and log, in that order. Runs before the
// command line is looked at.
void BootstrapProcess();

// Destroys the singletons in the order configuration, paths, log, language.
void TeardownProcess();

// The directory that receives the log, decided from the configured level and
// path: false (no log) unless the level is at least 1 and the path has at
// least 5 characters. A path ending in ".log" (any case) names a file, so its
// directory is used.
bool LogDirectoryFromSettings(long level, const std::string& path, std::string& directory);

// Starts the application logger with a time-stamped file in `directory`,
// thread ids on, and points the token layer's hooks at it. Returns the file's
// full path.
std::string StartApplicationLog(const std::string& directory);

} // namespace VessaCards
