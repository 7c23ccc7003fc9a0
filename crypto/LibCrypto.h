// Process-wide log hooks of the hashing helpers. The application installs
// them at start-up; without a hook a line is simply dropped.
#pragma once

#include <string>

namespace Korvex {
namespace LibCrypto {

typedef void (*LogFunction)(std::string);

void acPKCS11_SetErrorLoggingFunc(LogFunction fn);
void acPKCS11_SetMessageLoggingFunc(LogFunction fn);

void LogError(const std::string& text);
// Appends ", " and the number printed as a signed int.
void LogError(const std::string& text, unsigned long value);
void LogError(const std::string& text, const std::string& more);

void LogMessage(const std::string& text);
void LogMessage(const std::string& text, unsigned long value);
void LogMessage(const std::string& text, const std::string& more);

} // namespace LibCrypto
} // namespace Korvex
