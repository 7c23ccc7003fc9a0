// The application's logger and the glue that lets the token layer write into
// it. Both program threads log, so the registration is a thread-safe static.
#pragma once

#include "base/Logging.h"

class VessaCardsLogger {
public:
    // Registration number of the application's logger; registers on first use.
    static unsigned GetHandle();
};

// The application's logger (never null).
Korvex::LibLogging* AppLog();

namespace VessaCards {

// Hooks for the token layer (plain functions taking one text).
void LogError(const char* text);
void LogMessage(const char* text);

} // namespace VessaCards
