// Slot enumeration, token information with the card-generation table, and
// the card's answer-to-reset with the card type codes derived from it.
#include "token/acPKCS11.h"

#include "base/Conversion.h"
#include "token/LoadFreeLib.h"
#include "token/TokenProfile.h"
#include "token/acPKCS11Internal.h"

#include <algorithm>
#include <cstring>

namespace Korvex {

using tokenimpl::callModule;
using tokenimpl::startsWith;

namespace {

const char kBlankSerial[] = "0000000000000000";

struct AtrRow {
    const char* prefix;
    int32_t cardType;
};

const AtrRow kAtrTypes[] = {
    {"3BBF11008131FE45455041", 1},  // refined by the model below
    {"3BBF94008131FE65454C55204175737472696129312E313B", 4},
    {"3BBD18008131FE45805102", 3},
    {"3BDD96FF81B1FE451F038031B0520203", 7},
    {"3BDF18008131FE588031B05202046405C903AC73B7B1D422", 8},
};

// The identifiers of the slots with a token present, asked for in the usual
// two calls: the count first, then the list. `position` refuses a count that
// cannot reach that position before the second call (a position equal to the
// count still passes here). Each call's failure is logged with its own text.
bool listTokenSlots(CK_C_GetSlotList getSlotList, const char* countErrorText,
                    const char* listErrorText, std::vector<CK_SLOT_ID>& ids,
                    unsigned long position = 0)
{
    CK_ULONG count = 0;
    CK_RV rv = callModule(getSlotList, CK_TRUE, nullptr, &count);
    if (rv != CKR_OK) {
        LogError(countErrorText, rv);
        return false;
    }
    if (position > count)
        return false;
    if (count > tokenimpl::kMaxSlotCount)
        count = tokenimpl::kMaxSlotCount;

    ids.assign(count, 0);
    CK_ULONG returned = count;
    rv = callModule(getSlotList, CK_TRUE, ids.data(), &returned);
    if (rv != CKR_OK) {
        LogError(listErrorText, rv);
        return false;
    }
    // The list may have shrunk between the two calls.
    if (returned < ids.size())
        ids.resize(returned);
    return true;
}

// Asks the card attribute `name` for the answer-to-reset (the current one, or
// the one after a reset) and hands it to the token as its ATR; a failure is
// logged with errorText and leaves the token's ATR as it was.
void takeAnswerToReset(acPKCS11& token, PFN_C_CardAttribute cardAttribute,
                       CK_SESSION_HANDLE session, const char* name, const char* errorText)
{
    unsigned char buffer[256];
    CK_ULONG length = sizeof(buffer);
    CK_RV rv = cardAttribute(session, name, buffer, &length);
    if (rv != CKR_OK) {
        LogError(errorText, rv);
        return;
    }
    if (length > sizeof(buffer))
        length = sizeof(buffer);
    token.SetAtr(buffer, length);
}

// The module's token information as the fixed-width record.
void takeTokenInfo(const CK_TOKEN_INFO& tokenInfo, TokenInfoStruct& info)
{
    info.label = tokenimpl::fullField(tokenInfo.label, 32);
    info.manufacturer = tokenimpl::fullField(tokenInfo.manufacturerID, 32);
    info.model = tokenimpl::fullField(tokenInfo.model, 16);
    info.serial = tokenimpl::fullField(tokenInfo.serialNumber, 16);
}

} // namespace

// C_GetTokenInfo of one slot into the fixed-width record.
bool tokenimpl::readTokenInfo(CK_C_GetTokenInfo getTokenInfo, CK_SLOT_ID id, TokenInfoStruct& info,
                              CK_TOKEN_INFO* raw)
{
    CK_TOKEN_INFO tokenInfo;
    std::memset(&tokenInfo, 0, sizeof(tokenInfo));
    CK_RV rv = callModule(getTokenInfo, id, &tokenInfo);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_GetTokenInfo ERROR", rv);
        return false;
    }
    takeTokenInfo(tokenInfo, info);
    if (raw != nullptr)
        *raw = tokenInfo;
    return true;
}

bool acPKCS11::GetSlots(std::vector<SlotStruct*>& slots)
{
    return GetSlots(slots, false);
}

bool acPKCS11::GetSlots(std::vector<SlotStruct*>& slots, bool includeBlankSerial)
{
    LogMessage("PKCS11 GetSlots");
    slots.clear();
    DeleteSlots();
    m_UnreadSlots = 0;

    std::vector<CK_SLOT_ID> ids;
    if (!listTokenSlots(Proc_C_GetSlotList, "PKCS11 Proc_C_GetSlotList ERROR",
                        "PKCS11 Proc_C_GetSlotList(2) ERROR", ids))
        return false;

    for (CK_SLOT_ID id : ids) {
        CK_TOKEN_INFO tokenInfo;
        std::memset(&tokenInfo, 0, sizeof(tokenInfo));
        CK_RV rv = callModule(Proc_C_GetTokenInfo, id, &tokenInfo);
        if (rv != CKR_OK) {
            LogError("PKCS11 Proc_C_GetTokenInfo ERROR (continue)", rv);
            ++m_UnreadSlots;
            continue;
        }
        CK_SLOT_INFO slotInfo;
        std::memset(&slotInfo, 0, sizeof(slotInfo));
        rv = callModule(Proc_C_GetSlotInfo, id, &slotInfo);
        if (rv != CKR_OK) {
            // Same text as above: the log names the token call for either.
            LogError("PKCS11 Proc_C_GetTokenInfo ERROR (continue)", rv);
            ++m_UnreadSlots;
            continue;
        }
        // Built-in tokens (no removable reader) are not citizen cards; a
        // module the user named is listed whole (SoftHSM2, a TPM).
        if ((slotInfo.flags & CKF_REMOVABLE_DEVICE) == 0 && !IsNamedModule())
            continue;

        std::string label = tokenimpl::printedField(tokenInfo.label, 32);
        std::string serial = tokenimpl::printedField(tokenInfo.serialNumber, 16);
        LogMessage("token label: ", label);
        LogMessage("token serial: ", serial);
        // An unpersonalised card carries sixteen zeros as its serial.
        if (!includeBlankSerial && serial == kBlankSerial)
            continue;
        // A token without a serial number (SoftHSM2's free slot waiting to
        // be initialised) cannot be told apart from the next one.
        if (IsNamedModule() && serial.find_first_not_of(' ') == std::string::npos)
            continue;

        SlotStruct* slot = new SlotStruct;
        slot->slotID = id;
        slot->label = label;
        slot->serial = serial;
        m_Slots.push_back(slot);
        ListedToken listed{id, {}, tokenInfo};
        takeTokenInfo(tokenInfo, listed.info);
        m_ListedTokens.push_back(listed);
    }
    slots = m_Slots;
    return true;
}

bool acPKCS11::CountReaders(size_t& readers)
{
    readers = 0;
    CK_ULONG count = 0;
    if (callModule(Proc_C_GetSlotList, CK_FALSE, nullptr, &count) != CKR_OK)
        return false;
    std::vector<CK_SLOT_ID> ids(std::min<CK_ULONG>(count, tokenimpl::kMaxSlotCount));
    CK_ULONG returned = ids.size();
    if (callModule(Proc_C_GetSlotList, CK_FALSE, ids.data(), &returned) != CKR_OK)
        return false;
    ids.resize(std::min<CK_ULONG>(returned, ids.size()));
    for (CK_SLOT_ID id : ids) {
        CK_SLOT_INFO info;
        std::memset(&info, 0, sizeof(info));
        // As the listing counts them: a named module's fixed slots too.
        if (callModule(Proc_C_GetSlotInfo, id, &info) == CKR_OK &&
            ((info.flags & CKF_REMOVABLE_DEVICE) != 0 || IsNamedModule()))
            ++readers;
    }
    return true;
}

void acPKCS11::DeleteSlots()
{
    for (SlotStruct* slot : m_Slots)
        delete slot;
    m_Slots.clear();
    m_ListedTokens.clear();
    m_ChangedSlots.clear();
}

namespace {

// The record plus what the generation table tells about the card.
void classify(const TokenInfoStruct& basic, TokenInfoStruct2& info)
{
    info.label = basic.label;
    info.manufacturer = basic.manufacturer;
    info.model = basic.model;
    info.serial = basic.serial;
    info.extended = false;
    for (const CardGeneration& row : kCardGenerations) {
        if (!startsWith(info.model, row.model))
            continue;
        if (row.label != nullptr && !startsWith(info.label, row.label))
            continue;
        info.tokenType = row.type;
        info.sigKeyAlgo = row.sigAlgo;
        info.sigKeyLength = row.sigLength;
        info.encKeyAlgo = row.encAlgo;
        info.encKeyLength = row.encLength;
        info.extended = row.extended;
        break;
    }
}

} // namespace

bool acPKCS11::GetTokenInfo(unsigned long position, TokenInfoStruct& info)
{
    std::vector<CK_SLOT_ID> ids;
    if (!listTokenSlots(Proc_C_GetSlotList, "PKCS11 Proc_C_GetSlotList(1) ERROR",
                        "PKCS11 Proc_C_GetSlotList(2) ERROR", ids, position))
        return false;
    // A position equal to the count passes the test in the listing; there is
    // no slot there (nor when the list shrank between the two calls).
    if (position >= ids.size())
        return false;
    return tokenimpl::readTokenInfo(Proc_C_GetTokenInfo, ids[position], info);
}

bool acPKCS11::GetTokenInfo(unsigned long position, TokenInfoStruct2& info)
{
    TokenInfoStruct basic;
    if (!GetTokenInfo(position, basic))
        return false;
    classify(basic, info);
    return true;
}

bool acPKCS11::GetTokenInfoForSlot(CK_SLOT_ID slot, TokenInfoStruct2& info)
{
    TokenInfoStruct basic;
    if (!tokenimpl::readTokenInfo(Proc_C_GetTokenInfo, slot, basic))
        return false;
    classify(basic, info);
    return true;
}

bool acPKCS11::GetTokenState(CK_SLOT_ID slot, TokenState& state)
{
    TokenInfoStruct ignored;
    CK_TOKEN_INFO raw;
    if (!tokenimpl::readTokenInfo(Proc_C_GetTokenInfo, slot, ignored, &raw))
        return false;
    state.flags = raw.flags;
    return true;
}

const acPKCS11::ListedToken* acPKCS11::findListed(CK_SLOT_ID slot) const
{
    for (const ListedToken& listed : m_ListedTokens)
        if (listed.slot == slot)
            return &listed;
    return nullptr;
}

bool acPKCS11::ListedTokenInfo(CK_SLOT_ID slot, TokenInfoStruct2& info) const
{
    const ListedToken* listed = findListed(slot);
    if (listed != nullptr)
        classify(listed->info, info);
    return listed != nullptr;
}

bool acPKCS11::ListedTokenInfo(CK_SLOT_ID slot, TokenInfoStruct2& info, CK_TOKEN_INFO& raw) const
{
    const ListedToken* listed = findListed(slot);
    if (listed == nullptr)
        return false;
    classify(listed->info, info);
    raw = listed->raw;
    return true;
}

bool acPKCS11::GetTokenInfoForSlot(CK_SLOT_ID slot, TokenInfoStruct2& info, CK_TOKEN_INFO& raw)
{
    if (!GetStandardTokenInfo(slot, raw))
        return false;
    TokenInfoStruct basic;
    basic.label = tokenimpl::fullField(raw.label, 32);
    basic.manufacturer = tokenimpl::fullField(raw.manufacturerID, 32);
    basic.model = tokenimpl::fullField(raw.model, 16);
    basic.serial = tokenimpl::fullField(raw.serialNumber, 16);
    classify(basic, info);
    return true;
}

bool acPKCS11::GetPresentSlotIds(std::vector<CK_SLOT_ID>& ids)
{
    return listTokenSlots(Proc_C_GetSlotList, "PKCS11 Proc_C_GetSlotList ERROR",
                          "PKCS11 Proc_C_GetSlotList(2) ERROR", ids);
}

std::string acPKCS11::ReadATR(bool force)
{
    if (Proc_C_CardAttribute == nullptr)
        return std::string();
    if (!m_Atr.empty() && !force)
        return m_Atr;

    // A failure leaves the ATR empty.
    m_Atr.clear();
    takeAnswerToReset(*this, Proc_C_CardAttribute, m_hSession, "ATR", "Failed get ATR, rv = ");
    return m_Atr;
}

std::string acPKCS11::Reset()
{
    if (Proc_C_CardAttribute == nullptr)
        return std::string();

    // A failure leaves the ATR empty.
    m_Atr.clear();
    takeAnswerToReset(*this, Proc_C_CardAttribute, m_hSession, "Reset", "Failed do Reset, rv =");
    return m_Atr;
}

void acPKCS11::SetAtr(const unsigned char* atr, unsigned long length)
{
    m_Atr.clear();
    if (atr == nullptr)
        length = 0;
    std::vector<unsigned char> bytes(atr, atr + length);
    if (BinData2HexStr(bytes, m_Atr) != 2 * length)
        LogError("Fehler bei BinData2HexStr");
}

bool acPKCS11::LoadCardType()
{
    m_CardType = 0;
    if (m_hSession == 0 || m_SlotIndex < 0 || static_cast<size_t>(m_SlotIndex) >= m_Slots.size())
        return false;

    std::string atr = ReadATR(false);
    for (const AtrRow& row : kAtrTypes) {
        if (!startsWith(atr, row.prefix))
            continue;
        m_CardType = row.cardType;
        if (row.cardType == 1) {
            // The module is asked with the slot identifier where a position
            // is expected; slot numbering of the vendor module makes the two
            // agree, and a failure keeps code 1.
            TokenInfoStruct2 info;
            if (GetTokenInfo(m_Slots[m_SlotIndex]->slotID, info)) {
                if (startsWith(info.model, "ACOS EMV-A04"))
                    m_CardType = 5;
                else if (startsWith(info.model, "ACOS EMV-A05"))
                    m_CardType = 6;
            }
        }
        return true;
    }
    LogError("Unknown atr=" + atr);
    return false;
}

bool acPKCS11::TakeCardTypeOf(const TokenInfoStruct2& info)
{
    // The codes these generations' answers-to-reset give (see kAtrTypes).
    switch (info.tokenType) {
    case TOKEN_ECARD_G3A: m_CardType = 3; break;
    case TOKEN_ECARD_G3B: m_CardType = 7; break;
    case TOKEN_ECARD_G4: m_CardType = 8; break;
    default: m_CardType = 0; return false;
    }
    // A remembered answer-to-reset may be another card's; the next reader
    // of it asks this card.
    m_Atr.clear();
    return true;
}

} // namespace Korvex
