// slCertificate: names, serial numbers, raw DER pieces, flags and extensions.
#include "CryptoTestSupport.h"

#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <climits>

using namespace Korvex;
using namespace CryptoTest;
using Strings = std::vector<std::string>;

TEST(CertificateNames, OneLineFormsAttributesAndHashes)
{
    slCertificate ee = Load("ee-rsa");
    EXPECT_EQ(ee.GetSubject(), "/C=AT/O=Example/OU=Signature/CN=Holder Mustermann/GN=Max/SN=Mustermann"
                               "/serialNumber=PNOAT-1234567");
    EXPECT_EQ(ee.GetIssuer(), "/C=AT/O=Example/OU=Trust Center/CN=Example Root CA");
    EXPECT_EQ(ee.GetIssuerSepByComa(), "CN=Example Root CA,OU=Trust Center,O=Example,C=AT");
    EXPECT_EQ(ee.GetIssuerWithFormat(XN_FLAG_RFC2253), "CN=Example Root CA,OU=Trust Center,O=Example,C=AT");
    EXPECT_EQ((Strings{ee.GetSubjectCN(), ee.GetSubjectOU(), ee.GetSubjectGN(), ee.GetSubjectSN(),
                       ee.GetSubjectSerial(), ee.GetIssuerCN(), ee.GetIssuerOU(), ee.GetIssuerO(),
                       ee.GetIssuerC(), ee.GetSubjectVal(NID_pseudonym), ee.GetIssuerVal(-5)}),
              (Strings{"Holder Mustermann", "Signature", "Max", "Mustermann", "PNOAT-1234567",
                       "Example Root CA", "Trust Center", "Example", "AT", "", ""}));
    EXPECT_EQ(ee.GetSubjectNameHash(), Expected("ee-rsa", "subject_hash"));
    EXPECT_EQ(ee.GetIssuerNameHash(), Expected("ee-rsa", "issuer_hash"));

    // The printer escapes a "/" in a value; the comma form splits there anyway.
    slCertificate v1 = Load("v1-self");
    EXPECT_EQ(v1.GetIssuer(), "/C=AT/O=Left\\/Right/CN=V1 Root");
    EXPECT_EQ(v1.GetIssuerSepByComa(), "CN=V1 Root,Right,O=Left\\,C=AT");
    EXPECT_EQ(v1.GetIssuerO(), "Left/Right");
}

TEST(CertificateNames, DerPiecesFollowTheTwoCallSizeProtocol)
{
    slCertificate ee = Load("ee-rsa"), ca = Load("ca");
    unsigned int size = 0, caSize = 0;
    ASSERT_TRUE(ee.GetIssuerDER(nullptr, size));
    Bytes buf(size + 4, 0xEE);
    unsigned int len = size - 1;
    EXPECT_FALSE(ee.GetIssuerDER(buf.data(), len));
    EXPECT_EQ(len, size - 1);
    EXPECT_EQ(buf[0], 0xEE);
    len = size + 4;
    ASSERT_TRUE(ee.GetIssuerDER(buf.data(), len));
    EXPECT_EQ(len, size);
    EXPECT_EQ(buf[size], 0xEE);
    // The issuer's Name is the CA's subject Name, tag and length included.
    ASSERT_TRUE(ca.GetSubjectDER(nullptr, caSize));
    Bytes caSubject(caSize);
    ASSERT_TRUE(ca.GetSubjectDER(caSubject.data(), caSize));
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + size), caSubject);
    EXPECT_EQ(caSubject[0], 0x30);
}

TEST(CertificateNames, SerialNumberForms)
{
    struct Case { const char* cert; const char* text; long value; Bytes der; };
    const Case cases[] = {
        {"ee-ec", "0x01", 1, {0x01}},
        {"ee-rsa", "0xFF", 255, {0xFF}}, // DER 02 02 00 FF
        {"ca", "0x0ABC", 0xABC, {0x0A, 0xBC}},
        {"v1-self", "0x0123456789ABCDEF0123", LONG_MAX, FromHex("0123456789ABCDEF0123")},
    };
    for (const Case& c : cases) {
        slCertificate cert = Load(c.cert);
        EXPECT_EQ(cert.GetSerialNumber(), c.text);
        EXPECT_EQ(cert.GetSerialNumberInt(), c.value) << c.cert;
        Bytes der(16);
        unsigned int len = der.size();
        ASSERT_TRUE(cert.GetSerialNumberDER(der.data(), len));
        EXPECT_EQ(Bytes(der.begin(), der.begin() + len), c.der);
    }
    X509* zero = Load("ee-rsa").GetX509Copy();
    ASN1_INTEGER_set(X509_get_serialNumber(zero), 0);
    i2d_re_X509_tbs(zero, nullptr); // drop the cached encoding
    EXPECT_EQ(slCertificate(zero).GetSerialNumber(), "0x0");
    X509_free(zero);
}

TEST(CertificateFlags, CaSelfSignedAndOcspChecks)
{
    slCertificate ca = Load("ca"), kuCa = Load("ku-ca"), v1 = Load("v1-self"), ec = Load("ee-ec");
    EXPECT_TRUE(ca.IsCaCert());
    // Key usage alone and version-1 roots are positive for OpenSSL, not here.
    EXPECT_GT(X509_check_ca(kuCa.GetX509()), 1);
    EXPECT_GT(X509_check_ca(v1.GetX509()), 1);
    EXPECT_FALSE(kuCa.IsCaCert() || v1.IsCaCert() || ec.IsCaCert());
    EXPECT_TRUE(ca.IsSelfSigned() && v1.IsSelfSigned());
    EXPECT_FALSE(ec.IsSelfSigned());
    EXPECT_TRUE(ec.IsOcspSigner());
    EXPECT_FALSE(Load("ee-rsa").IsOcspSigner() || ca.IsOcspSigner()); // other usages / none
}

TEST(CertificateFlags, ExtensionLookupNeverSeesTheFirstExtension)
{
    slCertificate ca = Load("ca"), ee = Load("ee-rsa"), odd = Load("odd-ext");
    // basicConstraints stands first in the CA, third in the end entity.
    EXPECT_FALSE(ca.GetExtAvailable("2.5.29.19") || ca.GetExtAvailable("basicConstraints"));
    EXPECT_TRUE(ca.GetExtAvailable("keyUsage"));
    EXPECT_TRUE(ee.GetExtAvailable("2.5.29.19") && ee.GetExtAvailable("X509v3 Basic Constraints"));
    // subjectKeyIdentifier stands first in the end entity; GetSKI still finds it.
    EXPECT_FALSE(ee.GetExtAvailable("subjectKeyIdentifier"));
    EXPECT_FALSE(ee.GetSKI().empty());
    EXPECT_FALSE(ee.GetExtAvailable("1.2.3.4") || ee.GetExtAvailable("no such name"));

    // Only a BOOLEAN holding FF counts as true.
    EXPECT_TRUE(ee.GetBoolExt("1.3.6.1.4.1.55555.1"));  // 01 01 FF
    EXPECT_FALSE(ee.GetBoolExt("1.3.6.1.4.1.55555.2")); // 01 01 01
    EXPECT_FALSE(ee.GetBoolExt("1.3.6.1.4.1.55555.3")); // 04 01 FF
    EXPECT_FALSE(odd.GetBoolExt("1.3.6.1.4.1.55555.4") || odd.GetBoolExt("1.3.6.1.4.1.55555.5"));
}

TEST(CertificateExtensions, ListsAndKeyIdentifiers)
{
    slCertificate ee = Load("ee-rsa"), ca = Load("ca"), odd = Load("odd-ext");
    EXPECT_EQ(ee.Get_SAN_DNS(), (Strings{"first.example", "second.example"}));
    EXPECT_EQ(ee.Get_AIA(), (Strings{"ocsp:http://ocsp.example/", "ca:http://ca.example/ca.cer"}));
    EXPECT_EQ(ee.Get_AIA_OCSP(), Strings{"http://ocsp.example/"});
    EXPECT_EQ(ee.Get_AIA_CAIssuers(), Strings{"http://ca.example/ca.cer"});
    EXPECT_EQ(ee.Get_CRL_Dp(), (Strings{"http://crl.example/a.crl", "ldap://ldap.example/cn=CRL",
                                        "http://crl2.example/b.crl"}));
    for (slCertificate* c : {&ca, &odd}) // absent or malformed
        EXPECT_TRUE(c->Get_SAN_DNS().empty() && c->Get_AIA().empty() && c->Get_CRL_Dp().empty());
    EXPECT_TRUE(ca.GetAKI().empty());

    // SKI: OCTET STRING 04 14 <id>, the id being the CA's SHA-1 key hash;
    // AKI: SEQUENCE { [0] <the same id> }.
    const Bytes ski = ca.GetSKI(), aki = ee.GetAKI();
    ASSERT_EQ(ski.size(), 22u);
    ASSERT_EQ(aki.size(), 24u);
    EXPECT_EQ(Bytes(ski.begin(), ski.begin() + 2), (Bytes{0x04, 0x14}));
    EXPECT_EQ(Bytes(ski.begin() + 2, ski.end()), ca.GetPubKeyHashBytes());
    EXPECT_EQ(Bytes(aki.begin(), aki.begin() + 4), (Bytes{0x30, 0x16, 0x80, 0x14}));
    EXPECT_EQ(Bytes(aki.begin() + 4, aki.end()), Bytes(ski.begin() + 2, ski.end()));
}
