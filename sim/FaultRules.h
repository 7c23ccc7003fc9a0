// Written form of injected faults, shared by the environment variable, the
// control file, the control tool and the in-process control functions:
//   FUNCTION[@CARD][#NTH]=RESULT[*TIMES]; ...
// RESULT is a return code, "malformed" or "answer:HEX" (a vendor call's
// fixed answer).
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace VessaSim {

struct FaultRule {
    std::string function = "*";  // entry point name or "*"
    std::string card = "*";      // "*", a serial or "slot:N"
    bool malformed = false;      // report oversized lengths instead of failing
    bool answers = false;        // a vendor call answers `answer` with CKR_OK
    std::vector<unsigned char> answer;
    CK_RV rv = CKR_OK;
    int times = -1;              // remaining hits; <= 0 means every time
    int skip = 0;                // matching calls let through first ("#3": 2)
};

bool parseFaultRules(const std::string& ruleText, std::vector<FaultRule>& out, std::string& error);
std::string faultRuleToString(const FaultRule& rule);

// "CKR_DEVICE_ERROR", "0x30" or "48".
bool parseReturnCode(const std::string& text, CK_RV& out);
// The CKR_ name, or "0x.." for codes without one.
std::string returnCodeName(CK_RV rv);

} // namespace VessaSim
