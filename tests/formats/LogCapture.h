// Collects what the DER readers send to their log hooks during one test.
#pragma once

#include <string>
#include <vector>

#include "formats/Asn1Log.h"

namespace dertest {

inline std::vector<std::string> g_errors, g_messages;

struct LogCapture {
    LogCapture()
    {
        g_errors.clear();
        g_messages.clear();
        LibAsn1::acPKCS11_SetErrorLoggingFunc([](std::string t) { g_errors.push_back(t); });
        LibAsn1::acPKCS11_SetMessageLoggingFunc([](std::string t) { g_messages.push_back(t); });
    }
    ~LogCapture()
    {
        LibAsn1::acPKCS11_SetErrorLoggingFunc(nullptr);
        LibAsn1::acPKCS11_SetMessageLoggingFunc(nullptr);
    }
};

} // namespace dertest
