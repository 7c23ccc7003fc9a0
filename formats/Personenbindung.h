// The identity link record: a signed DER structure on the citizen card that
// binds the holder's base identifier to name and date of birth. parse()
// accepts the layout the cards write and keeps the binary parts in fixed
// buffers; the record is read from the card and therefore never trusted.
#pragma once

#include <string>

namespace Korvex {

class Personenbindung {
public:
    static constexpr int kPersonDataSize = 256;
    static constexpr int kCitizenPublicKeySize = 256;
    static constexpr int kSignatureValueSize = 1024;
    static constexpr int kDigestSize = 256;

    Personenbindung();
    ~Personenbindung();

    // 1 on success, 0 when the input is no identity link (see the log).
    int parse(unsigned char* data, int len);

    int getVersion();
    std::string getAssertionID();
    std::string getIssuerTemplate();
    std::string getIssueInstant();
    std::string getBaseId();
    std::string getGivenName();
    std::string getFamilyName();
    std::string getDateOfBirth();

    // Set len to the stored length and copy that many bytes; out needs room
    // for the whole array (kSignatureValueSize or kDigestSize bytes).
    void getSignatureValue(unsigned char* out, int& len);
    void getReferenceDigest(unsigned char* out, int& len);
    void getReferenceManifestDigest(unsigned char* out, int& len);
    void getManifestReferenceDigest(unsigned char* out, int& len);

    void MemSetNull();

    // Steps of parse(), on the record's own arrays; size is the readable
    // length of the given bytes.
    int _doPersonData(unsigned char* personData, int size = kPersonDataSize);
    int _doCitizenPublicKey(unsigned char* key, int size = kCitizenPublicKeySize);

private:
    int m_version;
    std::string m_issuerTemplate;
    std::string m_assertionId;
    std::string m_issueInstant;
    std::string m_baseId;
    std::string m_givenName;
    std::string m_familyName;
    std::string m_dateOfBirth;
    unsigned char m_personData[kPersonDataSize];
    unsigned char m_citizenPublicKey[kCitizenPublicKeySize];
    unsigned char m_signatureValue[kSignatureValueSize];
    unsigned char m_referenceDigest[kDigestSize];
    unsigned char m_referenceManifestDigest[kDigestSize];
    unsigned char m_manifestReferenceDigest[kDigestSize];
    int m_signatureValueLen;
    int m_referenceDigestLen;
    int m_referenceManifestDigestLen;
    int m_manifestReferenceDigestLen;
};

} // namespace Korvex
