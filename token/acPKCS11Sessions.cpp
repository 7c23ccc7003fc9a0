// The one session of an object, finding a card by its card number, reading
// the card number over APDUs, and object search on the open session.
#include "token/acPKCS11.h"

#include "base/Conversion.h"
#include "token/acPKCS11Internal.h"

#include <cstdlib>
#include <cstring>

namespace Korvex {

using tokenimpl::callModule;

bool acPKCS11::OpenSession(int32_t position, bool readWrite)
{
    LogMessage("PKCS11 OpenSession");
    if (position < 0 || static_cast<size_t>(position) >= m_Slots.size())
        return false;
    // A read-only open simply replaces the handle of a session still open.
    if (readWrite)
        CloseSession();

    CK_FLAGS flags = readWrite ? (CKF_SERIAL_SESSION | CKF_RW_SESSION) : CKF_SERIAL_SESSION;
    CK_SESSION_HANDLE session = 0;
    CK_RV rv = callModule(Proc_C_OpenSession, m_Slots[position]->slotID, flags, nullptr, nullptr,
                          &session);
    if (rv == CKR_OK) {
        m_hSession = session;
        m_SlotIndex = position;
        return true;
    }
    LogError("PKCS11 Proc_C_OpenSession ERROR", rv);
    m_hSession = 0;
    return false;
}

bool acPKCS11::OpenSessionOnCard(CK_SLOT_ID slot, const std::string& serial, bool readWrite, bool& sameCard)
{
    sameCard = false;
    // What the last listing read of the slot, while no card has come or gone
    // there since; read as the slot scan reads it: up to a NUL byte.
    ListedToken listed{slot, {}, {}};
    bool known = false;
    const ListedToken* entry = findListed(slot);
    if (entry != nullptr && std::string(entry->info.serial.c_str()) == serial) {
        listed = *entry;
        known = slotUnchangedSinceListing(slot);
    }
    if (!known) {
        if (!tokenimpl::readTokenInfo(Proc_C_GetTokenInfo, slot, listed.info, &listed.raw) ||
            std::string(listed.info.serial.c_str()) != serial)
            return false;
    }
    sameCard = true;
    // The slot's events from here on are news about this reading.
    DeleteSlots();
    SlotStruct* record = new SlotStruct;
    record->slotID = slot;
    record->label = listed.info.label;
    record->serial = serial;
    m_Slots.push_back(record);
    m_ListedTokens.push_back(listed);
    return OpenSession(0, readWrite);
}

bool acPKCS11::CloseSession()
{
    LogMessage("PKCS11 Proc_C_CloseSession");
    if (m_hSession != 0) {
        // A card already pulled out makes this fail; the handle is gone anyway.
        callModule(Proc_C_CloseSession, m_hSession);
        m_hSession = 0;
    }
    m_SlotIndex = -1;
    return true;
}

int32_t acPKCS11::findSlotForCin(const std::string& cin)
{
    if (!init())
        return -1;
    std::vector<SlotStruct*> slots;
    if (!GetSlots(slots) || slots.empty())
        return -1;

    for (size_t i = 0; i < slots.size(); ++i) {
        const std::string& serial = slots[i]->serial;
        if (cin.size() < 13) {
            // A short card number names the card by the first twelve
            // characters of its token serial.
            if (serial.size() >= 12 && serial.compare(0, 12, cin) == 0)
                return static_cast<int32_t>(i);
        } else if (serial == cin) {
            return static_cast<int32_t>(i);
        }
    }
    return -1;
}

bool acPKCS11::OpenGlobalSession(const std::string& cin)
{
    int32_t position = findSlotForCin(cin);
    if (position < 0 || static_cast<size_t>(position) >= m_Slots.size())
        return false;
    return OpenSession(position, true);
}

bool acPKCS11::GetCinCsn(std::string& cin)
{
    static const unsigned char kSelectDF[] = {0x00, 0xA4, 0x00, 0x0C, 0x02, 0xDF, 0x71};
    static const unsigned char kSelectEF[] = {0x00, 0xA4, 0x00, 0x0C, 0x02, 0xD0, 0x01};
    static const unsigned char kReadBinary[] = {0x00, 0xB0, 0x00, 0x00, 0x00};
    struct Step {
        const unsigned char* command;
        unsigned long commandLength;
        const char* errorText;
    };
    static const Step kSteps[] = {
        {kSelectDF, sizeof(kSelectDF), "error select DF DEC"},
        {kSelectEF, sizeof(kSelectEF), "error select EF DEC"},
        {kReadBinary, sizeof(kReadBinary), "error read binary"},
    };

    // Status words are not examined: the module call itself must succeed.
    // The last step's response holds the card number.
    unsigned char response[256];
    unsigned long length = 0;
    for (const Step& step : kSteps) {
        length = sizeof(response);
        if (!SendAPDU(step.command, step.commandLength, response, length)) {
            LogError(step.errorText);
            return false;
        }
    }
    if (length <= 9)
        return false;

    std::vector<unsigned char> number(response, response + 8);
    return BinData2HexStr(number, cin) == 16;
}

bool acPKCS11::FindObjects(CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* handles,
                           CK_ULONG capacity, CK_ULONG& found)
{
    found = 0;
    if (m_hSession == 0)
        return false;

    CK_RV rv = callModule(Proc_C_FindObjectsInit, m_hSession, attributes, count);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_FindObjectsInit", rv);
        return false;
    }
    rv = callModule(Proc_C_FindObjects, m_hSession, handles, capacity, &found);
    if (rv != CKR_OK) {
        // The search stays open; the module decides on the next init.
        LogError("PKCS11 Proc_C_FindObjects", rv);
        found = 0;
        return false;
    }
    // Never trust a count larger than the array the module was given.
    if (found > capacity)
        found = capacity;
    rv = callModule(Proc_C_FindObjectsFinal, m_hSession);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_FindObjectsFinal", rv);
        return false;
    }
    return true;
}

bool acPKCS11::FindObject(const char* label, CK_OBJECT_CLASS objectClass, CK_OBJECT_HANDLE& handle)
{
    if (label == nullptr)
        return false;
    CK_ATTRIBUTE attributes[] = {
        {CKA_CLASS, &objectClass, sizeof(objectClass)},
        {CKA_LABEL, const_cast<char*>(label), std::strlen(label)},
    };
    CK_OBJECT_HANDLE found[1] = {CK_INVALID_HANDLE};
    CK_ULONG count = 0;
    if (!FindObjects(attributes, 2, found, 1, count)) {
        LogError("acPKCS11::FindObject: FindObjects error");
        return false;
    }
    if (count != 1)
        return false;
    handle = found[0];
    return true;
}

long acPKCS11::GetSerialNumberInt() const
{
    return std::strtol(GetSerialNumber().c_str(), nullptr, 16);
}

} // namespace Korvex
