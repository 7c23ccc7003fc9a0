// slCertificate: a value class over one OpenSSL X509 certificate. Every query
// turns one part of the certificate into a byte buffer, a string or a flag in
// a fixed format that the token layer compares and logs and the card list
// shows. Certificates come from cards and are untrusted input.
#pragma once

#include "crypto/HashAlgorithm.h"

#include <openssl/types.h>

#include <ctime>
#include <string>
#include <vector>

namespace Korvex {

class slCertificate {
public:
    slCertificate();
    explicit slCertificate(const X509* cert);
    slCertificate(const slCertificate& other);
    ~slCertificate();

    // Stores a fresh duplicate of other's certificate. The certificate held
    // before is not released: callers that reassign take care of it through
    // GetX509() first (only LoadFromX509 and the destructor free).
    slCertificate& operator=(const slCertificate& other);

    // Identity, not content: two copies of one certificate differ, and so do
    // two objects loaded from the same bytes; two empty objects are equal.
    bool operator==(const slCertificate& other) const;

    // Loading and storing; each returns whether a certificate is held now.
    // LoadFromBuffer overwrites the held pointer without freeing it. Its
    // X509 may be shared (reference counted) with other objects loaded from
    // the same bytes, which is why no member alters a held certificate.
    bool LoadFromBuffer(const unsigned char* data, unsigned long len);
    bool LoadFromBuffer(const std::vector<unsigned char>& data);
    bool LoadFromB64(std::string text);
    bool LoadFromFile(std::string path);
    bool LoadFromX509(X509* cert);
    bool SaveCert(std::string path);

    // The held certificate, possibly shared with other objects: read it,
    // free it in place of the object, but do not alter it.
    X509* GetX509();
    X509* GetX509Copy() const;
    std::vector<unsigned char> ToBin() const;
    std::string ToB64() const;

    // Names.
    std::string GetSubject() const;
    std::string GetIssuer() const;
    std::string GetSubjectWithFormat(unsigned long flags) const;
    std::string GetIssuerWithFormat(unsigned long flags) const;
    std::string GetIssuerSepByComa() const;
    std::string GetIssuerVal(int nid) const;
    std::string GetSubjectVal(int nid) const;
    std::string GetSubjectNameHash() const;
    std::string GetIssuerNameHash() const;

    std::string GetIssuerOU() const;
    std::string GetIssuerCN() const;
    std::string GetIssuerO() const;
    std::string GetIssuerC() const;
    std::string GetSubjectOU() const;
    std::string GetSubjectCN() const;
    std::string GetSubjectGN() const;
    std::string GetSubjectSN() const;
    std::string GetSubjectSerial() const;

    // Two-call size protocol: with buf null the size is stored in len;
    // otherwise len must hold at least the size and receives the count.
    bool GetSubjectDER(unsigned char* buf, unsigned int& len) const;
    bool GetIssuerDER(unsigned char* buf, unsigned int& len) const;
    // Content octets of the serial only (no tag, no length).
    bool GetSerialNumberDER(unsigned char* buf, unsigned int& len) const;

    // Serial number.
    ASN1_INTEGER* GetSerialNumberAsn1() const;
    std::string GetSerialNumber() const;
    long GetSerialNumberInt() const;

    // Flags and extensions.
    bool IsCaCert() const;
    bool IsSelfSigned() const;
    bool IsOcspSigner() const;
    bool GetExtAvailable(std::string oid) const;
    bool GetBoolExt(std::string oid) const;

    std::vector<unsigned char> GetSKI() const;
    std::vector<unsigned char> GetAKI() const;
    std::vector<std::string> Get_SAN_DNS() const;
    std::vector<std::string> Get_AIA() const;
    std::vector<std::string> Get_AIA_OCSP() const;
    std::vector<std::string> Get_AIA_CAIssuers() const;
    std::vector<std::string> Get_CRL_Dp() const;

    // Validity.
    void ValidFrom(unsigned short& year, unsigned short& month, unsigned short& day,
                   unsigned short& hour, unsigned short& minute, unsigned short& second) const;
    void ValidTo(unsigned short& year, unsigned short& month, unsigned short& day,
                 unsigned short& hour, unsigned short& minute, unsigned short& second) const;
    std::string ValidFrom() const;
    std::string ValidTo() const;
    void Asn1TimeToTimeParts(const ASN1_TIME* time, unsigned short& year, unsigned short& month,
                             unsigned short& day, unsigned short& hour, unsigned short& minute,
                             unsigned short& second) const;
    std::string Asn1TimeToString(const ASN1_TIME* time) const;
    bool IsValid(const long& now) const;

    // Keys.
    bool IsRsaKey() const;
    bool IsEcdsaKey() const;
    int GetKeyAlgorithm() const;
    // out is allocated with new[]; the caller releases it with delete[].
    bool GetPublicKeyValue(unsigned char** out, unsigned long* len) const;
    bool GetRsaPublicKey(RSA** key) const;
    bool GetEcdsaPublicKey(EC_KEY** key) const;
    bool GetRsaPubKeyComponents(std::vector<unsigned char>& modulus,
                                std::vector<unsigned char>& exponent) const;
    std::vector<unsigned char> GetPubKeyHashBytes() const;
    // The 20 raw digest bytes as characters, not hex digits; the token layer
    // compares these values to match certificates and keys.
    std::string GetPubKeyHashHex() const;
    std::string GetPubKeyHashB64() const;

    // Thumbprints over the whole DER certificate.
    bool GetThumbprint(std::vector<unsigned char>& out, HashAlgorithm alg) const;
    bool GetThumbprint(unsigned char** out, unsigned long* len) const;
    // SHA-1 bytes as unpadded upper-case hex ("0A" gives "A"); the token
    // layer finds certificates by this exact text.
    std::wstring GetThumbprint() const;

    bool LogCertificate(std::string prefix) const;

private:
    const X509_NAME* SubjectName() const;
    const X509_NAME* IssuerName() const;

    X509* m_x509;
};

// A fresh parse of the DER encoding of cert; null for null or on failure.
X509* myX509_duplicate(const X509* cert);

// The certificate time read field by field and converted with mktime, that
// is as local standard time (see the implementation for the offset rules).
time_t ASN1_TIME_to_time_t(const ASN1_STRING* time);

// The decimal value of len characters of text from start; 0 when len
// exceeds 4 or the range lies outside the text.
int SubStrToInt(const std::string& text, int start, int len);

typedef void (*SLCERT_LogFunction)(std::string);

void SLCERT_SetErrorLoggingFunc(SLCERT_LogFunction fn);
void SLCERT_SetMessageLoggingFunc(SLCERT_LogFunction fn);
void SLCERT_SetDebugLoggingFunc(SLCERT_LogFunction fn);
void SLCERT_LogError(const std::string& text);
void SLCERT_LogMessage(const std::string& text);
void SLCERT_LogDebug(const std::string& text);

} // namespace Korvex
