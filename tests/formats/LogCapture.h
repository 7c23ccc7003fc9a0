// Collects what the DER readers send to their log hooks, for the duration of
// one test.
#pragma once

#include <string>
#include <vector>

#include "formats/Asn1Log.h"

namespace dertest {

class LogCapture {
public:
    LogCapture()
    {
        errors().clear();
        messages().clear();
        Korvex::LibAsn1::acPKCS11_SetErrorLoggingFunc(&onError);
        Korvex::LibAsn1::acPKCS11_SetMessageLoggingFunc(&onMessage);
    }
    ~LogCapture()
    {
        Korvex::LibAsn1::acPKCS11_SetErrorLoggingFunc(nullptr);
        Korvex::LibAsn1::acPKCS11_SetMessageLoggingFunc(nullptr);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    static std::vector<std::string>& errors()
    {
        static std::vector<std::string> lines;
        return lines;
    }
    static std::vector<std::string>& messages()
    {
        static std::vector<std::string> lines;
        return lines;
    }

private:
    static void onError(std::string text) { errors().push_back(text); }
    static void onMessage(std::string text) { messages().push_back(text); }
};

} // namespace dertest
