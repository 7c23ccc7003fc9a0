// What the module says about itself, its readers and their cards, gathered
// for a support report: no PIN and no object of a card is read, only what
// C_GetInfo, C_GetSlotInfo and C_GetTokenInfo hand out.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace Korvex {

struct TokenDiagnostics {
    std::string label;         // blank padding removed
    std::string manufacturer;
    std::string model;
    std::string serial;
    CK_VERSION hardware{0, 0};
    CK_VERSION firmware{0, 0};
    CK_FLAGS flags = 0;        // token flags, PIN flags among them
    CK_ULONG minPinLength = 0;
    CK_ULONG maxPinLength = 0;
};

struct SlotDiagnostics {
    CK_SLOT_ID id = 0;
    CK_RV slotRv = CKR_OK;     // C_GetSlotInfo's answer
    std::string description;   // the reader's name
    std::string manufacturer;
    CK_FLAGS flags = 0;
    bool tokenPresent = false;
    CK_RV tokenRv = CKR_OK;    // C_GetTokenInfo's answer, when a token is present
    TokenDiagnostics token;
};

struct ModuleDiagnostics {
    std::string modulePath;    // the file actually loaded
    CK_RV infoRv = CKR_OK;     // C_GetInfo's answer
    CK_VERSION cryptokiVersion{0, 0};
    CK_VERSION libraryVersion{0, 0};
    std::string manufacturer;
    std::string description;
    CK_RV slotListRv = CKR_OK; // C_GetSlotList's answer
    std::vector<SlotDiagnostics> slots;  // every slot, with or without a card
};

// A blank-padded PKCS#11 text field without its padding, ending early at a NUL.
std::string TrimmedField(const unsigned char* field, size_t width);

} // namespace Korvex
