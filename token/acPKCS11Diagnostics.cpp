// The module's own description of itself, every slot and every token, for the
// diagnostics report (see ModuleDiagnostics.h).
#include "token/ModuleDiagnostics.h"
#include "token/acPKCS11.h"
#include "token/acPKCS11Internal.h"

#include <algorithm>
#include <cstring>

namespace Korvex {

using tokenimpl::callModule;

std::string TrimmedField(const unsigned char* field, size_t width)
{
    std::string text = tokenimpl::printedField(field, width);
    const size_t end = text.find_last_not_of(' ');
    text.erase(end == std::string::npos ? 0 : end + 1);
    return text;
}

bool acPKCS11::ReadModuleDiagnostics(ModuleDiagnostics& out)
{
    out = ModuleDiagnostics();
    out.modulePath = m_LoadReport.path;
    CK_INFO info;
    std::memset(&info, 0, sizeof(info));
    out.infoRv = callModule(Proc_C_GetInfo, &info);
    if (out.infoRv == CKR_OK) {
        out.cryptokiVersion = info.cryptokiVersion;
        out.libraryVersion = info.libraryVersion;
        out.manufacturer = TrimmedField(info.manufacturerID, sizeof(info.manufacturerID));
        out.description = TrimmedField(info.libraryDescription, sizeof(info.libraryDescription));
    }

    // Every slot, also the empty readers: what a reader without a card is
    // called is often the question.
    CK_ULONG count = 0;
    out.slotListRv = callModule(Proc_C_GetSlotList, CK_FALSE, nullptr, &count);
    if (out.slotListRv != CKR_OK)
        return false;
    if (count > tokenimpl::kMaxSlotCount) {
        out.slotListRv = CKR_GENERAL_ERROR;
        return false;
    }
    std::vector<CK_SLOT_ID> ids(count);
    out.slotListRv = callModule(Proc_C_GetSlotList, CK_FALSE, ids.data(), &count);
    if (out.slotListRv != CKR_OK)
        return false;
    // A module may answer fewer slots the second time, never more.
    ids.resize(std::min<CK_ULONG>(count, ids.size()));

    for (CK_SLOT_ID id : ids) {
        SlotDiagnostics slot;
        slot.id = id;
        CK_SLOT_INFO slotInfo;
        std::memset(&slotInfo, 0, sizeof(slotInfo));
        slot.slotRv = callModule(Proc_C_GetSlotInfo, id, &slotInfo);
        if (slot.slotRv == CKR_OK) {
            slot.description = TrimmedField(slotInfo.slotDescription, sizeof(slotInfo.slotDescription));
            slot.manufacturer = TrimmedField(slotInfo.manufacturerID, sizeof(slotInfo.manufacturerID));
            slot.flags = slotInfo.flags;
            slot.tokenPresent = (slotInfo.flags & CKF_TOKEN_PRESENT) != 0;
        }
        if (slot.tokenPresent) {
            CK_TOKEN_INFO tokenInfo;
            std::memset(&tokenInfo, 0, sizeof(tokenInfo));
            slot.tokenRv = callModule(Proc_C_GetTokenInfo, id, &tokenInfo);
            if (slot.tokenRv == CKR_OK) {
                TokenDiagnostics& token = slot.token;
                token.label = TrimmedField(tokenInfo.label, sizeof(tokenInfo.label));
                token.manufacturer = TrimmedField(tokenInfo.manufacturerID, sizeof(tokenInfo.manufacturerID));
                token.model = TrimmedField(tokenInfo.model, sizeof(tokenInfo.model));
                token.serial = TrimmedField(tokenInfo.serialNumber, sizeof(tokenInfo.serialNumber));
                token.hardware = tokenInfo.hardwareVersion;
                token.firmware = tokenInfo.firmwareVersion;
                token.flags = tokenInfo.flags;
                token.minPinLength = tokenInfo.ulMinPinLen;
                token.maxPinLength = tokenInfo.ulMaxPinLen;
            }
        }
        out.slots.push_back(slot);
    }
    return true;
}

} // namespace Korvex
