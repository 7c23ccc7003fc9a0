// Certificates on the card: reading the signature or encryption certificate
// into the object, the texts taken from it, and reading all certificates.
#include "token/acPKCS11.h"

#include "crypto/slCertificate.h"
#include "formats/PublicKey.h"
#include "token/acPKCS11Internal.h"

#include <cstring>

namespace Korvex {

// What the token layer keeps of a certificate; immutable once made, so one
// record is shared by the object and its cache.
struct TokenCertificateTexts {
    std::string subject;
    std::string subjectCN;
    std::string issuer;
    std::string serialNumber;
    std::vector<unsigned char> fingerprint;
    std::vector<unsigned char> publicKeyData;
    std::unique_ptr<ParsedPublicKey> publicKey;
};

using tokenimpl::callModule;

namespace {

constexpr CK_ULONG kMaxCertificates = 10;
// Bound of the decoded-certificate cache (two certificates per card).
constexpr size_t kCertTextCacheSize = 256;
constexpr CK_ULONG kLabelBufferSize = 256;

const char* certificateLabel(bool signatureCertificate)
{
    return signatureCertificate ? "C.CH.SIG" : "C.CH.EKEY";
}

// The "CN=" part of a one-line subject ("/C=AT/O=.../CN=Name").
std::string commonNamePart(const std::string& subject)
{
    size_t start = 0;
    while (start <= subject.size()) {
        size_t end = subject.find('/', start);
        if (end == std::string::npos)
            end = subject.size();
        std::string part = subject.substr(start, end - start);
        if (part.compare(0, 3, "CN=") == 0)
            return part;
        start = end + 1;
    }
    return std::string();
}

} // namespace

void acPKCS11::clearCertificateTexts()
{
    m_SigningCertLength = 0;
    m_CertTexts.reset();
}

bool acPKCS11::findCertificateObject(bool signatureCertificate, CK_OBJECT_HANDLE& handle,
                                     std::vector<unsigned char>& value, bool& failed)
{
    // failed: the search or the read went wrong (already logged), as opposed
    // to a card that simply has no such certificate.
    failed = false;
    CK_OBJECT_CLASS certClass = CKO_CERTIFICATE;
    CK_ATTRIBUTE search = {CKA_CLASS, &certClass, sizeof(certClass)};
    CK_OBJECT_HANDLE handles[kMaxCertificates];
    CK_ULONG found = 0;
    if (!FindObjects(&search, 1, handles, kMaxCertificates, found)) {
        LogError("PKCS11 FindObjects ERROR");
        failed = true;
        return false;
    }
    LogMessage("Objects Found Final Fertig");

    const char* wanted = certificateLabel(signatureCertificate);
    for (CK_ULONG i = 0; i < found; ++i) {
        char labelBuffer[kLabelBufferSize];
        CK_ATTRIBUTE labelAttribute = {CKA_LABEL, labelBuffer, sizeof(labelBuffer)};
        CK_RV rv = callModule(Proc_C_GetAttributeValue, m_hSession, handles[i], &labelAttribute, 1);
        if (rv == CKR_OK && !tokenimpl::lengthFits(labelAttribute, sizeof(labelBuffer)))
            rv = CKR_BUFFER_TOO_SMALL;  // claims more than it can have written
        if (rv != CKR_OK) {
            LogError("PKCS11 Proc_C_GetAttributeValue ERROR", rv);
            continue;
        }
        std::string label(labelBuffer, labelAttribute.ulValueLen);
        LogMessage("Label:", label);
        // A plain substring test: longer labels that embed the name match too.
        if (label.find(wanted) == std::string::npos)
            continue;
        LogMessage("PKCS11 Key Found");

        value.assign(CERT_BUFFER_SIZE, 0);
        CK_ATTRIBUTE valueAttribute = {CKA_VALUE, value.data(), CERT_BUFFER_SIZE};
        rv = callModule(Proc_C_GetAttributeValue, m_hSession, handles[i], &valueAttribute, 1);
        // A module answers a value that does not fit with CKR_BUFFER_TOO_SMALL
        // (with the needed length, or with none as the standard has it); one
        // that answers CKR_OK must not claim more than the buffer holds.
        if (rv == CKR_BUFFER_TOO_SMALL ||
            (rv == CKR_OK && valueAttribute.ulValueLen != CK_UNAVAILABLE_INFORMATION &&
             valueAttribute.ulValueLen > CERT_BUFFER_SIZE)) {
            LogError("PKCS11 attributes[1].ulValueLen zu groß für internen Buffer");
            failed = true;
            return false;
        }
        if (rv != CKR_OK || valueAttribute.ulValueLen == CK_UNAVAILABLE_INFORMATION) {
            LogError("PKCS11 Proc_C_GetAttributeValue ERROR", rv);
            failed = true;
            return false;
        }
        value.resize(valueAttribute.ulValueLen);
        handle = handles[i];
        return true;
    }
    return false;
}

bool acPKCS11::takeCertificateTexts(const std::vector<unsigned char>& der)
{
    LogMessage("OpenSSL Load Certificate");
    auto cached = m_CertTextCache.find(der);
    if (cached != m_CertTextCache.end()) {
        // The same bytes decode to the same texts; only the decode is saved.
        LogMessage("ISSUER");
        m_CertTexts = cached->second;
        return true;
    }

    // One decode serves every text: the certificate object decodes the DER
    // through a memory BIO, and its one-line subject is OpenSSL's. The decode
    // also stays in the certificate object's process-wide memo, so a caller
    // that loads the same bytes next (the card list, GetCertificate) does not
    // parse them again.
    slCertificate certificate;
    if (!certificate.LoadFromBuffer(der))
        return false;

    LogMessage("ISSUER");
    auto texts = std::make_shared<TokenCertificateTexts>();
    texts->subject = certificate.GetSubject();
    texts->subjectCN = commonNamePart(texts->subject);

    unsigned char* thumbprint = nullptr;
    unsigned long thumbprintLength = 0;
    if (certificate.GetThumbprint(&thumbprint, &thumbprintLength) && thumbprint != nullptr)
        texts->fingerprint.assign(thumbprint, thumbprint + thumbprintLength);
    delete[] thumbprint;
    texts->serialNumber = certificate.GetSerialNumber();
    texts->issuer = certificate.GetIssuerSepByComa();

    unsigned char* key = nullptr;
    unsigned long keyLength = 0;
    if (certificate.GetPublicKeyValue(&key, &keyLength) && key != nullptr && keyLength > 0) {
        texts->publicKeyData.assign(key, key + keyLength);
        texts->publicKey.reset(new ParsedPublicKey(
            ParseKey(texts->publicKeyData.data(), 0, static_cast<int>(texts->publicKeyData.size()))));
    }
    delete[] key;

    if (m_CertTextCache.size() >= kCertTextCacheSize)
        m_CertTextCache.clear();
    m_CertTextCache.emplace(der, texts);
    m_CertTexts = texts;
    return true;
}

bool acPKCS11::LoadSigningCertificate(bool signatureCertificate)
{
    if (m_hSession == 0) {
        LogError("PKCS11 Session nicht offen");
        return false;
    }
    clearCertificateTexts();

    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    std::vector<unsigned char> der;
    bool failed = false;
    if (!findCertificateObject(signatureCertificate, handle, der, failed)) {
        if (!failed)
            LogError("Key not found !!!");
        return false;
    }
    std::memcpy(m_SigningCert, der.data(), der.size());
    m_SigningCertLength = der.size();
    if (!takeCertificateTexts(der)) {
        clearCertificateTexts();
        return false;
    }
    return true;
}

bool acPKCS11::GetSigningCertificate(unsigned char* buffer, unsigned long& length) const
{
    if (buffer == nullptr || m_SigningCertLength == 0 || length < m_SigningCertLength)
        return false;
    std::memcpy(buffer, m_SigningCert, m_SigningCertLength);
    length = m_SigningCertLength;
    return true;
}

bool acPKCS11::GetCertificate(unsigned long position, bool signatureCertificate,
                              slCertificate& cert)
{
    // Positions count the same list the card list shows (blank serials too).
    std::vector<SlotStruct*> slots;
    if (!GetSlots(slots, true) || slots.empty() || position > slots.size())
        return false;
    if (!OpenSession(static_cast<int32_t>(position), false))
        return false;
    bool loaded = LoadSigningCertificate(signatureCertificate);
    if (loaded)
        cert.LoadFromBuffer(m_SigningCert, m_SigningCertLength);
    CloseSession();
    return loaded;
}

CK_OBJECT_HANDLE acPKCS11::getSigningCertificateHandle(bool signatureCertificate)
{
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    std::vector<unsigned char> der;
    bool failed = false;
    if (m_hSession == 0 || !findCertificateObject(signatureCertificate, handle, der, failed))
        return CK_INVALID_HANDLE;
    return handle;
}

bool acPKCS11::LoadAllCerts()
{
    ClearCertVector();
    if (!init())
        return false;
    std::vector<SlotStruct*> slots;
    if (!GetSlots(slots, true))
        return false;
    for (size_t i = 0; i < slots.size(); ++i) {
        if (!OpenSession(static_cast<int32_t>(i), false))
            continue;
        loadAllCertsInSession();
        CloseSession();
    }
    return true;
}

bool acPKCS11::loadAllCertsInSession()
{
    if (m_hSession == 0)
        return false;
    CK_OBJECT_CLASS certClass = CKO_CERTIFICATE;
    CK_ATTRIBUTE search = {CKA_CLASS, &certClass, sizeof(certClass)};
    CK_OBJECT_HANDLE handles[kMaxCertificates];
    CK_ULONG found = 0;
    if (!FindObjects(&search, 1, handles, kMaxCertificates, found)) {
        LogError("PKCS11 FindObjects ERROR");
        return false;
    }
    std::vector<unsigned char> value(CERT_BUFFER_SIZE);
    for (CK_ULONG i = 0; i < found; ++i) {
        CK_ATTRIBUTE attribute = {CKA_VALUE, value.data(), CERT_BUFFER_SIZE};
        CK_RV rv = callModule(Proc_C_GetAttributeValue, m_hSession, handles[i], &attribute, 1);
        if (rv == CKR_OK && !tokenimpl::lengthFits(attribute, CERT_BUFFER_SIZE))
            rv = CKR_BUFFER_TOO_SMALL;
        if (rv != CKR_OK) {
            LogError("PKCS11 Proc_C_GetAttributeValue ERROR", rv);
            continue;
        }
        slCertificate* certificate = new slCertificate;
        if (certificate->LoadFromBuffer(value.data(), attribute.ulValueLen))
            m_Certs.push_back(certificate);
        else
            delete certificate;
    }
    return true;
}

void acPKCS11::ClearCertVector()
{
    for (slCertificate* certificate : m_Certs)
        delete certificate;
    m_Certs.clear();
}

std::string acPKCS11::GetSubject() const
{
    return m_CertTexts ? m_CertTexts->subject : std::string();
}

std::string acPKCS11::GetSubjectCN() const
{
    return m_CertTexts ? m_CertTexts->subjectCN : std::string();
}

std::string acPKCS11::GetIssuer() const
{
    return m_CertTexts ? m_CertTexts->issuer : std::string();
}

std::string acPKCS11::GetSerialNumber() const
{
    return m_CertTexts ? m_CertTexts->serialNumber : std::string();
}

namespace {

bool copyOut(const std::vector<unsigned char>& bytes, unsigned char* buffer, unsigned long& length)
{
    if (buffer == nullptr || bytes.empty() || length < bytes.size())
        return false;
    std::memcpy(buffer, bytes.data(), bytes.size());
    length = bytes.size();
    return true;
}

} // namespace

bool acPKCS11::GetFingerprint(HashAlgorithm& alg, unsigned char* buffer,
                              unsigned long& length) const
{
    alg = HashSha1;
    return m_CertTexts && copyOut(m_CertTexts->fingerprint, buffer, length);
}

bool acPKCS11::GetPublicKeyData(unsigned char* buffer, unsigned long& length) const
{
    return m_CertTexts && copyOut(m_CertTexts->publicKeyData, buffer, length);
}

const ParsedPublicKey* acPKCS11::GetParsedPublicKey() const
{
    return m_CertTexts ? m_CertTexts->publicKey.get() : nullptr;
}

} // namespace Korvex
