// Log hooks of the hashing helpers.
#include "crypto/LibCrypto.h"

#include <cstdio>

namespace Korvex {
namespace LibCrypto {

namespace {

LogFunction g_errorHook = nullptr;
LogFunction g_messageHook = nullptr;

void Emit(LogFunction hook, const std::string& text)
{
    if (hook)
        hook(text);
}

std::string WithNumber(const std::string& text, unsigned long value)
{
    // Printed as a signed int on purpose: the codes logged here come from
    // 32-bit module results, and the log has always shown them this way.
    char number[32];
    std::snprintf(number, sizeof(number), "%d", static_cast<int>(value));
    return text + ", " + number;
}

} // namespace

void acPKCS11_SetErrorLoggingFunc(LogFunction fn) { g_errorHook = fn; }
void acPKCS11_SetMessageLoggingFunc(LogFunction fn) { g_messageHook = fn; }

void LogError(const std::string& text) { Emit(g_errorHook, text); }
void LogError(const std::string& text, unsigned long value) { Emit(g_errorHook, WithNumber(text, value)); }
void LogError(const std::string& text, const std::string& more) { Emit(g_errorHook, text + more); }

void LogMessage(const std::string& text) { Emit(g_messageHook, text); }
void LogMessage(const std::string& text, unsigned long value) { Emit(g_messageHook, WithNumber(text, value)); }
void LogMessage(const std::string& text, const std::string& more) { Emit(g_messageHook, text + more); }

} // namespace LibCrypto
} // namespace Korvex
