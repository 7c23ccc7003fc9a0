// Records and result codes that the token layer hands to its callers: slot and
// token descriptions, card generations, PIN results and states, key kinds.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Korvex {

// Card generation as derived from the token information (model and label).
enum TokenType : int32_t {
    TOKEN_ACOS_A03 = 0,
    TOKEN_ACOS_A04 = 1,
    TOKEN_ACOS_A05 = 2,
    TOKEN_ECARD_G2 = 3,
    TOKEN_ECARD_G3A = 4,
    TOKEN_ECARD_G3B = 5,
    TOKEN_ECARD_G4 = 6,
    // Any value above TOKEN_ECARD_G4 means "no known generation".
    TOKEN_UNKNOWN = 7
};

// The PIN-protected areas of a card.
enum ApplType : int32_t {
    APPL_SIGNATURE = 0,     // key "SK.CH.SIG", 6-digit PIN
    APPL_ENCRYPTION = 1,    // key "SK.CH.EKEY", 4-digit PIN
    APPL_IDENTITY_LINK = 2  // data object "PERSONENBINDUNG"
};

// Result of a PIN command or PIN status query.
enum PKCS11Return : int32_t {
    PKCS11_OK = 0,
    PKCS11_CANCELED = 1,
    PKCS11_PIN_INCORRECT = 2,
    PKCS11_PIN_LOCKED = 3,
    PKCS11_ERROR = -1,
    PKCS11_NOT_SUPPORTED = -2
};

// Retry state of one PIN as the card reports it.
enum PINState : int32_t {
    PIN_STATE_NO_TRIES = 0,
    PIN_STATE_TRIES_LEFT = 1,
    PIN_STATE_UNKNOWN = 2
};

// Kind of a signing key.
enum SignKey : int32_t {
    SIGN_KEY_RSA = 0,
    SIGN_KEY_EC = 1
};

// Key algorithm codes used in TokenInfoStruct2.
enum KeyAlgorithm : int32_t {
    KEY_ALGO_RSA = 0,
    KEY_ALGO_EC = 1
};

// One reader that holds a card, as found by GetSlots.
struct SlotStruct {
    CK_SLOT_ID slotID = 0;
    std::string label;   // CK_TOKEN_INFO.label, 32 characters, padding kept
    std::string serial;  // CK_TOKEN_INFO.serialNumber, 16 characters (card number)
};

// Token information, fixed-width fields as delivered by the module.
struct TokenInfoStruct {
    std::string label;         // 32
    std::string manufacturer;  // 32
    std::string model;         // 16
    std::string serial;        // 16
};

// Token information plus what the card generation tells about the card.
struct TokenInfoStruct2 {
    std::string label;
    std::string manufacturer;
    std::string model;
    std::string serial;
    int32_t sigKeyAlgo = KEY_ALGO_RSA;  // KeyAlgorithm
    int32_t sigKeyLength = 0;           // bits
    int32_t encKeyAlgo = KEY_ALGO_RSA;  // KeyAlgorithm
    int32_t encKeyLength = 0;           // bits
    // Preset to "unknown": an unclassified card keeps what the caller put here.
    TokenType tokenType = TOKEN_UNKNOWN;
    // Set for the generations that keep an infobox file instead of the three
    // fixed data objects.
    bool extended = false;
};

// Message line logged when the module answers a PIN command with
// CKR_FUNCTION_FAILED: it could not show its own PIN dialogue.
inline constexpr const char* kPinDialogueNotShown =
    "PIN dialogue could not be shown by the module (CKR_FUNCTION_FAILED)";

// What a token says about its own state, beside its identity records: the
// standard token flags (initialised, PIN counters low, final try, locked).
struct TokenState {
    CK_FLAGS flags = 0;
};

// An object of a standard token: a certificate (value: its DER) or a key.
struct TokenObject {
    CK_OBJECT_HANDLE handle = 0;
    std::string label;
    std::vector<unsigned char> id;
    std::vector<unsigned char> value;
    CK_KEY_TYPE keyType = CKK_RSA;
    bool hasPrivateKey = false;
};

// What one non-blocking look for a slot event found.
enum SlotEventPoll : int32_t {
    SLOT_EVENT_NONE = 0,     // nothing happened since the last look
    SLOT_EVENT_SEEN = 1,     // a card came or went in the slot reported
    SLOT_EVENT_UNSUPPORTED,  // the module has no slot events: compare slot lists
    SLOT_EVENT_FAILED,
};

// Why the module could not be put to use, with the facts the user needs.
enum ModuleFailure : int32_t {
    MODULE_READY = 0,
    MODULE_NOT_FOUND,      // not on the loader's search path
    MODULE_NOT_LOADABLE,   // found, but the loader refused it (loaderText)
    MODULE_ENTRY_MISSING,  // an entry point the program needs (entryPoint)
    MODULE_INIT_FAILED,    // C_Initialize returned rv
};

struct ModuleLoadReport {
    ModuleFailure failure = MODULE_READY;
    std::string library;     // the name it was opened by
    std::string searchPath;  // LD_LIBRARY_PATH at the time, empty when unset
    std::string loaderText;  // the loader's own message
    std::string path;        // the file actually loaded
    std::string entryPoint;
    CK_RV rv = CKR_OK;
};

// Vendor extensions of the module (not part of the PKCS#11 function list).
typedef CK_RV (*PFN_C_CardTransmit)(CK_SESSION_HANDLE session, CK_BYTE_PTR command,
                                    CK_ULONG commandLength, CK_BYTE_PTR response,
                                    CK_ULONG_PTR responseLength);
typedef CK_RV (*PFN_C_CardAttribute)(CK_SESSION_HANDLE session, const char* name,
                                     CK_BYTE_PTR out, CK_ULONG_PTR outLength);

// Vendor attribute types that start the module's own PIN dialogues.
constexpr CK_ATTRIBUTE_TYPE CKA_VENDOR_CHANGE_PIN = 0x200;
constexpr CK_ATTRIBUTE_TYPE CKA_VENDOR_UNBLOCK_PIN = 0x201;
constexpr CK_ATTRIBUTE_TYPE CKA_VENDOR_FORCE_SOFTWARE_PIN = 0x80000002UL;

} // namespace Korvex
