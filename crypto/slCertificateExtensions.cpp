// slCertificate: CA and self-signed checks and the extension queries.
#include "crypto/slCertificate.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

namespace Korvex {

namespace {

struct ObjectDeleter {
    void operator()(ASN1_OBJECT* object) const { ASN1_OBJECT_free(object); }
};
struct GeneralNamesDeleter {
    void operator()(GENERAL_NAMES* names) const { GENERAL_NAMES_free(names); }
};
struct InfoAccessDeleter {
    void operator()(AUTHORITY_INFO_ACCESS* access) const { AUTHORITY_INFO_ACCESS_free(access); }
};
struct DistPointsDeleter {
    void operator()(CRL_DIST_POINTS* points) const { CRL_DIST_POINTS_free(points); }
};
struct KeyUsageDeleter {
    void operator()(EXTENDED_KEY_USAGE* usage) const { EXTENDED_KEY_USAGE_free(usage); }
};

std::string Text(const ASN1_STRING* text)
{
    if (!text)
        return "";
    const int length = ASN1_STRING_length(text);
    const unsigned char* data = ASN1_STRING_get0_data(text);
    if (length <= 0 || !data)
        return "";
    return std::string(reinterpret_cast<const char*>(data), static_cast<size_t>(length));
}

std::vector<unsigned char> Bytes(const ASN1_OCTET_STRING* value)
{
    std::vector<unsigned char> bytes;
    if (!value)
        return bytes;
    const int length = ASN1_STRING_length(value);
    const unsigned char* data = ASN1_STRING_get0_data(value);
    if (length > 0 && data)
        bytes.assign(data, data + length);
    return bytes;
}

// The stored extnValue of the first extension with that NID in the whole
// extension list; empty when absent.
std::vector<unsigned char> ExtensionValue(const X509* cert, int nid)
{
    if (!cert)
        return {};
    const int index = X509_get_ext_by_NID(cert, nid, -1);
    if (index < 0)
        return {};
    return Bytes(X509_EXTENSION_get_data(X509_get_ext(cert, index)));
}

// The index of the extension named by oid, searched from the second
// extension on (the lookup is started at position 0, not -1, so the first
// extension is never seen). Callers rely on this: a leading basicConstraints
// extension does not count as present.
int FindExtensionAfterFirst(const X509* cert, const std::string& oid)
{
    if (!cert)
        return -1;
    std::unique_ptr<ASN1_OBJECT, ObjectDeleter> object(OBJ_txt2obj(oid.c_str(), 0));
    if (!object) {
        ERR_clear_error();
        return -1;
    }
    return X509_get_ext_by_OBJ(cert, object.get(), 0);
}

template <typename T>
T* DecodeExtension(const X509* cert, int nid)
{
    if (!cert)
        return nullptr;
    // Also null when the extension appears twice; that is treated as absent.
    return static_cast<T*>(X509_get_ext_d2i(cert, nid, nullptr, nullptr));
}

void AppendUris(const GENERAL_NAMES* names, std::vector<std::string>& out)
{
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names, i);
        if (name && name->type == GEN_URI)
            out.push_back(Text(name->d.uniformResourceIdentifier));
    }
}

std::vector<std::string> WithPrefixRemoved(const std::vector<std::string>& entries,
                                           const std::string& prefix)
{
    std::vector<std::string> result;
    for (const std::string& entry : entries) {
        if (entry.compare(0, prefix.size(), prefix) == 0)
            result.push_back(entry.substr(prefix.size()));
    }
    return result;
}

} // namespace

bool slCertificate::IsCaCert() const
{
    // Only a basicConstraints CA counts; the other positive answers of the
    // check (version-1 roots, key-usage-only CAs) do not.
    return m_x509 && X509_check_ca(m_x509) == 1;
}

bool slCertificate::IsSelfSigned() const
{
    return m_x509 && X509_NAME_cmp(SubjectName(), IssuerName()) == 0;
}

bool slCertificate::IsOcspSigner() const
{
    std::unique_ptr<EXTENDED_KEY_USAGE, KeyUsageDeleter> usage(
        DecodeExtension<EXTENDED_KEY_USAGE>(m_x509, NID_ext_key_usage));
    if (!usage)
        return false;
    for (int i = 0; i < sk_ASN1_OBJECT_num(usage.get()); ++i) {
        if (OBJ_obj2nid(sk_ASN1_OBJECT_value(usage.get(), i)) == NID_OCSP_sign)
            return true;
    }
    return false;
}

bool slCertificate::GetExtAvailable(std::string oid) const
{
    return FindExtensionAfterFirst(m_x509, oid) >= 0;
}

bool slCertificate::GetBoolExt(std::string oid) const
{
    const int index = FindExtensionAfterFirst(m_x509, oid);
    if (index < 0)
        return false;
    const std::vector<unsigned char> value =
        Bytes(X509_EXTENSION_get_data(X509_get_ext(m_x509, index)));
    // Exactly one DER BOOLEAN, and only the canonical TRUE byte counts.
    return value.size() == 3 && value[0] == V_ASN1_BOOLEAN && value[1] == 0x01 && value[2] == 0xFF;
}

std::vector<unsigned char> slCertificate::GetSKI() const
{
    return ExtensionValue(m_x509, NID_subject_key_identifier);
}

std::vector<unsigned char> slCertificate::GetAKI() const
{
    return ExtensionValue(m_x509, NID_authority_key_identifier);
}

std::vector<std::string> slCertificate::Get_SAN_DNS() const
{
    std::vector<std::string> result;
    std::unique_ptr<GENERAL_NAMES, GeneralNamesDeleter> names(
        DecodeExtension<GENERAL_NAMES>(m_x509, NID_subject_alt_name));
    for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
        if (name && name->type == GEN_DNS)
            result.push_back(Text(name->d.dNSName));
    }
    return result;
}

std::vector<std::string> slCertificate::Get_AIA() const
{
    std::vector<std::string> result;
    std::unique_ptr<AUTHORITY_INFO_ACCESS, InfoAccessDeleter> access(
        DecodeExtension<AUTHORITY_INFO_ACCESS>(m_x509, NID_info_access));
    for (int i = 0; access && i < sk_ACCESS_DESCRIPTION_num(access.get()); ++i) {
        const ACCESS_DESCRIPTION* entry = sk_ACCESS_DESCRIPTION_value(access.get(), i);
        if (!entry || !entry->location || entry->location->type != GEN_URI)
            continue;
        const int method = OBJ_obj2nid(entry->method);
        const std::string uri = Text(entry->location->d.uniformResourceIdentifier);
        if (method == NID_ad_OCSP)
            result.push_back("ocsp:" + uri);
        else if (method == NID_ad_ca_issuers)
            result.push_back("ca:" + uri);
    }
    return result;
}

std::vector<std::string> slCertificate::Get_AIA_OCSP() const
{
    return WithPrefixRemoved(Get_AIA(), "ocsp:");
}

std::vector<std::string> slCertificate::Get_AIA_CAIssuers() const
{
    return WithPrefixRemoved(Get_AIA(), "ca:");
}

std::vector<std::string> slCertificate::Get_CRL_Dp() const
{
    std::vector<std::string> result;
    std::unique_ptr<CRL_DIST_POINTS, DistPointsDeleter> points(
        DecodeExtension<CRL_DIST_POINTS>(m_x509, NID_crl_distribution_points));
    for (int i = 0; points && i < sk_DIST_POINT_num(points.get()); ++i) {
        const DIST_POINT* point = sk_DIST_POINT_value(points.get(), i);
        // Only full names; a name relative to the issuer carries no URI.
        if (point && point->distpoint && point->distpoint->type == 0)
            AppendUris(point->distpoint->name.fullname, result);
    }
    return result;
}

} // namespace Korvex
