// The table of the vendor's card generations and the generic profile.
#include "token/TokenProfile.h"

#include "token/acPKCS11Internal.h"

namespace Korvex {

// "Starcos SPK 3.4+" must come before "Starcos SPK 3.4", which is a prefix of
// it. The e-Card G3A row leaves extended false on purpose.
const CardGeneration kCardGenerations[7] = {
    // type, model, label, name, sig, enc, extended, PIN digits, unblock, identity-link PIN,
    // counts tries, login PIN is identity link, infobox, identity link, APDU
    {TOKEN_ACOS_A03, "ACOS EMV-A03", nullptr, "vessa premium ACOS 03", KEY_ALGO_RSA, 1536, KEY_ALGO_EC, 192, false,
     6, 4, true, true, false, true, true, true, true},
    {TOKEN_ACOS_A04, "ACOS EMV-A04", nullptr, "vessa premium ACOS 04", KEY_ALGO_RSA, 1536, KEY_ALGO_EC, 256, true,
     6, 4, true, false, false, true, true, true, true},
    {TOKEN_ACOS_A05, "ACOS EMV-A05", nullptr, "vessa premium ACOS 05", KEY_ALGO_RSA, 1536, KEY_ALGO_EC, 256, true,
     6, 4, true, false, false, true, true, true, true},
    {TOKEN_ECARD_G4, "ATOS 5.3", "vessa premium e", "vessa premium e-Card G4", KEY_ALGO_RSA, 2048, KEY_ALGO_EC, 256,
     true, 6, 4, false, false, true, false, true, true, true},
    {TOKEN_ECARD_G3B, "Starcos SPK 3.4+", "vessa premium e", "vessa premium e-Card G3B", KEY_ALGO_RSA, 1536,
     KEY_ALGO_EC, 256, true, 6, 4, false, false, true, false, true, true, true},
    {TOKEN_ECARD_G3A, "Starcos SPK 3.4", "vessa premium e", "vessa premium e-Card G3A", KEY_ALGO_RSA, 1536,
     KEY_ALGO_EC, 256, false, 6, 4, false, false, true, false, true, true, true},
    {TOKEN_ECARD_G2, "Starcos SPK 3.1", "vessa premium e", "vessa premium e-Card G2", KEY_ALGO_EC, 192, KEY_ALGO_EC,
     192, false, 6, 4, false, false, false, false, true, true, true},
};

const CardGeneration* FindGeneration(int type)
{
    for (const CardGeneration& row : kCardGenerations)
        if (row.type == type)
            return &row;
    return nullptr;
}

TokenProfile ProfileOf(TokenType type, bool vendorExtensions, const CK_TOKEN_INFO& info)
{
    TokenProfile profile;
    const CardGeneration* generation = FindGeneration(type);
    if (generation != nullptr && vendorExtensions) {
        profile.vendor = true;
        for (int appl : {APPL_SIGNATURE, APPL_ENCRYPTION}) {
            profile.pinBox[appl] = profile.change[appl] = true;
            profile.unblock[appl] = generation->unblock;
        }
        profile.pinBox[APPL_IDENTITY_LINK] = true;
        profile.change[APPL_IDENTITY_LINK] = profile.unblock[APPL_IDENTITY_LINK] = generation->identityLinkPin;
        profile.infobox = generation->infobox;
        profile.identityLink = generation->identityLink;
        return profile;
    }
    // A token without login (the system's trust store) has no PIN to manage.
    const bool login = (info.flags & CKF_LOGIN_REQUIRED) != 0;
    profile.pinBox[APPL_SIGNATURE] = true;
    profile.change[APPL_SIGNATURE] = profile.unblock[APPL_SIGNATURE] = login;
    profile.protectedPath = (info.flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0;
    profile.minPinLength = info.ulMinPinLen;
    profile.maxPinLength = info.ulMaxPinLen;
    return profile;
}

std::string GenericTypeName(const CK_TOKEN_INFO& info)
{
    auto trimmed = [](const unsigned char* field, size_t width) {
        std::string text = tokenimpl::printedField(field, width);
        const size_t end = text.find_last_not_of(' ');
        return end == std::string::npos ? std::string() : text.substr(0, end + 1);
    };
    const std::string manufacturer = trimmed(info.manufacturerID, sizeof(info.manufacturerID));
    const std::string model = trimmed(info.model, sizeof(info.model));
    if (manufacturer.empty() || model.empty())
        return manufacturer + model;
    return manufacturer + " " + model;
}

} // namespace Korvex
