// The token layer's two log hooks and the line shapes built on them.
#include "token/acPKCS11Log.h"

#include <sstream>

namespace acPKCS11 {

LogHook pt2LogError = nullptr;
LogHook pt2LogMessage = nullptr;

void LogMessage(const std::string& text)
{
    if (pt2LogMessage == nullptr)
        return;
    pt2LogMessage(text.c_str());
}

void LogMessage(const std::string& text, const std::string& value)
{
    std::ostringstream line;
    line << text << ' ' << value;
    LogMessage(line.str());
}

void LogError(const std::string& text)
{
    if (pt2LogError == nullptr)
        return;
    pt2LogError(text.c_str());
}

void LogError(const std::string& text, unsigned long code)
{
    std::ostringstream line;
    line << text << "0x" << std::hex << std::nouppercase << code;
    LogError(line.str());
}

void LogError(const std::string& text, const std::string& value)
{
    std::ostringstream line;
    line << text << ' ' << value;
    LogError(line.str());
}

} // namespace acPKCS11
