// Log hooks of the DER readers. The application points them at its logger at
// start-up; until then (or when left null) every line is dropped.
#pragma once

#include <string>

namespace Korvex {
namespace LibAsn1 {

using LogFunc = void (*)(std::string);

// Install the hook for one level; null switches that level off again.
void acPKCS11_SetErrorLoggingFunc(LogFunc fn);
void acPKCS11_SetMessageLoggingFunc(LogFunc fn);

// One text as it is; a text followed by ", " and a number; two texts joined.
void LogError(const std::string& text);
void LogError(const std::string& text, unsigned long number);
void LogError(const std::string& text, const std::string& more);
void LogMessage(const std::string& text);
void LogMessage(const std::string& text, unsigned long number);
void LogMessage(const std::string& text, const std::string& more);

} // namespace LibAsn1
} // namespace Korvex

// The hooks are installed from code that does not live in Korvex as well.
namespace LibAsn1 = Korvex::LibAsn1;
