// Parsing and printing of fault rules and PKCS#11 return codes.
#include "sim/FaultRules.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace VessaSim {

namespace {

struct NamedCode {
    const char* name;
    CK_RV rv;
};

#define VSIM_CODE(name) {#name, name}
const NamedCode kCodes[] = {
    VSIM_CODE(CKR_OK),
    VSIM_CODE(CKR_CANCEL),
    VSIM_CODE(CKR_HOST_MEMORY),
    VSIM_CODE(CKR_SLOT_ID_INVALID),
    VSIM_CODE(CKR_GENERAL_ERROR),
    VSIM_CODE(CKR_FUNCTION_FAILED),
    VSIM_CODE(CKR_ARGUMENTS_BAD),
    VSIM_CODE(CKR_NO_EVENT),
    VSIM_CODE(CKR_ATTRIBUTE_READ_ONLY),
    VSIM_CODE(CKR_ATTRIBUTE_SENSITIVE),
    VSIM_CODE(CKR_ATTRIBUTE_TYPE_INVALID),
    VSIM_CODE(CKR_ATTRIBUTE_VALUE_INVALID),
    VSIM_CODE(CKR_DATA_INVALID),
    VSIM_CODE(CKR_DATA_LEN_RANGE),
    VSIM_CODE(CKR_DEVICE_ERROR),
    VSIM_CODE(CKR_DEVICE_MEMORY),
    VSIM_CODE(CKR_DEVICE_REMOVED),
    VSIM_CODE(CKR_FUNCTION_CANCELED),
    VSIM_CODE(CKR_FUNCTION_NOT_PARALLEL),
    VSIM_CODE(CKR_FUNCTION_NOT_SUPPORTED),
    VSIM_CODE(CKR_KEY_HANDLE_INVALID),
    VSIM_CODE(CKR_KEY_TYPE_INCONSISTENT),
    VSIM_CODE(CKR_MECHANISM_INVALID),
    VSIM_CODE(CKR_MECHANISM_PARAM_INVALID),
    VSIM_CODE(CKR_OBJECT_HANDLE_INVALID),
    VSIM_CODE(CKR_OPERATION_ACTIVE),
    VSIM_CODE(CKR_OPERATION_NOT_INITIALIZED),
    VSIM_CODE(CKR_PIN_INCORRECT),
    VSIM_CODE(CKR_PIN_INVALID),
    VSIM_CODE(CKR_PIN_LEN_RANGE),
    VSIM_CODE(CKR_PIN_EXPIRED),
    VSIM_CODE(CKR_PIN_LOCKED),
    VSIM_CODE(CKR_SESSION_CLOSED),
    VSIM_CODE(CKR_SESSION_COUNT),
    VSIM_CODE(CKR_SESSION_HANDLE_INVALID),
    VSIM_CODE(CKR_SESSION_PARALLEL_NOT_SUPPORTED),
    VSIM_CODE(CKR_SESSION_READ_ONLY),
    VSIM_CODE(CKR_SIGNATURE_INVALID),
    VSIM_CODE(CKR_SIGNATURE_LEN_RANGE),
    VSIM_CODE(CKR_TEMPLATE_INCOMPLETE),
    VSIM_CODE(CKR_TEMPLATE_INCONSISTENT),
    VSIM_CODE(CKR_TOKEN_NOT_PRESENT),
    VSIM_CODE(CKR_TOKEN_NOT_RECOGNIZED),
    VSIM_CODE(CKR_TOKEN_WRITE_PROTECTED),
    VSIM_CODE(CKR_USER_ALREADY_LOGGED_IN),
    VSIM_CODE(CKR_USER_NOT_LOGGED_IN),
    VSIM_CODE(CKR_USER_PIN_NOT_INITIALIZED),
    VSIM_CODE(CKR_USER_TYPE_INVALID),
    VSIM_CODE(CKR_BUFFER_TOO_SMALL),
    VSIM_CODE(CKR_CRYPTOKI_NOT_INITIALIZED),
    VSIM_CODE(CKR_CRYPTOKI_ALREADY_INITIALIZED),
    VSIM_CODE(CKR_RANDOM_SEED_NOT_SUPPORTED),
    VSIM_CODE(CKR_RANDOM_NO_RNG),
};
#undef VSIM_CODE

std::string trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return "";
    size_t end = text.find_last_not_of(" \t\r\n");
    return text.substr(begin, end - begin + 1);
}

// The hexadecimal bytes of a fixed answer, two digits each.
bool parseAnswer(const std::string& hex, std::vector<unsigned char>& out, std::string& error) {
    out.clear();
    for (size_t i = 0; i < hex.size(); i += 2) {
        char* end = nullptr;
        const std::string pair = hex.substr(i, 2);
        const unsigned long value = std::strtoul(pair.c_str(), &end, 16);
        if (pair.size() != 2 || *end != '\0' || !std::isxdigit(static_cast<unsigned char>(pair[0]))) {
            error = "fault answer '" + hex + "' is not hexadecimal bytes";
            return false;
        }
        out.push_back(static_cast<unsigned char>(value));
    }
    return true;
}

bool parseEntry(const std::string& entry, FaultRule& rule, std::string& error) {
    size_t equals = entry.find('=');
    if (equals == std::string::npos) {
        error = "fault '" + entry + "' lacks '=RESULT'";
        return false;
    }
    std::string target = trim(entry.substr(0, equals));
    std::string result = trim(entry.substr(equals + 1));
    size_t hash = target.find('#');
    if (hash != std::string::npos) {
        const std::string nth = trim(target.substr(hash + 1));
        char* end = nullptr;
        const long value = std::strtol(nth.c_str(), &end, 10);
        if (nth.empty() || *end != '\0' || value < 1) {
            error = "fault call number '" + nth + "' is not a number from 1";
            return false;
        }
        rule.skip = static_cast<int>(value - 1);
        target = trim(target.substr(0, hash));
    }
    size_t at = target.find('@');
    rule.function = trim(target.substr(0, at));
    rule.card = at == std::string::npos ? "*" : trim(target.substr(at + 1));
    if (rule.function.empty()) rule.function = "*";
    if (rule.card.empty()) rule.card = "*";
    if (rule.function != "*" && rule.function.compare(0, 2, "C_") != 0) {
        error = "fault function '" + rule.function + "' is not an entry point";
        return false;
    }
    size_t star = result.find('*');
    rule.times = -1;
    if (star != std::string::npos) {
        std::string times = trim(result.substr(star + 1));
        char* end = nullptr;
        long value = std::strtol(times.c_str(), &end, 10);
        if (times.empty() || *end != '\0') {
            error = "fault count '" + times + "' is not a number";
            return false;
        }
        rule.times = value <= 0 ? -1 : static_cast<int>(value);
        result = trim(result.substr(0, star));
    }
    if (result.compare(0, 7, "answer:") == 0) {
        rule.answers = true;
        rule.rv = CKR_OK;
        return parseAnswer(trim(result.substr(7)), rule.answer, error);
    }
    if (result == "malformed") {
        rule.malformed = true;
        rule.rv = CKR_OK;
        return true;
    }
    if (!parseReturnCode(result, rule.rv)) {
        error = "fault result '" + result + "' is neither a CKR_ name nor a number";
        return false;
    }
    return true;
}

} // namespace

bool parseReturnCode(const std::string& text, CK_RV& out) {
    for (const auto& code : kCodes) {
        if (text == code.name) {
            out = code.rv;
            return true;
        }
    }
    if (text.empty()) return false;
    char* end = nullptr;
    unsigned long value = std::strtoul(text.c_str(), &end, 0);
    if (*end != '\0') return false;
    out = value;
    return true;
}

std::string returnCodeName(CK_RV rv) {
    for (const auto& code : kCodes) {
        if (code.rv == rv) return code.name;
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "0x%lx", rv);
    return buffer;
}

bool parseFaultRules(const std::string& ruleText, std::vector<FaultRule>& out, std::string& error) {
    std::vector<FaultRule> rules;
    std::istringstream in(ruleText);
    std::string entry;
    while (std::getline(in, entry, ';')) {
        entry = trim(entry);
        if (entry.empty()) continue;
        FaultRule rule;
        if (!parseEntry(entry, rule, error)) return false;
        rules.push_back(rule);
    }
    out.insert(out.end(), rules.begin(), rules.end());
    return true;
}

std::string faultRuleToString(const FaultRule& rule) {
    std::string text = rule.function;
    if (rule.card != "*") text += "@" + rule.card;
    if (rule.skip > 0) text += "#" + std::to_string(rule.skip + 1);
    if (rule.answers) {
        text += "=answer:";
        for (unsigned char byte : rule.answer) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02X", byte);
            text += digits;
        }
    } else {
        text += "=" + (rule.malformed ? std::string("malformed") : returnCodeName(rule.rv));
    }
    if (rule.times > 0) text += "*" + std::to_string(rule.times);
    return text;
}

} // namespace VessaSim
