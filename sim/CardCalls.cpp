// The vendor's card extensions: raw APDUs and named card attributes.
#include "sim/Apdu.h"
#include "sim/CardData.h"
#include "sim/Calls.h"
#include "sim/Module.h"

#include <algorithm>
#include <cstring>

namespace VessaSim {

namespace {

// Answers a named attribute, or CKR_FUNCTION_NOT_SUPPORTED /
// CKR_ATTRIBUTE_TYPE_INVALID.
CK_RV namedAttribute(Card& card, const std::string& name, Bytes& value, bool& isReset) {
    const GenerationProfile& profile = card.profile();
    isReset = false;
    if (name == "ATR" || name == "Reset") {
        isReset = name == "Reset";
        value = card.atr();
        return CKR_OK;
    }
    if (name == "SicSig/PIN-Status" || name == "GewSig/PIN-Status") {
        if (!profile.reportsPinStatus) return CKR_FUNCTION_NOT_SUPPORTED;
        const PinState& pin = card.pin(name[0] == 'S' ? PinSignature : PinEncryption);
        value = {static_cast<unsigned char>(pin.tries), static_cast<unsigned char>(pin.maxTries)};
        return CKR_OK;
    }
    if (name == "SV-Personendaten/EHIC" || name == "SV-Personendaten/Grunddaten") {
        if (!profile.socialInsuranceData || !card.description().personalised) return CKR_FUNCTION_NOT_SUPPORTED;
        value = name.back() == 'C' ? buildEhicRecord(card.description()) : buildBasicPersonalDataRecord(card.description());
        return CKR_OK;
    }
    if (name == "Simulator/Geburtsdatum") {
        // Only the simulator knows its holders' birth dates (the companion
        // program writes them into a new identity link).
        if (!card.description().personalised) return CKR_FUNCTION_NOT_SUPPORTED;
        const std::string& birth = card.description().birthDate;
        value.assign(birth.begin(), birth.end());
        return CKR_OK;
    }
    return CKR_ATTRIBUTE_TYPE_INVALID;
}

// A fixed answer in place of the card's: as much as fits, with CKR_OK.
bool giveFixedAnswer(Call& call, const Card& card, CK_SLOT_ID slot, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    Bytes answer;
    if (!call.module.fixedAnswer(call.function, &card, slot, answer)) return false;
    const CK_ULONG length = std::min<CK_ULONG>(*outLength, answer.size());
    if (out && length > 0) std::memcpy(out, answer.data(), length);
    *outLength = length;
    return true;
}

} // namespace

CK_RV cardTransmit(CK_SESSION_HANDLE handle, CK_BYTE_PTR command, CK_ULONG commandLength, CK_BYTE_PTR response,
                   CK_ULONG_PTR responseLength) {
    Call call("C_CardTransmit", true, 1);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!command || !response || !responseLength) return CKR_ARGUMENTS_BAD;
    Card& card = *session->card;
    if (!card.profile().isCard) return CKR_FUNCTION_NOT_SUPPORTED;
    if (giveFixedAnswer(call, card, session->slot, response, responseLength)) return CKR_OK;
    const Bytes answer = processApdu(card, command, commandLength);
    if (*responseLength < answer.size()) {
        *responseLength = answer.size();
        return CKR_BUFFER_TOO_SMALL;
    }
    const CK_ULONG capacity = *responseLength;
    std::memcpy(response, answer.data(), answer.size());
    *responseLength = answer.size();
    if (call.module.malformed(call.function, &card, session->slot)) *responseLength = capacity + 16;
    return CKR_OK;
}

CK_RV cardAttribute(CK_SESSION_HANDLE handle, const char* name, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    Call call("C_CardAttribute", true, 1);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!name || !outLength) return CKR_ARGUMENTS_BAD;
    Card& card = *session->card;
    if (!card.profile().isCard) return CKR_FUNCTION_NOT_SUPPORTED;
    if (giveFixedAnswer(call, card, session->slot, out, outLength)) return CKR_OK;
    Bytes value;
    bool isReset = false;
    rv = namedAttribute(card, name, value, isReset);
    if (rv != CKR_OK) return rv;
    if (!out) {
        *outLength = value.size();
        return CKR_OK;
    }
    if (*outLength < value.size()) {
        *outLength = value.size();
        return CKR_BUFFER_TOO_SMALL;
    }
    if (isReset) {
        // A reset ends the card's security state: logins and PINs given for
        // a pending signature.
        card.loggedIn = false;
        card.selectedFile = 0x3F00;
        card.elementaryFileSelected = false;
        for (auto& entry : call.module.sessions) {
            if (entry.second->card.get() == &card) entry.second->sign.authenticated = false;
        }
    }
    const CK_ULONG capacity = *outLength;
    std::memcpy(out, value.data(), value.size());
    *outLength = value.size();
    if (call.module.malformed(call.function, &card, session->slot)) *outLength = capacity + 16;
    return CKR_OK;
}

} // namespace VessaSim
