// Application logger registration and the token layer's log hooks.
#include "app/VessaCardsLogger.h"

#include <string>

unsigned VessaCardsLogger::GetHandle()
{
    static const unsigned handle = Korvex::LibLogging::Register();
    return handle;
}

Korvex::LibLogging* AppLog()
{
    return Korvex::LibLogging::GetHandle(VessaCardsLogger::GetHandle());
}

namespace VessaCards {

void LogError(const char* text)
{
    const std::string line(text != nullptr ? text : "");
    AppLog()->LogError(line);
}

void LogMessage(const char* text)
{
    const std::string line(text != nullptr ? text : "");
    AppLog()->LogMessage(line);
}

} // namespace VessaCards
