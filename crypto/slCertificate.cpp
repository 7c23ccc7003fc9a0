// slCertificate: life cycle, loading and storing, names, serial number and
// the raw DER pieces.
#include "crypto/slCertificate.h"

#include "crypto/OpenSslHandles.h"
#include "crypto/slCertificateDecodeCache.h"
#include "base/base64.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Korvex {

namespace {

// Longest name text handed out; the one-line printer cuts there.
constexpr int kNameBufferSize = 1024;
constexpr int kLogPemLimit = 8000;

std::string OneLine(const X509_NAME* name)
{
    if (!name)
        return "";
    char buffer[kNameBufferSize] = {};
    if (!X509_NAME_oneline(name, buffer, sizeof(buffer)))
        return "";
    return buffer;
}

std::string PrintName(const X509_NAME* name, unsigned long flags)
{
    if (!name)
        return "";
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || X509_NAME_print_ex(bio.get(), name, 0, flags) < 0)
        return "";
    return BioContents(bio.get());
}

std::string NameValue(const X509_NAME* name, int nid)
{
    if (!name)
        return "";
    char buffer[kNameBufferSize] = {};
    if (X509_NAME_get_text_by_NID(name, nid, buffer, sizeof(buffer)) < 0)
        return "";
    return buffer;
}

std::string HashText(unsigned long hash)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%08lx", hash);
    return text;
}

bool CopyOut(const unsigned char* data, size_t size, unsigned char* buf, unsigned int& len)
{
    if (size > UINT_MAX)
        return false;
    if (!buf) {
        len = static_cast<unsigned int>(size);
        return true;
    }
    if (len < size)
        return false;
    if (size > 0)
        std::memcpy(buf, data, size);
    len = static_cast<unsigned int>(size);
    return true;
}

bool NameDer(const X509_NAME* name, unsigned char* buf, unsigned int& len)
{
    if (!name)
        return false;
    const int size = i2d_X509_NAME(name, nullptr);
    if (size <= 0)
        return false;
    std::vector<unsigned char> der(static_cast<size_t>(size));
    unsigned char* cursor = der.data();
    if (i2d_X509_NAME(name, &cursor) != size)
        return false;
    return CopyOut(der.data(), der.size(), buf, len);
}

} // namespace

slCertificate::slCertificate() : m_x509(nullptr) {}

slCertificate::slCertificate(const X509* cert) : m_x509(myX509_duplicate(cert)) {}

slCertificate::slCertificate(const slCertificate& other) : m_x509(myX509_duplicate(other.m_x509)) {}

slCertificate::~slCertificate()
{
    X509_free(m_x509);
    m_x509 = nullptr;
}

slCertificate& slCertificate::operator=(const slCertificate& other)
{
    if (this != &other)
        m_x509 = myX509_duplicate(other.m_x509);
    return *this;
}

bool slCertificate::operator==(const slCertificate& other) const
{
    // Loads of the same bytes share one decoded X509, so an equal pointer
    // alone no longer tells one object from another.
    return m_x509 == other.m_x509 && (m_x509 == nullptr || this == &other);
}

bool slCertificate::LoadFromBuffer(const unsigned char* data, unsigned long len)
{
    m_x509 = DecodeCertificateDer(data, len);
    return m_x509 != nullptr;
}

bool slCertificate::LoadFromBuffer(const std::vector<unsigned char>& data)
{
    return LoadFromBuffer(data.empty() ? nullptr : data.data(), data.size());
}

bool slCertificate::LoadFromB64(std::string text)
{
    m_x509 = nullptr;
    if (text.size() <= static_cast<size_t>(INT_MAX)) {
        BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
        if (bio)
            m_x509 = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr);
    }
    if (m_x509)
        return true;
    // Not PEM: the expected failure must not linger in OpenSSL's error queue.
    ERR_clear_error();
    return LoadFromBuffer(b64Decode(text));
}

bool slCertificate::LoadFromFile(std::string path)
{
    BioPtr pemFile(BIO_new_file(path.c_str(), "rb"));
    if (!pemFile) {
        ERR_clear_error();
        return m_x509 != nullptr;
    }
    m_x509 = PEM_read_bio_X509(pemFile.get(), nullptr, nullptr, nullptr);
    if (m_x509)
        return true;
    ERR_clear_error();
    BioPtr derFile(BIO_new_file(path.c_str(), "rb"));
    if (derFile)
        m_x509 = d2i_X509_bio(derFile.get(), nullptr);
    if (!m_x509)
        ERR_clear_error();
    return m_x509 != nullptr;
}

bool slCertificate::LoadFromX509(X509* cert)
{
    X509_free(m_x509);
    m_x509 = myX509_duplicate(cert);
    return m_x509 != nullptr;
}

bool slCertificate::SaveCert(std::string path)
{
    if (!m_x509)
        return false;
    BioPtr file(BIO_new_file(path.c_str(), "w"));
    if (!file) {
        ERR_clear_error();
        return false;
    }
    return PEM_write_bio_X509(file.get(), m_x509) == 1 && BIO_flush(file.get()) == 1;
}

X509* slCertificate::GetX509()
{
    return m_x509;
}

X509* slCertificate::GetX509Copy() const
{
    return myX509_duplicate(m_x509);
}

std::vector<unsigned char> slCertificate::ToBin() const
{
    std::vector<unsigned char> der;
    if (!m_x509)
        return der;
    const int size = i2d_X509(m_x509, nullptr);
    if (size <= 0)
        return der;
    der.resize(static_cast<size_t>(size));
    unsigned char* cursor = der.data();
    if (i2d_X509(m_x509, &cursor) != size)
        der.clear();
    return der;
}

std::string slCertificate::ToB64() const
{
    return b64Encode(ToBin());
}

const X509_NAME* slCertificate::SubjectName() const
{
    return m_x509 ? X509_get_subject_name(m_x509) : nullptr;
}

const X509_NAME* slCertificate::IssuerName() const
{
    return m_x509 ? X509_get_issuer_name(m_x509) : nullptr;
}

std::string slCertificate::GetSubject() const { return OneLine(SubjectName()); }
std::string slCertificate::GetIssuer() const { return OneLine(IssuerName()); }

std::string slCertificate::GetSubjectWithFormat(unsigned long flags) const
{
    return PrintName(SubjectName(), flags);
}

std::string slCertificate::GetIssuerWithFormat(unsigned long flags) const
{
    return PrintName(IssuerName(), flags);
}

std::string slCertificate::GetIssuerSepByComa() const
{
    if (!m_x509)
        return "";
    // Every piece becomes the new head and the text so far is appended
    // behind it, which reverses the order. A value holding "/" is split as
    // well, and a one-character text so far is dropped; the token layer
    // stores issuers in exactly this form.
    const std::string issuer = GetIssuer();
    std::string result;
    size_t start = 0;
    while (start <= issuer.size()) {
        size_t end = issuer.find('/', start);
        if (end == std::string::npos)
            end = issuer.size();
        if (end > start) {
            const std::string previous = result;
            result = issuer.substr(start, end - start);
            if (previous.size() > 1)
                result += "," + previous;
        }
        start = end + 1;
    }
    return result;
}

std::string slCertificate::GetIssuerVal(int nid) const { return NameValue(IssuerName(), nid); }
std::string slCertificate::GetSubjectVal(int nid) const { return NameValue(SubjectName(), nid); }

std::string slCertificate::GetSubjectNameHash() const
{
    return m_x509 ? HashText(X509_subject_name_hash(m_x509)) : "";
}

std::string slCertificate::GetIssuerNameHash() const
{
    return m_x509 ? HashText(X509_issuer_name_hash(m_x509)) : "";
}

std::string slCertificate::GetIssuerOU() const { return GetIssuerVal(NID_organizationalUnitName); }
std::string slCertificate::GetIssuerCN() const { return GetIssuerVal(NID_commonName); }
std::string slCertificate::GetIssuerO() const { return GetIssuerVal(NID_organizationName); }
std::string slCertificate::GetIssuerC() const { return GetIssuerVal(NID_countryName); }
std::string slCertificate::GetSubjectOU() const { return GetSubjectVal(NID_organizationalUnitName); }
std::string slCertificate::GetSubjectCN() const { return GetSubjectVal(NID_commonName); }
std::string slCertificate::GetSubjectGN() const { return GetSubjectVal(NID_givenName); }
std::string slCertificate::GetSubjectSN() const { return GetSubjectVal(NID_surname); }
std::string slCertificate::GetSubjectSerial() const { return GetSubjectVal(NID_serialNumber); }

bool slCertificate::GetSubjectDER(unsigned char* buf, unsigned int& len) const
{
    return NameDer(SubjectName(), buf, len);
}

bool slCertificate::GetIssuerDER(unsigned char* buf, unsigned int& len) const
{
    return NameDer(IssuerName(), buf, len);
}

bool slCertificate::GetSerialNumberDER(unsigned char* buf, unsigned int& len) const
{
    const ASN1_INTEGER* serial = GetSerialNumberAsn1();
    if (!serial)
        return false;
    const int size = ASN1_STRING_length(serial);
    if (size < 0)
        return false;
    return CopyOut(ASN1_STRING_get0_data(serial), static_cast<size_t>(size), buf, len);
}

ASN1_INTEGER* slCertificate::GetSerialNumberAsn1() const
{
    return m_x509 ? X509_get_serialNumber(m_x509) : nullptr;
}

std::string slCertificate::GetSerialNumber() const
{
    const ASN1_INTEGER* serial = GetSerialNumberAsn1();
    if (!serial)
        return "";
    BIGNUM* number = ASN1_INTEGER_to_BN(serial, nullptr);
    if (!number)
        return "";
    // Two digits per byte, leading zero bytes dropped, zero as a single 0.
    char* hex = BN_bn2hex(number);
    BN_free(number);
    if (!hex)
        return "";
    std::string text = std::string("0x") + hex;
    OPENSSL_free(hex);
    return text;
}

long slCertificate::GetSerialNumberInt() const
{
    if (!m_x509)
        return 0;
    // strtol accepts the 0x prefix and saturates at LONG_MAX.
    return std::strtol(GetSerialNumber().c_str(), nullptr, 16);
}

bool slCertificate::LogCertificate(std::string prefix) const
{
    if (!m_x509)
        return false;
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509(bio.get(), m_x509) != 1)
        return false;
    // A longer text is cut; the zeroed buffer terminates whatever was read.
    char pem[kLogPemLimit + 1] = {};
    BIO_read(bio.get(), pem, kLogPemLimit);
    SLCERT_LogDebug(prefix + ": " + pem);
    return true;
}

X509* myX509_duplicate(const X509* cert)
{
    if (!cert)
        return nullptr;
    // Always a fresh parse of the encoding, never a shared reference: no two
    // certificate objects ever hold the same X509.
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio)
        return nullptr;
    if (i2d_X509_bio(bio.get(), cert) < 0)
        return nullptr;
    X509* copy = d2i_X509_bio(bio.get(), nullptr);
    if (!copy)
        ERR_clear_error();
    return copy;
}

} // namespace Korvex
