// Attribute storage and template matching of simulated objects.
#include "sim/SimObject.h"

#include <cstring>

namespace VessaSim {

void SimObject::setText(CK_ATTRIBUTE_TYPE type, const std::string& value) {
    attributes[type].assign(value.begin(), value.end());
}

void SimObject::setBool(CK_ATTRIBUTE_TYPE type, bool value) {
    attributes[type] = {static_cast<unsigned char>(value ? CK_TRUE : CK_FALSE)};
}

void SimObject::setUlong(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    std::vector<unsigned char> bytes(sizeof(CK_ULONG));
    std::memcpy(bytes.data(), &value, sizeof value);
    attributes[type] = bytes;
}

const std::vector<unsigned char>* SimObject::find(CK_ATTRIBUTE_TYPE type) const {
    auto it = attributes.find(type);
    return it == attributes.end() ? nullptr : &it->second;
}

bool SimObject::getBool(CK_ATTRIBUTE_TYPE type) const {
    const auto* value = find(type);
    return value && value->size() == 1 && (*value)[0] != CK_FALSE;
}

CK_ULONG SimObject::getUlong(CK_ATTRIBUTE_TYPE type) const {
    const auto* value = find(type);
    CK_ULONG result = 0;
    if (value && value->size() == sizeof result) std::memcpy(&result, value->data(), sizeof result);
    return result;
}

std::string SimObject::label() const {
    const auto* value = find(CKA_LABEL);
    return value ? std::string(value->begin(), value->end()) : std::string();
}

bool SimObject::matches(const CK_ATTRIBUTE* pattern, CK_ULONG count) const {
    for (CK_ULONG i = 0; i < count; ++i) {
        if (sensitive.count(pattern[i].type)) return false;
        const auto* value = find(pattern[i].type);
        if (!value || value->size() != pattern[i].ulValueLen) return false;
        if (!value->empty() && std::memcmp(value->data(), pattern[i].pValue, value->size()) != 0) return false;
    }
    return true;
}

} // namespace VessaSim
