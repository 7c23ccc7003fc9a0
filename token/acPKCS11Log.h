// Log hooks of the token layer. They live in a namespace of their own (not in
// the class) so the application can point them at its logger before any
// token object exists.
//
// Note for callers: this namespace is the global ::acPKCS11, the class is
// Korvex::acPKCS11. Code that says "using namespace Korvex;" must still spell
// the class as Korvex::acPKCS11 at global scope, or the two names collide.
#pragma once

#include <string>

namespace acPKCS11 {

typedef void (*LogHook)(const char* line);

// Receive every error and every progress line; null drops the lines.
extern LogHook pt2LogError;
extern LogHook pt2LogMessage;

void LogMessage(const std::string& text);
// first text, one blank, second text
void LogMessage(const std::string& text, const std::string& value);
void LogError(const std::string& text);
// text followed directly by "0x" and the code in lower-case hex
void LogError(const std::string& text, unsigned long code);
// first text, one blank, second text
void LogError(const std::string& text, const std::string& value);

} // namespace acPKCS11
