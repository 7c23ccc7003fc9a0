// Process-wide log hooks of the DER readers and the texts they are given.
#include "formats/Asn1Log.h"

#include <cstdio>

namespace Korvex {
namespace LibAsn1 {

namespace {
// Set once at start-up before other threads run, so no lock guards them.
LogFunc g_errorHook = nullptr;
LogFunc g_messageHook = nullptr;

void emit(LogFunc hook, const std::string& text)
{
    if (hook != nullptr)
        hook(text);
}

std::string withNumber(const std::string& text, unsigned long number)
{
    // The number is printed as a signed int on purpose: the log format of
    // all libraries of the program prints codes that way.
    char digits[32];
    std::snprintf(digits, sizeof digits, "%d", static_cast<int>(number));
    return text + ", " + digits;
}
} // namespace

void acPKCS11_SetErrorLoggingFunc(LogFunc fn) { g_errorHook = fn; }
void acPKCS11_SetMessageLoggingFunc(LogFunc fn) { g_messageHook = fn; }

void LogError(const std::string& text) { emit(g_errorHook, text); }
void LogError(const std::string& text, unsigned long number) { emit(g_errorHook, withNumber(text, number)); }
void LogError(const std::string& text, const std::string& more) { emit(g_errorHook, text + more); }

void LogMessage(const std::string& text) { emit(g_messageHook, text); }
void LogMessage(const std::string& text, unsigned long number) { emit(g_messageHook, withNumber(text, number)); }
void LogMessage(const std::string& text, const std::string& more) { emit(g_messageHook, text + more); }

} // namespace LibAsn1
} // namespace Korvex
