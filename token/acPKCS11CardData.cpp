// Card data beyond PKCS#11 objects: raw APDUs and named card attributes
// through the vendor extensions, the identity-link write, and the data
// objects of the infobox area.
#include "token/acPKCS11.h"

#include "base/Conversion.h"
#include "token/acPKCS11Internal.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace Korvex {

using tokenimpl::callModule;

namespace {

constexpr CK_ULONG kApduResponseSize = 4096;
constexpr size_t kIdentityLinkMinimum = 128;
constexpr size_t kIdentityLinkBufferSize = 1024;
constexpr CK_ULONG kMaxDataObjects = 10;

const char kWrongUpdateData[] = "Falsche Update Daten für die Smartcard";

bool isHexText(const std::string& text)
{
    return text.size() % 2 == 0 &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

} // namespace

bool acPKCS11::SendAPDU(std::vector<unsigned char> command, std::vector<unsigned char>& response)
{
    LogMessage("PKCS11 SendAPDU");
    if (Proc_C_CardTransmit == nullptr) {
        LogError("Failed C_CardTransmit, not implemented");
        return false;
    }
    std::vector<unsigned char> buffer(kApduResponseSize);
    CK_ULONG length = kApduResponseSize;
    CK_RV rv = Proc_C_CardTransmit(m_hSession, command.data(), command.size(), buffer.data(),
                                   &length);
    if (rv != CKR_OK) {
        LogError("Failed C_CardTransmit, rv = ", rv);
        return false;
    }
    // Appended, not replaced; the status word stays at the end.
    length = std::min(length, kApduResponseSize);
    response.insert(response.end(), buffer.begin(), buffer.begin() + length);
    return true;
}

bool acPKCS11::SendAPDU(const unsigned char* command, unsigned long commandLength,
                        unsigned char* response, unsigned long& responseLength)
{
    std::vector<unsigned char> commandBytes;
    if (command != nullptr)
        commandBytes.assign(command, command + commandLength);
    std::vector<unsigned char> answer;
    if (!SendAPDU(commandBytes, answer)) {
        LogError("sendAPDU failed");
        return false;
    }
    // A response longer than the caller's buffer is cut to fit.
    unsigned long copied = response != nullptr ? std::min<unsigned long>(responseLength, answer.size()) : 0;
    if (copied > 0)
        std::memcpy(response, answer.data(), copied);
    responseLength = copied;
    return true;
}

bool acPKCS11::SendAPDU_HEX(const std::string& commandHex, std::string& responseHex)
{
    std::vector<unsigned char> command;
    // The hex reader throws on an odd length and reads junk as zero digits;
    // both are refused before it runs.
    if (!isHexText(commandHex) || HexStr2BinData(commandHex, command) != commandHex.size() / 2) {
        LogError("Fehler bei HexStr2BinData");
        return false;
    }
    std::vector<unsigned char> response;
    if (!SendAPDU(command, response))
        return false;
    responseHex.clear();
    if (BinData2HexStr(response, responseHex) != 2 * response.size())
        LogError("Fehler bei BinData2HexStr");
    return true;
}

bool acPKCS11::readCardAttribute(const char* name, unsigned char* buffer, unsigned long& length,
                                 const char* errorText)
{
    if (Proc_C_CardAttribute == nullptr)
        return false;
    CK_ULONG used = length;
    CK_RV rv = Proc_C_CardAttribute(m_hSession, name, buffer, &used);
    // A module claiming more bytes than the buffer holds has not delivered
    // them; the caller must not read past its buffer.
    if (rv == CKR_OK && buffer != nullptr && used > length)
        rv = CKR_BUFFER_TOO_SMALL;
    if (rv != CKR_OK) {
        LogError(errorText, rv);
        return false;
    }
    length = used;
    return true;
}

bool acPKCS11::ReadEHIC(unsigned char* buffer, unsigned long& length)
{
    return readCardAttribute("SV-Personendaten/EHIC", buffer, length, "Failed get EHIC, rv = ");
}

bool acPKCS11::ReadGrunddaten(unsigned char* buffer, unsigned long& length)
{
    return readCardAttribute("SV-Personendaten/Grunddaten", buffer, length,
                             "Failed get Grunddaten, rv = ");
}

bool acPKCS11::UpdatePersonenbindung(const std::string& cin, const std::vector<unsigned char>& data,
                                     std::string& errorText)
{
    // Unusable data: one text for the caller, the log tells which check.
    auto refuseData = [&errorText](const char* check) {
        errorText = kWrongUpdateData;
        LogError(std::string(kWrongUpdateData) + " (" + check + ")");
        return false;
    };
    // The value buffer below holds 1024 bytes; larger data is refused before
    // the card is touched at all.
    if (data.size() > kIdentityLinkBufferSize)
        return refuseData("3");
    int32_t position = findSlotForCin(cin);
    if (position < 0) {
        errorText = "Keine Smartcard gefunden für CIN=" + cin;
        LogError("Keine Smartcard gefunden für CIN=", cin);
        return false;
    }
    if (data.size() < kIdentityLinkMinimum)
        return refuseData("1");
    if (data[0] != 0x30)
        return refuseData("2");
    if (!OpenSession(position, true)) {
        errorText = "Fehler beim öffnen der Kartensession";
        return false;
    }

    CK_OBJECT_CLASS dataClass = CKO_DATA;
    char label[] = "PERSONENBINDUNG";
    CK_ATTRIBUTE search[] = {
        {CKA_CLASS, &dataClass, sizeof(dataClass)},
        {CKA_LABEL, label, std::strlen(label)},
    };
    CK_OBJECT_HANDLE handles[kMaxDataObjects];
    CK_ULONG found = 0;
    if (!FindObjects(search, 2, handles, kMaxDataObjects, found)) {
        LogError("PKCS11 FindObjects");
        CloseSession();
        return false;
    }
    if (found == 0) {
        errorText = "Das Objekt 'PERSONENBINDUNG' wurde nicht gefunden.";
        CloseSession();
        return false;
    }

    // Empty PIN: the module asks the user for it itself.
    CK_UTF8CHAR emptyPin[1] = {0};
    CK_RV rv = callModule(Proc_C_Login, m_hSession, static_cast<CK_USER_TYPE>(CKU_USER), emptyPin,
                          static_cast<CK_ULONG>(0));
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_Login", rv);
        errorText = "Fehler beim Initialisieren des Kartenobjektes. (CLogin)";
        CloseSession();
        return false;
    }

    unsigned char value[kIdentityLinkBufferSize];
    std::memset(value, 0xFF, sizeof(value));
    std::memcpy(value, data.data(), data.size());
    CK_ATTRIBUTE attribute = {CKA_VALUE, value, data.size()};
    rv = callModule(Proc_C_SetAttributeValue, m_hSession, handles[0], &attribute, 1);

    callModule(Proc_C_Logout, m_hSession);
    CloseSession();
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_SetAttributeValue", rv);
        errorText = "Fehler beim modifizieren des Kartenobjektes. (C_SetAttributeValue)";
        return false;
    }
    return true;
}

bool acPKCS11::findDataObject(const std::string& label, CK_OBJECT_HANDLE& handle)
{
    CK_OBJECT_CLASS dataClass = CKO_DATA;
    CK_ATTRIBUTE search[] = {
        {CKA_CLASS, &dataClass, sizeof(dataClass)},
        {CKA_LABEL, const_cast<char*>(label.data()), label.size()},
    };
    CK_OBJECT_HANDLE handles[kMaxDataObjects];
    CK_ULONG found = 0;
    if (!FindObjects(search, 2, handles, kMaxDataObjects, found) || found == 0)
        return false;
    handle = handles[0];
    return true;
}

bool acPKCS11::ReadDataObject(const std::string& label, std::vector<unsigned char>& value)
{
    return readDataObject(label, value, nullptr);
}

bool acPKCS11::ReadDataObject(const std::string& label, std::vector<unsigned char>& value,
                              bool& isPrivate)
{
    return readDataObject(label, value, &isPrivate);
}

bool acPKCS11::readDataObject(const std::string& label, std::vector<unsigned char>& value,
                              bool* isPrivate)
{
    LogMessage("PKCS11 ReadDataObject", label);
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    if (!findDataObject(label, handle))
        return false;

    // The private flag is asked for only when wanted, in the same call.
    std::vector<unsigned char> buffer(CERT_BUFFER_SIZE);
    CK_BBOOL privateFlag = CK_FALSE;
    CK_ATTRIBUTE attributes[] = {
        {CKA_VALUE, buffer.data(), CERT_BUFFER_SIZE},
        {CKA_PRIVATE, &privateFlag, sizeof(privateFlag)},
    };
    CK_ULONG count = isPrivate != nullptr ? 2 : 1;
    CK_RV rv = callModule(Proc_C_GetAttributeValue, m_hSession, handle, attributes, count);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_GetAttributeValue ERROR", rv);
        return false;
    }
    if (!tokenimpl::lengthFits(attributes[0], CERT_BUFFER_SIZE))
        return false;
    value.assign(buffer.begin(), buffer.begin() + attributes[0].ulValueLen);
    if (isPrivate != nullptr)
        *isPrivate = attributes[1].ulValueLen == sizeof(privateFlag) && privateFlag != CK_FALSE;
    return true;
}

bool acPKCS11::WriteDataObject(const std::string& label, const std::vector<unsigned char>& value,
                               bool isPrivate)
{
    LogMessage("PKCS11 WriteDataObject", label);
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    if (!findDataObject(label, handle))
        return false;

    CK_BBOOL privateFlag = isPrivate ? CK_TRUE : CK_FALSE;
    CK_ATTRIBUTE attributes[] = {
        {CKA_VALUE, const_cast<unsigned char*>(value.data()), value.size()},
        {CKA_PRIVATE, &privateFlag, sizeof(privateFlag)},
    };
    CK_RV rv = callModule(Proc_C_SetAttributeValue, m_hSession, handle, attributes, 2);
    if (rv != CKR_OK) {
        LogError("PKCS11 Proc_C_SetAttributeValue ERROR", rv);
        return false;
    }
    return true;
}

} // namespace Korvex
