// slCertificate: names, serial numbers, raw DER pieces, flags and extensions.
#include "crypto/slCertificate.h"
#include "CryptoTestSupport.h"

#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <climits>

using namespace Korvex;
using namespace CryptoTest;

namespace {

slCertificate Load(const std::string& name)
{
    slCertificate cert;
    EXPECT_TRUE(cert.LoadFromFile(FixturePath(name + ".der"))) << name;
    return cert;
}

using Strings = std::vector<std::string>;

} // namespace

TEST(CertificateNames, OneLineFormsAndCommaJoinedIssuer)
{
    slCertificate ee = Load("ee-rsa");
    EXPECT_EQ(ee.GetSubject(), "/C=AT/O=Example/OU=Signature/CN=Holder Mustermann/GN=Max/SN=Mustermann"
                               "/serialNumber=PNOAT-1234567");
    EXPECT_EQ(ee.GetIssuer(), "/C=AT/O=Example/OU=Trust Center/CN=Example Root CA");
    EXPECT_EQ(ee.GetIssuerSepByComa(), "CN=Example Root CA,OU=Trust Center,O=Example,C=AT");
    EXPECT_EQ(ee.GetSubjectWithFormat(XN_FLAG_RFC2253),
              "serialNumber=PNOAT-1234567,SN=Mustermann,GN=Max,CN=Holder Mustermann,OU=Signature,"
              "O=Example,C=AT");
    EXPECT_EQ(ee.GetIssuerWithFormat(XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB),
              "C = AT, O = Example, OU = Trust Center, CN = Example Root CA");

    // The printer escapes a "/" inside a value, and the comma form splits
    // there all the same.
    slCertificate v1 = Load("v1-self");
    EXPECT_EQ(v1.GetIssuer(), "/C=AT/O=Left\\/Right/CN=V1 Root");
    EXPECT_EQ(v1.GetIssuerSepByComa(), "CN=V1 Root,Right,O=Left\\,C=AT");
    EXPECT_EQ(v1.GetIssuerO(), "Left/Right");
}

TEST(CertificateNames, AttributeGettersAndHashes)
{
    slCertificate ee = Load("ee-rsa");
    EXPECT_EQ(ee.GetSubjectCN(), "Holder Mustermann");
    EXPECT_EQ(ee.GetSubjectOU(), "Signature");
    EXPECT_EQ(ee.GetSubjectGN(), "Max");
    EXPECT_EQ(ee.GetSubjectSN(), "Mustermann");
    EXPECT_EQ(ee.GetSubjectSerial(), "PNOAT-1234567");
    EXPECT_EQ(ee.GetIssuerCN(), "Example Root CA");
    EXPECT_EQ(ee.GetIssuerOU(), "Trust Center");
    EXPECT_EQ(ee.GetIssuerO(), "Example");
    EXPECT_EQ(ee.GetIssuerC(), "AT");
    EXPECT_EQ(ee.GetSubjectVal(NID_pseudonym), "");
    EXPECT_EQ(ee.GetIssuerVal(-5), "");
    EXPECT_EQ(ee.GetSubjectNameHash(), Expected("ee-rsa", "subject_hash"));
    EXPECT_EQ(ee.GetIssuerNameHash(), Expected("ee-rsa", "issuer_hash"));
}

TEST(CertificateNames, DerPiecesFollowTheTwoCallSizeProtocol)
{
    slCertificate ee = Load("ee-rsa");
    unsigned int size = 0;
    ASSERT_TRUE(ee.GetSubjectDER(nullptr, size));
    const int expected = i2d_X509_NAME(X509_get_subject_name(ee.GetX509()), nullptr);
    ASSERT_EQ(size, static_cast<unsigned int>(expected));

    std::vector<unsigned char> buf(size + 10, 0xEE);
    unsigned int len = size - 1;
    EXPECT_FALSE(ee.GetSubjectDER(buf.data(), len));
    EXPECT_EQ(len, size - 1);
    EXPECT_EQ(buf[0], 0xEE);
    len = size + 10;
    ASSERT_TRUE(ee.GetSubjectDER(buf.data(), len));
    EXPECT_EQ(len, size);
    EXPECT_EQ(buf[0], 0x30);
    EXPECT_EQ(buf[size], 0xEE);

    ASSERT_TRUE(ee.GetIssuerDER(nullptr, size));
    std::vector<unsigned char> issuer(size);
    ASSERT_TRUE(ee.GetIssuerDER(issuer.data(), size));
    unsigned int caSubjectSize = 0;
    slCertificate ca = Load("ca");
    ASSERT_TRUE(ca.GetSubjectDER(nullptr, caSubjectSize));
    std::vector<unsigned char> caSubject(caSubjectSize);
    ASSERT_TRUE(ca.GetSubjectDER(caSubject.data(), caSubjectSize));
    EXPECT_EQ(issuer, caSubject);
}

TEST(CertificateNames, SerialNumberForms)
{
    struct Case { const char* cert; const char* text; long value; std::vector<unsigned char> der; };
    const Case cases[] = {
        {"ee-ec", "0x01", 1, {0x01}},
        {"ee-rsa", "0xFF", 255, {0xFF}},
        {"ca", "0x0ABC", 0xABC, {0x0A, 0xBC}},
        {"v1-self", "0x0123456789ABCDEF0123", LONG_MAX,
         {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x01, 0x23}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.cert);
        slCertificate cert = Load(c.cert);
        EXPECT_EQ(cert.GetSerialNumber(), c.text);
        EXPECT_EQ(cert.GetSerialNumberInt(), c.value);
        unsigned int len = 0;
        ASSERT_TRUE(cert.GetSerialNumberDER(nullptr, len));
        std::vector<unsigned char> der(len);
        ASSERT_TRUE(cert.GetSerialNumberDER(der.data(), len));
        EXPECT_EQ(der, c.der);
    }

    // Zero prints as a single digit.
    slCertificate ee = Load("ee-rsa");
    X509* zero = ee.GetX509Copy();
    ASN1_INTEGER* value = ASN1_INTEGER_new();
    ASN1_INTEGER_set(value, 0);
    X509_set_serialNumber(zero, value);
    i2d_re_X509_tbs(zero, nullptr); // drop the cached encoding
    slCertificate zeroCert(zero);
    EXPECT_EQ(zeroCert.GetSerialNumber(), "0x0");
    EXPECT_EQ(zeroCert.GetSerialNumberInt(), 0);
    ASN1_INTEGER_free(value);
    X509_free(zero);
}

TEST(CertificateFlags, CaAndSelfSignedChecks)
{
    EXPECT_TRUE(Load("ca").IsCaCert());
    EXPECT_FALSE(Load("ee-rsa").IsCaCert());
    // Key usage alone and version-1 roots are positive for OpenSSL, not here.
    slCertificate kuCa = Load("ku-ca"), v1 = Load("v1-self");
    EXPECT_GT(X509_check_ca(kuCa.GetX509()), 1);
    EXPECT_GT(X509_check_ca(v1.GetX509()), 1);
    EXPECT_FALSE(kuCa.IsCaCert());
    EXPECT_FALSE(v1.IsCaCert());

    EXPECT_TRUE(Load("ca").IsSelfSigned());
    EXPECT_TRUE(v1.IsSelfSigned());
    EXPECT_FALSE(Load("ee-ec").IsSelfSigned());

    EXPECT_TRUE(Load("ee-ec").IsOcspSigner());
    EXPECT_FALSE(Load("ee-rsa").IsOcspSigner()); // has extendedKeyUsage, but not OCSP
    EXPECT_FALSE(Load("ca").IsOcspSigner());
}

TEST(CertificateFlags, ExtensionLookupNeverSeesTheFirstExtension)
{
    slCertificate ca = Load("ca"), ee = Load("ee-rsa");
    // basicConstraints stands first in the CA, third in the end entity.
    EXPECT_FALSE(ca.GetExtAvailable("2.5.29.19"));
    EXPECT_FALSE(ca.GetExtAvailable("basicConstraints"));
    EXPECT_TRUE(ca.GetExtAvailable("keyUsage"));
    EXPECT_TRUE(ee.GetExtAvailable("2.5.29.19"));
    EXPECT_TRUE(ee.GetExtAvailable("X509v3 Basic Constraints"));
    // subjectKeyIdentifier stands first in the end entity; GetSKI still finds it.
    EXPECT_FALSE(ee.GetExtAvailable("subjectKeyIdentifier"));
    EXPECT_FALSE(ee.GetSKI().empty());
    EXPECT_FALSE(ee.GetExtAvailable("1.2.3.4"));
    EXPECT_FALSE(ee.GetExtAvailable("no such name"));
}

TEST(CertificateFlags, BooleanExtensionsCountOnlyTheTrueByte)
{
    slCertificate ee = Load("ee-rsa"), odd = Load("odd-ext");
    EXPECT_TRUE(ee.GetBoolExt("1.3.6.1.4.1.55555.1"));  // 01 01 FF
    EXPECT_FALSE(ee.GetBoolExt("1.3.6.1.4.1.55555.2")); // 01 01 01
    EXPECT_FALSE(ee.GetBoolExt("1.3.6.1.4.1.55555.3")); // an OCTET STRING holding FF
    EXPECT_FALSE(ee.GetBoolExt("1.3.6.1.4.1.55555.9"));
    EXPECT_FALSE(odd.GetBoolExt("1.3.6.1.4.1.55555.4")); // 01 alone
    EXPECT_FALSE(odd.GetBoolExt("1.3.6.1.4.1.55555.5")); // 01 01 FF 00
}

TEST(CertificateExtensions, ListQueriesInCertificateOrder)
{
    slCertificate ee = Load("ee-rsa");
    EXPECT_EQ(ee.Get_SAN_DNS(), (Strings{"first.example", "second.example"}));
    EXPECT_EQ(ee.Get_AIA(), (Strings{"ocsp:http://ocsp.example/", "ca:http://ca.example/ca.cer"}));
    EXPECT_EQ(ee.Get_AIA_OCSP(), Strings{"http://ocsp.example/"});
    EXPECT_EQ(ee.Get_AIA_CAIssuers(), Strings{"http://ca.example/ca.cer"});
    EXPECT_EQ(ee.Get_CRL_Dp(), (Strings{"http://crl.example/a.crl", "ldap://ldap.example/cn=CRL",
                                        "http://crl2.example/b.crl"}));

    slCertificate ca = Load("ca");
    EXPECT_TRUE(ca.Get_SAN_DNS().empty());
    EXPECT_TRUE(ca.Get_AIA().empty());
    EXPECT_TRUE(ca.Get_CRL_Dp().empty());
    EXPECT_TRUE(ca.GetAKI().empty());

    // Malformed contents read as absent.
    slCertificate odd = Load("odd-ext");
    EXPECT_TRUE(odd.Get_SAN_DNS().empty());
    EXPECT_TRUE(odd.Get_AIA().empty());
    EXPECT_TRUE(odd.Get_CRL_Dp().empty());
}

TEST(CertificateExtensions, KeyIdentifiersAreTheStoredExtensionValues)
{
    slCertificate ca = Load("ca"), ee = Load("ee-rsa");
    const std::vector<unsigned char> ski = ca.GetSKI();
    ASSERT_EQ(ski.size(), 22u);
    EXPECT_EQ(ski[0], 0x04);
    EXPECT_EQ(ski[1], 0x14);
    // The fixtures use the SHA-1 key-hash method for their key ids.
    EXPECT_EQ(std::vector<unsigned char>(ski.begin() + 2, ski.end()), ca.GetPubKeyHashBytes());

    // AKI: SEQUENCE { [0] keyIdentifier } naming the CA's key id.
    const std::vector<unsigned char> aki = ee.GetAKI();
    ASSERT_EQ(aki.size(), 24u);
    EXPECT_EQ(aki[0], 0x30);
    EXPECT_EQ(aki[2], 0x80);
    EXPECT_EQ(std::vector<unsigned char>(aki.begin() + 4, aki.end()),
              std::vector<unsigned char>(ski.begin() + 2, ski.end()));
}
