// slCertificate: loading, copying, storing and logging, and untrusted input.
#include "crypto/slCertificate.h"
#include "CryptoTestSupport.h"

#include <openssl/x509.h>

#include <cstdio>
#include <unistd.h>

using namespace Korvex;
using namespace CryptoTest;

namespace {

const char* const kFixtures[] = {"ca", "ee-rsa", "ee-ec", "ku-ca", "odd-ext", "v1-self"};

slCertificate Load(const std::string& name)
{
    slCertificate cert;
    EXPECT_TRUE(cert.LoadFromBuffer(ReadBytes(FixturePath(name + ".der")))) << name;
    return cert;
}

// Every query on a certificate, for inputs that must merely not misbehave.
void RunEveryQuery(slCertificate& cert)
{
    unsigned short y, mo, d, h, mi, s;
    unsigned int len = 0;
    unsigned char* bytes = nullptr;
    unsigned long count = 0;
    std::vector<unsigned char> a, b;
    cert.GetSubject(); cert.GetIssuer(); cert.GetIssuerSepByComa(); cert.GetSubjectCN();
    cert.GetSubjectWithFormat(XN_FLAG_RFC2253); cert.GetIssuerNameHash();
    cert.GetSubjectDER(nullptr, len); cert.GetSerialNumber(); cert.GetSerialNumberInt();
    cert.IsCaCert(); cert.IsSelfSigned(); cert.IsOcspSigner();
    cert.GetExtAvailable("2.5.29.19"); cert.GetBoolExt("1.3.6.1.4.1.55555.1");
    if (cert.GetX509()) {
        cert.GetSKI(); cert.GetAKI(); cert.Get_SAN_DNS(); cert.Get_AIA(); cert.Get_CRL_Dp();
        cert.IsValid(0);
    }
    cert.ValidFrom(y, mo, d, h, mi, s); cert.ValidTo();
    cert.GetKeyAlgorithm(); cert.GetRsaPubKeyComponents(a, b); cert.GetPubKeyHashHex();
    if (cert.GetPublicKeyValue(&bytes, &count))
        delete[] bytes;
    cert.GetThumbprint(); cert.ToBin(); cert.ToB64();
}

} // namespace

TEST(CertificateLoad, DerPemBase64AndFileFormsGiveTheSameCertificate)
{
    const std::vector<unsigned char> der = ReadBytes(FixturePath("ee-rsa.der"));
    const std::string pem = ReadText(FixturePath("ee-rsa.pem"));
    // Plain base64 of the DER: the PEM body without its armour lines.
    std::string body = pem.substr(pem.find('\n') + 1);
    body = body.substr(0, body.find("-----END"));

    slCertificate fromDer, fromPem, fromB64, fromPemFile, fromDerFile;
    ASSERT_TRUE(fromDer.LoadFromBuffer(der.data(), der.size()));
    ASSERT_TRUE(fromPem.LoadFromB64(pem));
    ASSERT_TRUE(fromB64.LoadFromB64(body));
    ASSERT_TRUE(fromPemFile.LoadFromFile(FixturePath("ee-rsa.pem")));
    ASSERT_TRUE(fromDerFile.LoadFromFile(FixturePath("ee-rsa.der")));
    for (slCertificate* c : {&fromDer, &fromPem, &fromB64, &fromPemFile, &fromDerFile})
        EXPECT_EQ(c->ToBin(), der);

    slCertificate roundTrip;
    ASSERT_TRUE(roundTrip.LoadFromB64(fromDer.ToB64()));
    EXPECT_EQ(roundTrip.ToBin(), der);
}

TEST(CertificateLoad, MissingFileKeepsWhatWasHeld)
{
    slCertificate empty;
    EXPECT_FALSE(empty.LoadFromFile(FixturePath("no-such.pem")));
    slCertificate held = Load("ca");
    X509* before = held.GetX509();
    EXPECT_TRUE(held.LoadFromFile(FixturePath("no-such.pem")));
    EXPECT_EQ(held.GetX509(), before);
}

TEST(CertificateLoad, FailedBufferLoadOverwritesWithoutFreeing)
{
    slCertificate cert = Load("ca");
    X509* old = cert.GetX509();
    const unsigned char junk[] = {0x30, 0x03, 0x02, 0x01, 0x01};
    EXPECT_FALSE(cert.LoadFromBuffer(junk, sizeof(junk)));
    EXPECT_EQ(cert.GetX509(), nullptr);
    // Still ours to free: the object let go of it without releasing it.
    EXPECT_EQ(i2d_X509(old, nullptr), static_cast<int>(ReadBytes(FixturePath("ca.der")).size()));
    X509_free(old);
    EXPECT_FALSE(cert.LoadFromBuffer(nullptr, 10));
    EXPECT_FALSE(cert.LoadFromBuffer(std::vector<unsigned char>()));
    EXPECT_FALSE(cert.LoadFromB64(""));
    EXPECT_FALSE(cert.LoadFromB64("not base64 at all"));
}

TEST(CertificateLoad, CopiesHoldTheirOwnDuplicateAndCompareByIdentity)
{
    slCertificate original = Load("ee-ec");
    slCertificate copy(original);
    EXPECT_NE(copy.GetX509(), original.GetX509());
    EXPECT_FALSE(copy == original);
    EXPECT_EQ(copy.ToBin(), original.ToBin());
    EXPECT_TRUE(slCertificate() == slCertificate());
    EXPECT_TRUE(original == original);

    slCertificate assigned;
    assigned = original;
    EXPECT_EQ(assigned.ToBin(), original.ToBin());
    X509* mine = assigned.GetX509();
    assigned = assigned; // self-assignment keeps the pointer
    EXPECT_EQ(assigned.GetX509(), mine);

    slCertificate fromX509(original.GetX509());
    EXPECT_NE(fromX509.GetX509(), original.GetX509());
    X509* ownCopy = original.GetX509Copy();
    EXPECT_TRUE(fromX509.LoadFromX509(ownCopy)); // frees the previous one
    EXPECT_NE(fromX509.GetX509(), ownCopy);
    X509_free(ownCopy);
    EXPECT_EQ(fromX509.ToBin(), original.ToBin());
    EXPECT_FALSE(fromX509.LoadFromX509(nullptr));
    EXPECT_EQ(myX509_duplicate(nullptr), nullptr);
}

TEST(CertificateLoad, SaveCertWritesPemThatLoadsAgain)
{
    const std::string dir = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    const std::string path = dir + "/crypto-save-" + std::to_string(getpid()) + ".pem";
    slCertificate cert = Load("v1-self");
    ASSERT_TRUE(cert.SaveCert(path));
    EXPECT_EQ(ReadText(path).rfind("-----BEGIN CERTIFICATE-----", 0), 0u);
    slCertificate again;
    ASSERT_TRUE(again.LoadFromFile(path));
    EXPECT_EQ(again.ToBin(), cert.ToBin());
    std::remove(path.c_str());

    EXPECT_FALSE(slCertificate().SaveCert(path));
    EXPECT_FALSE(cert.SaveCert(dir + "/no-such-dir/x.pem"));
}

TEST(CertificateLoad, LogCertificateSendsPemToDebugHook)
{
    LogCapture::Lines().clear();
    SLCERT_SetDebugLoggingFunc(LogCapture::Hook);
    EXPECT_FALSE(slCertificate().LogCertificate("empty"));
    EXPECT_TRUE(LogCapture::Lines().empty());

    slCertificate cert = Load("ca");
    EXPECT_TRUE(cert.LogCertificate("Card"));
    ASSERT_EQ(LogCapture::Lines().size(), 1u);
    EXPECT_EQ(LogCapture::Lines()[0].rfind("Card: -----BEGIN CERTIFICATE-----\n", 0), 0u);
    EXPECT_NE(LogCapture::Lines()[0].find("-----END CERTIFICATE-----"), std::string::npos);

    SLCERT_SetErrorLoggingFunc(LogCapture::Hook);
    SLCERT_LogError("e");
    SLCERT_LogMessage("dropped without a hook");
    EXPECT_EQ(LogCapture::Lines().back(), "e");
    EXPECT_EQ(LogCapture::Lines().size(), 2u);
    SLCERT_SetDebugLoggingFunc(nullptr);
    SLCERT_SetErrorLoggingFunc(nullptr);
}

TEST(CertificateLoad, EmptyObjectAnswersEveryQueryEmpty)
{
    slCertificate empty;
    for (const std::string& text :
         {empty.GetSubject(), empty.GetIssuer(), empty.GetIssuerSepByComa(), empty.GetIssuerCN(),
          empty.GetSubjectWithFormat(0), empty.GetSubjectNameHash(), empty.GetSerialNumber(),
          empty.ValidFrom(), empty.ValidTo(), empty.GetPubKeyHashHex(), empty.GetPubKeyHashB64(),
          empty.ToB64()})
        EXPECT_EQ(text, "");
    EXPECT_TRUE(empty.ToBin().empty());
    EXPECT_TRUE(empty.GetPubKeyHashBytes().empty());
    EXPECT_TRUE(empty.GetThumbprint().empty());
    EXPECT_EQ(empty.GetSerialNumberInt(), 0);
    for (bool flag : {empty.IsCaCert(), empty.IsSelfSigned(), empty.IsOcspSigner(), empty.IsRsaKey(),
                      empty.IsEcdsaKey(), empty.GetExtAvailable("2.5.29.19"),
                      empty.GetBoolExt("1.3.6.1.4.1.55555.1")})
        EXPECT_FALSE(flag);
    unsigned int len = 7;
    EXPECT_FALSE(empty.GetSubjectDER(nullptr, len));
    EXPECT_FALSE(empty.GetSerialNumberDER(nullptr, len));
    EXPECT_EQ(len, 7u);
    std::vector<unsigned char> digest = {1};
    EXPECT_FALSE(empty.GetThumbprint(digest, HashSha1));
    EXPECT_EQ(digest, std::vector<unsigned char>{1});
}

TEST(CertificateLoad, TruncatedAndCorruptedInputNeverMisbehaves)
{
    for (const char* name : kFixtures) {
        const std::vector<unsigned char> der = ReadBytes(FixturePath(std::string(name) + ".der"));
        for (size_t cut = 0; cut < der.size(); cut += (cut < 64 ? 1 : 37)) {
            slCertificate cert;
            EXPECT_FALSE(cert.LoadFromBuffer(der.data(), cut)) << name << " cut at " << cut;
        }
        // Flip each byte of the front half in turn; whatever still decodes
        // must answer every query without reading out of bounds.
        for (size_t i = 0; i < der.size() / 2; i += 3) {
            std::vector<unsigned char> bad = der;
            bad[i] ^= 0xA5;
            slCertificate cert;
            cert.LoadFromBuffer(bad);
            RunEveryQuery(cert);
        }
    }
    slCertificate empty;
    RunEveryQuery(empty);
}
