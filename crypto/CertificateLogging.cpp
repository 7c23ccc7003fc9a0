// Process-wide log hooks of the certificate object. The application installs
// them at start-up; without a hook a line is dropped.
#include "crypto/slCertificate.h"

namespace Korvex {

namespace {

SLCERT_LogFunction g_errorHook = nullptr;
SLCERT_LogFunction g_messageHook = nullptr;
SLCERT_LogFunction g_debugHook = nullptr;

} // namespace

void SLCERT_SetErrorLoggingFunc(SLCERT_LogFunction fn) { g_errorHook = fn; }
void SLCERT_SetMessageLoggingFunc(SLCERT_LogFunction fn) { g_messageHook = fn; }
void SLCERT_SetDebugLoggingFunc(SLCERT_LogFunction fn) { g_debugHook = fn; }

void SLCERT_LogError(const std::string& text)
{
    if (g_errorHook)
        g_errorHook(text);
}

void SLCERT_LogMessage(const std::string& text)
{
    if (g_messageHook)
        g_messageHook(text);
}

void SLCERT_LogDebug(const std::string& text)
{
    if (g_debugHook)
        g_debugHook(text);
}

} // namespace Korvex
