// One PKCS#11 object of a simulated card: its attributes, which of them are
// secret, and what the object stands for on the card (key, certificate,
// data file), so that the calls know which PIN guards it.
#pragma once

#include "sim/CardSet.h"
#include "sim/CardStateText.h"
#include "sim/OpenSslPtr.h"

#include <p11-kit/pkcs11.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace VessaSim {

enum class ObjectRole {
    PrivateKey,
    PublicKey,
    Certificate,
    DataFile,           // PERSONENBINDUNG, RFU1, RFU2 of cards without infobox file
    InfoboxEntry,       // 0xNN objects of cards with infobox file
    InfoboxFile,        // INFOBOX, rebuilt from the entries
    IdentityLinkAlias,  // PERSONENBINDUNG of cards with infobox file: entry 1
};

// Vendor attributes that run PIN dialogues when set.
constexpr CK_ATTRIBUTE_TYPE kAttrChangePin = 0x200;
constexpr CK_ATTRIBUTE_TYPE kAttrUnblockPin = 0x201;
constexpr CK_ATTRIBUTE_TYPE kAttrForceSoftwarePin = 0x80000002UL;

struct SimObject {
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    ObjectRole role = ObjectRole::DataFile;
    PinIndex pin = PinIdentityLink;  // the PIN that guards using or changing it
    SharedPkey key;                  // keys only
    unsigned char infoboxTag = 0;    // InfoboxEntry only
    unsigned char infoboxType = 0;   // InfoboxEntry only; bit 0 mirrors CKA_PRIVATE
    std::map<CK_ATTRIBUTE_TYPE, std::vector<unsigned char>> attributes;
    std::set<CK_ATTRIBUTE_TYPE> sensitive;  // exist but are never revealed

    void setBytes(CK_ATTRIBUTE_TYPE type, const std::vector<unsigned char>& value) { attributes[type] = value; }
    void setText(CK_ATTRIBUTE_TYPE type, const std::string& value);
    void setBool(CK_ATTRIBUTE_TYPE type, bool value);
    void setUlong(CK_ATTRIBUTE_TYPE type, CK_ULONG value);

    const std::vector<unsigned char>* find(CK_ATTRIBUTE_TYPE type) const;
    bool getBool(CK_ATTRIBUTE_TYPE type) const;
    CK_ULONG getUlong(CK_ATTRIBUTE_TYPE type) const;
    std::string label() const;
    CK_OBJECT_CLASS objectClass() const { return getUlong(CKA_CLASS); }
    bool isPrivate() const { return getBool(CKA_PRIVATE); }
    bool isDataObject() const {
        return role == ObjectRole::DataFile || role == ObjectRole::InfoboxEntry ||
               role == ObjectRole::InfoboxFile || role == ObjectRole::IdentityLinkAlias;
    }

    // Every attribute of the template present with an equal value.
    bool matches(const CK_ATTRIBUTE* pattern, CK_ULONG count) const;
};

} // namespace VessaSim
