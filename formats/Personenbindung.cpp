// Parsing of the identity link record. Every read is bounded by the input
// length (or, for the two nested steps, by the record's own arrays): the
// record comes from the card and its lengths are not trusted.
#include "formats/Personenbindung.h"

#include <cstring>
#include <vector>

#include "formats/Asn1.h"

namespace Korvex {

namespace {

bool tagAt(const unsigned char* data, int len, int pos, unsigned char tag)
{
    return pos >= 0 && pos < len && data[pos] == tag;
}

// Reads a small INTEGER whose tag has been passed: a length octet of 02 means
// two value bytes, any other length octet is taken as one value byte (the
// cards never write more, so the octet is not read as a real length).
bool readSmallInteger(const unsigned char* data, int len, int& pos, int& value)
{
    if (pos >= len) {
        pos = len;
        return false;
    }
    const int valueBytes = data[pos] == 0x02 ? 2 : 1;
    if (len - pos - 1 < valueBytes) {
        pos = len;
        return false;
    }
    value = valueBytes == 2 ? (data[pos + 1] << 8) | data[pos + 2] : data[pos + 1];
    pos += 1 + valueBytes;
    return true;
}

// Copies the content of the constructed field whose tag stands at pos. A
// content larger than the destination is skipped, like an oversized bit
// string, instead of spilling into the next array.
void copyRawField(const unsigned char* data, int len, int& pos, unsigned char* dest, int capacity)
{
    ++pos;
    long contentLen = 0;
    if (!getLen(data, len, pos, contentLen))
        return;
    if (contentLen > len - pos) {
        pos = len;
        return;
    }
    if (contentLen <= capacity)
        std::memcpy(dest, data + pos, static_cast<size_t>(contentLen));
    pos += static_cast<int>(contentLen);
}

// The BIT STRING whose tag has been passed. The stored length starts at the
// capacity so that a value that does not fit is visible as a full, zeroed
// array; the outcome of the read is deliberately not checked.
void readDigestBitString(const unsigned char* data, int len, int& pos, unsigned char* dest, int capacity,
                         int& storedLen)
{
    storedLen = capacity;
    ReadBitString(data, len, pos, dest, storedLen);
}

// One of the wrapped digests [0], [1], [2]: the wrapper's header is passed,
// its BIT STRING is read only if it follows directly.
void readWrappedDigest(const unsigned char* data, int len, int& pos, unsigned char* dest, int& storedLen)
{
    ++pos;
    long wrapperLen = 0;
    if (!getLen(data, len, pos, wrapperLen))
        return;
    if (tagAt(data, len, pos, 0x03)) {
        ++pos;
        readDigestBitString(data, len, pos, dest, Personenbindung::kDigestSize, storedLen);
    }
}

} // namespace

Personenbindung::Personenbindung()
{
    MemSetNull();
}

Personenbindung::~Personenbindung() = default;

void Personenbindung::MemSetNull()
{
    m_version = 0;
    m_issuerTemplate.clear();
    m_assertionId.clear();
    m_issueInstant.clear();
    m_baseId.clear();
    m_givenName.clear();
    m_familyName.clear();
    m_dateOfBirth.clear();
    std::memset(m_personData, 0, sizeof m_personData);
    std::memset(m_citizenPublicKey, 0, sizeof m_citizenPublicKey);
    std::memset(m_signatureValue, 0, sizeof m_signatureValue);
    std::memset(m_referenceDigest, 0, sizeof m_referenceDigest);
    std::memset(m_referenceManifestDigest, 0, sizeof m_referenceManifestDigest);
    std::memset(m_manifestReferenceDigest, 0, sizeof m_manifestReferenceDigest);
    m_signatureValueLen = 0;
    m_referenceDigestLen = 0;
    m_referenceManifestDigestLen = 0;
    m_manifestReferenceDigestLen = 0;
}

int Personenbindung::parse(unsigned char* data, int len)
{
    MemSetNull();
    if (data == nullptr || len <= 0 || data[0] != 0x30) {
        LibAsn1::LogError("Keine Personenbindungsdaten");
        return 0;
    }
    int pos = 1;
    long outerLen = 0;
    if (!getLen(data, len, pos, outerLen) || outerLen > len) {
        LibAsn1::LogError("Fehler beim Lesen der Personenbindung Lnge passt nicht");
        return 0;
    }

    if (tagAt(data, len, pos, 0x02)) {
        ++pos;
        readSmallInteger(data, len, pos, m_version);
    }
    // The three texts form a chain: each is only looked for after the one
    // before it was found.
    if (tagAt(data, len, pos, 0x0C)) {
        ++pos;
        m_issuerTemplate = ReadUtf8String(data, len, pos);
        if (tagAt(data, len, pos, 0x0C)) {
            ++pos;
            m_assertionId = ReadUtf8String(data, len, pos);
            if (tagAt(data, len, pos, 0x0C)) {
                ++pos;
                m_issueInstant = ReadUtf8String(data, len, pos);
            }
        }
    }
    if (tagAt(data, len, pos, 0xA0))
        copyRawField(data, len, pos, m_personData, kPersonDataSize);
    if (tagAt(data, len, pos, 0x30))
        copyRawField(data, len, pos, m_citizenPublicKey, kCitizenPublicKeySize);
    if (tagAt(data, len, pos, 0x03)) {
        ++pos;
        readDigestBitString(data, len, pos, m_signatureValue, kSignatureValueSize, m_signatureValueLen);
    }

    // The digests are looked for only while the position is below the outer
    // length. The position counts the outer header and the length does not,
    // so the last few bytes of a record are never taken for a digest.
    if (pos < outerLen && tagAt(data, len, pos, 0xA0))
        readWrappedDigest(data, len, pos, m_referenceDigest, m_referenceDigestLen);
    if (pos < outerLen && tagAt(data, len, pos, 0xA1))
        readWrappedDigest(data, len, pos, m_referenceManifestDigest, m_referenceManifestDigestLen);
    if (pos < outerLen && tagAt(data, len, pos, 0xA2))
        readWrappedDigest(data, len, pos, m_manifestReferenceDigest, m_manifestReferenceDigestLen);

    _doPersonData(m_personData);
    _doCitizenPublicKey(m_citizenPublicKey);
    return 1;
}

int Personenbindung::_doPersonData(unsigned char* personData, int size)
{
    if (personData == nullptr || size <= 0 || personData[0] != 0x30) {
        LibAsn1::LogError("Personenbindung::_doPersonData keine Sequence");
        return 0;
    }
    // Only the one-octet length form is expected, so the first text's tag
    // stands at the third byte; other forms simply yield no names.
    int pos = 2;
    std::string* const fields[] = {&m_baseId, &m_givenName, &m_familyName, &m_dateOfBirth};
    for (std::string* field : fields) {
        if (!tagAt(personData, size, pos, 0x0C))
            break;
        ++pos;
        *field = ReadUtf8String(personData, size, pos);
    }
    return 1;
}

int Personenbindung::_doCitizenPublicKey(unsigned char* key, int size)
{
    // The numbers are walked to make sure the key content is well formed
    // enough to read; nothing of the record depends on them.
    std::vector<int> numbers;
    int pos = 0;
    while (key != nullptr && pos < size) {
        if (key[pos] == 0xA0) {
            ++pos;
            long wrapperLen = 0;
            if (!getLen(key, size, pos, wrapperLen))
                break;
        } else if (key[pos] == 0x02) {
            ++pos;
            int value = 0;
            if (!readSmallInteger(key, size, pos, value))
                break;
            numbers.push_back(value);
        } else {
            break;
        }
    }
    return 1;
}

int Personenbindung::getVersion() { return m_version; }
std::string Personenbindung::getAssertionID() { return m_assertionId; }
std::string Personenbindung::getIssuerTemplate() { return m_issuerTemplate; }
std::string Personenbindung::getIssueInstant() { return m_issueInstant; }
std::string Personenbindung::getBaseId() { return m_baseId; }
std::string Personenbindung::getGivenName() { return m_givenName; }
std::string Personenbindung::getFamilyName() { return m_familyName; }
std::string Personenbindung::getDateOfBirth() { return m_dateOfBirth; }

namespace {
void copyStored(const unsigned char* stored, int storedLen, unsigned char* out, int& len)
{
    len = storedLen;
    if (out != nullptr && storedLen > 0)
        std::memcpy(out, stored, static_cast<size_t>(storedLen));
}
} // namespace

void Personenbindung::getSignatureValue(unsigned char* out, int& len)
{
    copyStored(m_signatureValue, m_signatureValueLen, out, len);
}

void Personenbindung::getReferenceDigest(unsigned char* out, int& len)
{
    copyStored(m_referenceDigest, m_referenceDigestLen, out, len);
}

void Personenbindung::getReferenceManifestDigest(unsigned char* out, int& len)
{
    copyStored(m_referenceManifestDigest, m_referenceManifestDigestLen, out, len);
}

void Personenbindung::getManifestReferenceDigest(unsigned char* out, int& len)
{
    copyStored(m_manifestReferenceDigest, m_manifestReferenceDigestLen, out, len);
}

} // namespace Korvex
