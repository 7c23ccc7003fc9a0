// Reading the card's certificates and the texts the token layer keeps from
// the last one read.
#include "tests/token/TokenTestSupport.h"

#include "crypto/Hash.h"
#include "crypto/slCertificate.h"
#include "formats/PublicKey.h"

using namespace tokentest;

namespace {

using TokenCertTest = TokenTest;

const char* const kAcos = kCards[1].serial;  // holder "Test Karte2"

TEST_F(TokenCertTest, SignatureCertificateAndItsTexts)
{
    ASSERT_TRUE(openCard(kAcos));
    ASSERT_TRUE(p11->LoadSigningCertificate(true));
    for (const char* line : {"Objects Found Final Fertig", "Label: C.CH.SIG", "PKCS11 Key Found",
                             "OpenSSL Load Certificate", "ISSUER"})
        EXPECT_TRUE(Log::hasMessage(line)) << line;

    unsigned char buffer[Token::CERT_BUFFER_SIZE];
    unsigned long length = 10;
    EXPECT_FALSE(p11->GetSigningCertificate(buffer, length));  // too small
    length = sizeof(buffer);
    ASSERT_TRUE(p11->GetSigningCertificate(buffer, length));
    Korvex::slCertificate cert;
    ASSERT_TRUE(cert.LoadFromBuffer(buffer, length));

    EXPECT_EQ(cert.GetSubjectCN(), "Test Karte2");
    EXPECT_EQ(p11->GetSubject(), cert.GetSubject());
    EXPECT_EQ(p11->GetSubjectCN(), "CN=Test Karte2");
    EXPECT_EQ(p11->GetIssuer(), cert.GetIssuerSepByComa());
    EXPECT_EQ(p11->GetSerialNumber(), cert.GetSerialNumber());
    EXPECT_EQ(p11->GetSerialNumberInt(), cert.GetSerialNumberInt());

    Bytes sha1;
    ASSERT_TRUE(Korvex::Hash(Bytes(buffer, buffer + length), sha1, Korvex::HashSha1, false));
    Korvex::HashAlgorithm alg = Korvex::HashNone;
    unsigned char fingerprint[20];
    unsigned long fingerprintLength = sizeof(fingerprint);
    ASSERT_TRUE(p11->GetFingerprint(alg, fingerprint, fingerprintLength));
    EXPECT_EQ(alg, Korvex::HashSha1);
    EXPECT_EQ(Bytes(fingerprint, fingerprint + fingerprintLength), sha1);

    ASSERT_NE(p11->GetParsedPublicKey(), nullptr);
    EXPECT_EQ(p11->GetParsedPublicKey()->keyType, 0);
    EXPECT_EQ(p11->GetParsedPublicKey()->modulusLen, 192);  // RSA 1536

    // The encryption certificate replaces the kept texts.
    ASSERT_TRUE(p11->LoadSigningCertificate(false));
    ASSERT_NE(p11->GetParsedPublicKey(), nullptr);
    EXPECT_EQ(p11->GetParsedPublicKey()->keyType, 1);
    EXPECT_EQ(p11->GetParsedPublicKey()->curve, "1.2.840.10045.3.1.7");
    unsigned char key[128];
    unsigned long keyLength = sizeof(key);
    ASSERT_TRUE(p11->GetPublicKeyData(key, keyLength));
    EXPECT_EQ(keyLength, 65u);
    EXPECT_EQ(key[0], 0x04);
    ASSERT_TRUE(p11->GetFingerprint(alg, fingerprint, fingerprintLength));
    EXPECT_NE(Bytes(fingerprint, fingerprint + fingerprintLength), sha1);

    // Loading the first one again (now known to the object) restores its texts.
    ASSERT_TRUE(p11->LoadSigningCertificate(true));
    ASSERT_TRUE(p11->GetFingerprint(alg, fingerprint, fingerprintLength));
    EXPECT_EQ(Bytes(fingerprint, fingerprint + fingerprintLength), sha1);
    EXPECT_EQ(p11->GetParsedPublicKey()->keyType, 0);
    EXPECT_TRUE(Log::errors().empty());
}

TEST_F(TokenCertTest, MissingCertificateSessionOrOversizedValueFail)
{
    EXPECT_FALSE(p11->LoadSigningCertificate(true));
    EXPECT_EQ(Log::errors(), Lines{"PKCS11 Session nicht offen"});

    Log::clear();
    ASSERT_TRUE(openCard(kBlankSerial));
    EXPECT_FALSE(p11->LoadSigningCertificate(true));
    EXPECT_EQ(Log::errors(), Lines{"Key not found !!!"});
    unsigned char buffer[Token::CERT_BUFFER_SIZE];
    unsigned long length = sizeof(buffer);
    EXPECT_FALSE(p11->GetSigningCertificate(buffer, length));

    ASSERT_TRUE(openCard(kAcos));
    const Lines tooLarge{"PKCS11 attributes[1].ulValueLen zu groß für internen Buffer"};
    const std::pair<const char*, Lines> faults[] = {
        {"C_FindObjectsInit=CKR_DEVICE_ERROR*1", {"PKCS11 Proc_C_FindObjectsInit0x30", "PKCS11 FindObjects ERROR"}},
        // Call 1 reads the first certificate's label, call 2 its value.
        {"C_GetAttributeValue#2=malformed*1", tooLarge},
        // The usual answer to a value that does not fit: the module says so.
        {"C_GetAttributeValue#2=CKR_BUFFER_TOO_SMALL*1", tooLarge},
        // An inflated label is not trusted either: that object is passed over.
        {"C_GetAttributeValue=malformed*1", {"PKCS11 Proc_C_GetAttributeValue ERROR0x150", "Key not found !!!"}},
    };
    for (const auto& [fault, errors] : faults) {
        Log::clear();
        Sim::AddFaults(fault);
        EXPECT_FALSE(p11->LoadSigningCertificate(true)) << fault;
        EXPECT_EQ(Log::errors(), errors) << fault;
    }
}

TEST_F(TokenCertTest, CertificatesOfEveryCard)
{
    Korvex::slCertificate cert;
    ASSERT_TRUE(p11->GetCertificate(2, true, cert));
    EXPECT_EQ(cert.GetSubjectCN(), "Test Karte3");
    EXPECT_EQ(p11->GetSessionHandle(), 0u);
    EXPECT_FALSE(p11->GetCertificate(kListedCards, true, cert));

    ASSERT_TRUE(p11->LoadAllCerts());
    size_t count = 0;
    for (auto it = p11->CertVectorBegin(); it != p11->CertVectorEnd(); ++it)
        count += (*it)->GetSubjectCN().empty() ? 0 : 1;
    EXPECT_EQ(count, 2 * (kListedCards - 1));  // two per personalised card
    p11->ClearCertVector();
    EXPECT_EQ(p11->CertVectorBegin(), p11->CertVectorEnd());

    ASSERT_TRUE(openCard(kAcos));
    EXPECT_NE(p11->getSigningCertificateHandle(false), CK_INVALID_HANDLE);
}

} // namespace
