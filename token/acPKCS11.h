// The token layer: one object that loads the vendor's PKCS#11 module at run
// time and wraps what the card manager does with a card (slots and tokens,
// sessions, PIN dialogues, signing, certificates, card data objects).
//
// Threading: the object takes no locks. The refresh thread and the GUI thread
// must not use one object at the same time; the window guarantees that.
#pragma once

#include "crypto/HashAlgorithm.h"
#include "token/Uncopyable.h"
#include "token/acPKCS11Log.h"
#include "token/acPKCS11Types.h"

#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Korvex {

class slCertificate;
struct ModuleDiagnostics;
struct ParsedPublicKey;
struct TokenCertificateTexts;

// HashAlgorithm value for data that the caller has already hashed: the token
// signs or verifies it as it is (CKM_RSA_PKCS / CKM_ECDSA).
constexpr HashAlgorithm HashAlreadyHashed = static_cast<HashAlgorithm>(10);

class acPKCS11 : private Uncopyable {
public:
    // Size of the buffer that holds the DER of the last loaded certificate.
    static constexpr unsigned long CERT_BUFFER_SIZE = 5012;

    acPKCS11();  // also runs init(); a failure leaves a usable, unready object
    virtual ~acPKCS11();

    // ---- module (load, unload, client version, log hooks) ----
    bool init();
    bool destroy();
    void LoadVessaClientVersion(int32_t* version);  // four integers
    std::string GetVessaClientVersion();
    bool ClientSupportForceSofwarePin() const;
    static void SetErrorLoggingFunc(void (*fn)(const char*));
    static void SetMessageLoggingFunc(void (*fn)(const char*));

    static bool IsInitialized() { return m_bInitialized; }
    bool IsModuleLoaded() const { return m_hModule != nullptr; }
    const std::string& GetManufacturer() const { return m_Manufacturer; }
    const std::string& GetDescription() const { return m_Description; }
    const std::string& GetVersion() const { return m_Version; }
    // Whether the module offers the vendor extensions.
    static bool HasCardTransmit() { return Proc_C_CardTransmit != nullptr; }
    static bool HasCardAttribute() { return Proc_C_CardAttribute != nullptr; }
    // Whether the entry points came from the module's function table.
    static bool FromFunctionTable() { return m_FromFunctionTable; }
    // The module, every slot and every token as the module describes them
    // (token/ModuleDiagnostics.h); false when the slots cannot be listed.
    bool ReadModuleDiagnostics(ModuleDiagnostics& out);

    // ---- slots, tokens and card types ----
    // Slot records stay owned by this object; they are invalid after the next
    // GetSlots, DeleteSlots or the object's destruction.
    bool GetSlots(std::vector<SlotStruct*>& slots, bool includeBlankSerial);
    bool GetSlots(std::vector<SlotStruct*>& slots);
    // Slots of the last GetSlots whose token or slot information could not
    // be read: their cards are missing from its list.
    size_t UnreadSlotCount() const { return m_UnreadSlots; }
    // Card readers the module offers (removable slots, with or without a
    // card; a named module's fixed slots too); false when the module's slot
    // list cannot be read.
    bool CountReaders(size_t& readers);
    void DeleteSlots();
    // position: index into the list of slots with a token present
    bool GetTokenInfo(unsigned long position, TokenInfoStruct& info);
    bool GetTokenInfo(unsigned long position, TokenInfoStruct2& info);
    // The same for the slot with this identifier, without listing the slots.
    bool GetTokenInfoForSlot(CK_SLOT_ID slot, TokenInfoStruct2& info);
    // The token flags of the card in the slot with this identifier.
    bool GetTokenState(CK_SLOT_ID slot, TokenState& state);
    // What the last GetSlots (or OpenSessionOnCard) read of this slot's token,
    // without asking the card again: nothing on a card changes between two
    // reads of one refresh. False when that listing did not keep the slot.
    bool ListedTokenInfo(CK_SLOT_ID slot, TokenInfoStruct2& info) const;
    // The same listing's record as the module delivered it (PIN lengths, flags).
    bool ListedTokenInfo(CK_SLOT_ID slot, TokenInfoStruct2& info, CK_TOKEN_INFO& raw) const;
    // The same, with the module's record as delivered (PIN lengths, flags).
    bool GetTokenInfoForSlot(CK_SLOT_ID slot, TokenInfoStruct2& info, CK_TOKEN_INFO& raw);
    // One non-blocking C_WaitForSlotEvent; `slot` names the slot of an event.
    SlotEventPoll PollSlotEvent(CK_SLOT_ID& slot);
    // Identifiers of the slots with a token, for modules without slot events.
    bool GetPresentSlotIds(std::vector<CK_SLOT_ID>& ids);
    // Why the last init() failed, or where the module was loaded from.
    static const ModuleLoadReport& GetLoadReport() { return m_LoadReport; }
    std::string ReadATR(bool force);
    void SetAtr(const unsigned char* atr, unsigned long length);
    std::string Reset();
    bool LoadCardType();
    // The card type code of the open session's card from its token
    // information instead of its answer-to-reset, for the generations whose
    // model names it (e-Card G3A, G3B, G4); false (code 0) for the others.
    bool TakeCardTypeOf(const TokenInfoStruct2& info);
    int32_t GetCardType() const { return m_CardType; }

    // ---- sessions and object search ----
    bool OpenSession(int32_t position, bool readWrite);
    // A session on the card with this number in the slot a refresh found it
    // in: one token query instead of a scan of every slot, and none when the
    // module's slot events say that slot has not changed since its token
    // information was read. False when the slot holds no card or another one
    // (`sameCard` says which) or the session does not open. Afterwards the
    // slot records hold this one slot, and ListedTokenInfo answers for it.
    bool OpenSessionOnCard(CK_SLOT_ID slot, const std::string& serial, bool readWrite, bool& sameCard);
    bool CloseSession();
    int32_t findSlotForCin(const std::string& cin);
    bool OpenGlobalSession(const std::string& cin);
    bool GetCinCsn(std::string& cin);
    bool FindObjects(CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* handles,
                     CK_ULONG capacity, CK_ULONG& found);
    bool FindObject(const char* label, CK_OBJECT_CLASS objectClass, CK_OBJECT_HANDLE& handle);
    long GetSerialNumberInt() const;
    CK_SESSION_HANDLE GetSessionHandle() const { return m_hSession; }
    int32_t GetSlotIndex() const { return m_SlotIndex; }
    // The slot of the open session; 0 when no session is open.
    CK_SLOT_ID GetSessionSlotId() const
    {
        return m_SlotIndex >= 0 && static_cast<size_t>(m_SlotIndex) < m_Slots.size() ? m_Slots[m_SlotIndex]->slotID : 0;
    }

    // ---- PIN commands and PIN status (the module runs the dialogues) ----
    PKCS11Return ChangePIN(ApplType appl);
    PKCS11Return UnblockPIN(ApplType appl);
    // The module's answer to the last PIN change or unblock (CKR_OK when it
    // was not asked): tells a failed PIN dialogue from other failures.
    CK_RV LastPinCommandRv() const { return m_LastPinCommandRv; }
    PKCS11Return InitPIN(ApplType appl);
    PKCS11Return GenericPINCommand(ApplType appl, CK_ATTRIBUTE_TYPE command);
    PKCS11Return GenericPINCommand(ApplType appl, CK_ATTRIBUTE_TYPE command, bool value,
                                   bool forceSoftwarePin);
    PKCS11Return GetPINStatus(ApplType appl, PINState& state, int32_t& tries);

    // ---- signing, hashing and verification ----
    // Returns all bits set when the pair has no mechanism.
    static CK_MECHANISM_TYPE KeyAndHashAlgoToMechanism(CK_KEY_TYPE keyType, HashAlgorithm alg);
    bool GetSignKeyType(SignKey& key, bool signatureKey);
    HashAlgorithm GetHashAlgorithm(SignKey key);
    bool findPrivateKeyFromID(const std::string& id, std::string& label);
    // output length: capacity on entry, signature length on return
    bool signString(const unsigned char* input, unsigned long inputLength, unsigned char* output,
                    unsigned long& outputLength, SignKey& key, bool signatureKey,
                    HashAlgorithm alg);
    // hash algorithm chosen for the card and key (GetHashAlgorithm)
    bool signString(const unsigned char* input, unsigned long inputLength, unsigned char* output,
                    unsigned long& outputLength, SignKey& key, bool signatureKey);
    // signs the text's bytes (without the NUL) with the signature key
    bool signString(const char* text, unsigned char* output, unsigned long& outputLength);
    bool hashString(const unsigned char* input, unsigned long inputLength,
                    std::vector<unsigned char>& digest, HashAlgorithm alg, bool withDigestInfo);
    // signature: the signature bytes are appended
    bool Sign(const std::string& label, const std::vector<unsigned char>& data,
              std::vector<unsigned char>& signature, HashAlgorithm alg);
    bool Verify(const std::string& label, const std::vector<unsigned char>& data,
                const std::vector<unsigned char>& signature, HashAlgorithm alg);
    bool Verify(const std::string& label, const std::vector<unsigned char>& data,
                const std::vector<unsigned char>& signature);

    // ---- certificates ----
    bool LoadSigningCertificate(bool signatureCertificate);
    // length: capacity on entry, bytes copied on return
    bool GetSigningCertificate(unsigned char* buffer, unsigned long& length) const;
    bool GetCertificate(unsigned long position, bool signatureCertificate, slCertificate& cert);
    CK_OBJECT_HANDLE getSigningCertificateHandle(bool signatureCertificate);
    bool LoadAllCerts();
    bool loadAllCertsInSession();
    void ClearCertVector();
    std::vector<slCertificate*>::iterator CertVectorBegin() { return m_Certs.begin(); }
    std::vector<slCertificate*>::iterator CertVectorEnd() { return m_Certs.end(); }
    // Texts of the last loaded certificate: the one-line subject
    // ("/C=AT/.../CN=Name"), its part that begins with "CN=" (prefix kept),
    // the issuer comma-joined in reverse order, the serial as "0x..." text.
    std::string GetSubject() const;
    std::string GetSubjectCN() const;
    std::string GetIssuer() const;
    std::string GetSerialNumber() const;
    // SHA-1 thumbprint of the last loaded certificate; length: capacity in, used out
    bool GetFingerprint(HashAlgorithm& alg, unsigned char* buffer, unsigned long& length) const;
    // subjectPublicKey content of the last loaded certificate; length as above
    bool GetPublicKeyData(unsigned char* buffer, unsigned long& length) const;
    // the same parsed into numbers; null until a certificate was loaded
    const ParsedPublicKey* GetParsedPublicKey() const;

    // ---- card data objects and APDUs ----
    bool SendAPDU(std::vector<unsigned char> command, std::vector<unsigned char>& response);
    bool SendAPDU(const unsigned char* command, unsigned long commandLength,
                  unsigned char* response, unsigned long& responseLength);
    bool SendAPDU_HEX(const std::string& commandHex, std::string& responseHex);
    bool ReadEHIC(unsigned char* buffer, unsigned long& length);
    bool ReadGrunddaten(unsigned char* buffer, unsigned long& length);
    bool UpdatePersonenbindung(const std::string& cin, const std::vector<unsigned char>& data,
                               std::string& errorText);
    // Data objects of the infobox area (session must be open). The value
    // buffer holds at most CERT_BUFFER_SIZE bytes; the first object whose
    // label equals the given one is used.
    bool ReadDataObject(const std::string& label, std::vector<unsigned char>& value);
    bool ReadDataObject(const std::string& label, std::vector<unsigned char>& value,
                        bool& isPrivate);
    // Writes value and private flag in one call (needs a read-write session).
    bool WriteDataObject(const std::string& label, const std::vector<unsigned char>& value,
                         bool isPrivate);

    // ---- standard tokens (acPKCS11Standard.cpp): standard calls only ----
    bool GetStandardTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO& info);
    bool GetStandardSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO& info);
    // Every certificate of the token in the open session; hasPrivateKey
    // marks the ones whose CKA_ID a key pair on the token shares.
    bool ListTokenCertificates(std::vector<TokenObject>& certificates);
    // Every private key that may sign (CKA_SIGN not false).
    bool ListSigningKeys(std::vector<TokenObject>& keys);
    bool GetMechanisms(CK_SLOT_ID slot, std::vector<CK_MECHANISM_TYPE>& mechanisms);
    // Null PINs: the reader's PIN pad asks. C_SetPIN needs a read-write session.
    PKCS11Return SetUserPin(const std::string* oldPin, const std::string* newPin);
    // Security officer login with the PUK, C_InitPIN, logout.
    PKCS11Return UnblockUserPin(const std::string* puk, const std::string* newPin);
    PKCS11Return LoginUser(const std::string* pin);
    void LogoutUser();
    // One signature over SHA-256 (PSS: MGF1 with SHA-256, salt of the
    // digest's length); signature holds the module's output.
    bool SignWithKey(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE mechanism, const std::vector<unsigned char>& data,
                     std::vector<unsigned char>& signature);

private:
    bool readAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, std::vector<unsigned char>& value);
    bool findByClass(CK_OBJECT_CLASS objectClass, std::vector<CK_OBJECT_HANDLE>& handles);
    bool sessionIsOpenHere() const;
    // Finds the private key with the wanted label among all private keys and
    // reads its key type; keyFound false when none matches.
    bool findSigningKey(bool signatureKey, CK_OBJECT_HANDLE& key, CK_KEY_TYPE& keyType,
                        bool& keyFound);
    bool findKeyByLabel(const std::string& label, CK_OBJECT_CLASS keyClass,
                        CK_OBJECT_HANDLE& key, CK_KEY_TYPE& keyType);
    bool findCertificateObject(bool signatureCertificate, CK_OBJECT_HANDLE& handle,
                               std::vector<unsigned char>& value, bool& failed);
    bool takeCertificateTexts(const std::vector<unsigned char>& der);
    // One look for a slot event; a reported slot is remembered as changed.
    SlotEventPoll askSlotEvent(CK_SLOT_ID& slot);
    // Whether the module reports slot events and none came for this slot
    // since its token information was read (pending ones are collected, and
    // kept for PollSlotEvent).
    bool slotUnchangedSinceListing(CK_SLOT_ID slot);
    bool findDataObject(const std::string& label, CK_OBJECT_HANDLE& handle);
    bool readDataObject(const std::string& label, std::vector<unsigned char>& value,
                        bool* isPrivate);
    bool readCardAttribute(const char* name, unsigned char* buffer, unsigned long& length,
                           const char* errorText);
    bool moduleHashesRipemd160() const;
    // The one signing path: signString and Sign both start and run the
    // card's signature through these, each with its own error texts.
    struct SignPlan {
        CK_MECHANISM_TYPE mechanism;
        bool systemHashes; // this system hashes, the card signs the digest
    };
    SignPlan signPlanFor(CK_KEY_TYPE keyType, HashAlgorithm alg) const;
    bool signInit(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE mechanism, const char* errorText);
    bool signData(const unsigned char* data, unsigned long dataLength, unsigned char* output,
                  CK_ULONG& outputLength, const char* errorText);
    void clearCertificateTexts();

    // ---- class-wide state: one module per process ----
    static bool m_bInitialized;
    static ModuleLoadReport m_LoadReport;

    static CK_C_Initialize Proc_C_Initialize;
    static CK_C_GetSlotList Proc_C_GetSlotList;
    static CK_C_WaitForSlotEvent Proc_C_WaitForSlotEvent;
    static CK_C_GetTokenInfo Proc_C_GetTokenInfo;
    static CK_C_GetSlotInfo Proc_C_GetSlotInfo;
    static CK_C_OpenSession Proc_C_OpenSession;
    static CK_C_CloseSession Proc_C_CloseSession;
    static CK_C_DigestInit Proc_C_DigestInit;
    static CK_C_DigestUpdate Proc_C_DigestUpdate;
    static CK_C_DigestFinal Proc_C_DigestFinal;
    static CK_C_Login Proc_C_Login;
    static CK_C_Logout Proc_C_Logout;
    static CK_C_FindObjectsInit Proc_C_FindObjectsInit;
    static CK_C_FindObjects Proc_C_FindObjects;
    static CK_C_FindObjectsFinal Proc_C_FindObjectsFinal;
    static CK_C_SignInit Proc_C_SignInit;
    static CK_C_Sign Proc_C_Sign;
    static CK_C_VerifyInit Proc_C_VerifyInit;
    static CK_C_Verify Proc_C_Verify;
    static CK_C_GenerateKey Proc_C_GenerateKey;
    static CK_C_EncryptInit Proc_C_EncryptInit;
    static CK_C_EncryptUpdate Proc_C_EncryptUpdate;
    static CK_C_Encrypt Proc_C_Encrypt;
    static CK_C_EncryptFinal Proc_C_EncryptFinal;
    static CK_C_WrapKey Proc_C_WrapKey;
    static CK_C_UnwrapKey Proc_C_UnwrapKey;
    static CK_C_DecryptInit Proc_C_DecryptInit;
    static CK_C_DecryptUpdate Proc_C_DecryptUpdate;
    static CK_C_Decrypt Proc_C_Decrypt;
    static CK_C_DecryptFinal Proc_C_DecryptFinal;
    static CK_C_GetAttributeValue Proc_C_GetAttributeValue;
    static CK_C_DestroyObject Proc_C_DestroyObject;
    static CK_C_CreateObject Proc_C_CreateObject;
    static CK_C_SetPIN Proc_C_SetPIN;
    static CK_C_SetAttributeValue Proc_C_SetAttributeValue;
    static CK_C_GetInfo Proc_C_GetInfo;
    static CK_C_Finalize Proc_C_Finalize;
    static CK_C_SeedRandom Proc_C_SeedRandom;
    static CK_C_GenerateRandom Proc_C_GenerateRandom;
    static CK_C_GetMechanismList Proc_C_GetMechanismList;
    static CK_C_GetMechanismInfo Proc_C_GetMechanismInfo;
    static PFN_C_CardTransmit Proc_C_CardTransmit;
    static PFN_C_CardAttribute Proc_C_CardAttribute;

    static void resolveSymbols(void* module);
    static void forgetSymbols();
    // A module that publishes only its function table (acPKCS11FunctionList.cpp).
    static bool exportsStandardSymbols(void* module);
    static bool resolveFromFunctionTable(void* module);
    static bool m_FromFunctionTable;
    // Not among the names resolved one by one; taken from the function table,
    // else by name, for unblocking the user PIN of a standard token.
    static CK_C_InitPIN Proc_C_InitPIN;

    // ---- per-object state ----
    std::vector<SlotStruct*> m_Slots;
    // The token information each listed slot answered with, as read.
    struct ListedToken {
        CK_SLOT_ID slot;
        TokenInfoStruct info;
        CK_TOKEN_INFO raw;
    };
    std::vector<ListedToken> m_ListedTokens;
    const ListedToken* findListed(CK_SLOT_ID slot) const;
    // Slots a card came to or went from since m_ListedTokens was read, and
    // events taken from the module by a check but not yet by PollSlotEvent.
    std::vector<CK_SLOT_ID> m_ChangedSlots;
    std::vector<CK_SLOT_ID> m_HeldSlotEvents;
    size_t m_UnreadSlots = 0;
    CK_RV m_LastPinCommandRv = CKR_OK;
    void* m_hModule = nullptr;
    std::string m_Manufacturer;
    std::string m_Description;
    std::string m_Version;
    std::string m_Atr;
    CK_SESSION_HANDLE m_hSession = 0;
    unsigned char m_SigningCert[CERT_BUFFER_SIZE] = {};
    unsigned long m_SigningCertLength = 0;
    std::vector<slCertificate*> m_Certs;
    int32_t m_CardType = 0;
    int32_t m_SlotIndex = -1;
    int32_t m_ClientVersion[4] = {0, 0, 0, 0};

    // Texts taken from the last loaded certificate, and those of recently
    // decoded certificates by their DER: decoding is by far the dearest step
    // of a card-list refresh, and a refresh reads the same cards again.
    std::shared_ptr<const TokenCertificateTexts> m_CertTexts;
    std::map<std::vector<unsigned char>, std::shared_ptr<const TokenCertificateTexts>> m_CertTextCache;
};

} // namespace Korvex
