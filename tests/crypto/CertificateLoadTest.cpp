// slCertificate: loading, copying, storing and logging (untrusted input is
// the fuzz targets' part).
#include "CryptoTestSupport.h"

#include <openssl/x509.h>

#include <unistd.h>

using namespace Korvex;
using namespace CryptoTest;

TEST(CertificateLoad, FailedLoadsOverwriteWithoutFreeingButMissingFileKeeps)
{
    slCertificate cert = Load("ca");
    X509* held = cert.GetX509();
    EXPECT_TRUE(cert.LoadFromFile(FixturePath("no-such.pem")));
    EXPECT_EQ(cert.GetX509(), held);
    EXPECT_FALSE(slCertificate().LoadFromFile(FixturePath("no-such.pem")));

    const unsigned char junk[] = {0x30, 0x03, 0x02, 0x01, 0x01};
    EXPECT_FALSE(cert.LoadFromBuffer(junk, sizeof(junk)));
    EXPECT_EQ(cert.GetX509(), nullptr);
    EXPECT_GT(i2d_X509(held, nullptr), 0); // let go of, not freed: still ours
    X509_free(held);
    EXPECT_FALSE(cert.LoadFromBuffer(nullptr, 10) || cert.LoadFromB64("not base64 at all"));
}

TEST(CertificateLoad, CopiesHoldTheirOwnDuplicateAndCompareByIdentity)
{
    slCertificate original = Load("ee-ec");
    slCertificate copy(original), assigned;
    assigned = original;
    for (slCertificate* c : {&copy, &assigned}) {
        EXPECT_NE(c->GetX509(), original.GetX509());
        EXPECT_FALSE(*c == original);
        EXPECT_EQ(c->ToBin(), original.ToBin());
    }
    EXPECT_TRUE(slCertificate() == slCertificate());
    X509* mine = assigned.GetX509();
    assigned = assigned;
    EXPECT_EQ(assigned.GetX509(), mine);

    X509* external = original.GetX509Copy();
    EXPECT_TRUE(copy.LoadFromX509(external)); // frees what copy held
    EXPECT_NE(copy.GetX509(), external);
    X509_free(external);
    EXPECT_EQ(copy.ToBin(), original.ToBin());
    EXPECT_FALSE(copy.LoadFromX509(nullptr));
}

TEST(CertificateLoad, SaveAndLogWritePem)
{
    const std::string dir = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp";
    const std::string path = dir + "/crypto-save-" + std::to_string(getpid()) + ".pem";
    slCertificate cert = Load("v1-self"), again;
    ASSERT_TRUE(cert.SaveCert(path));
    ASSERT_TRUE(again.LoadFromFile(path));
    EXPECT_EQ(again.ToBin(), cert.ToBin());
    std::remove(path.c_str());
    EXPECT_FALSE(slCertificate().SaveCert(path) || cert.SaveCert(dir + "/no-such-dir/x.pem"));

    HookGuard<decltype(&SLCERT_SetDebugLoggingFunc)> hook(SLCERT_SetDebugLoggingFunc);
    EXPECT_FALSE(slCertificate().LogCertificate("empty"));
    EXPECT_TRUE(cert.LogCertificate("Card"));
    SLCERT_LogMessage("dropped: no message hook");
    ASSERT_EQ(LogCapture::Lines().size(), 1u);
    EXPECT_EQ(LogCapture::Lines()[0].rfind("Card: -----BEGIN CERTIFICATE-----\n", 0), 0u);
    EXPECT_NE(LogCapture::Lines()[0].find("-----END CERTIFICATE-----"), std::string::npos);
}

TEST(CertificateLoad, EmptyObjectAnswersEveryQueryEmpty)
{
    slCertificate e;
    for (const std::string& text : {e.GetSubject(), e.GetIssuerSepByComa(), e.GetIssuerCN(),
                                    e.GetSubjectWithFormat(0), e.GetSubjectNameHash(),
                                    e.GetSerialNumber(), e.ValidFrom(), e.GetPubKeyHashHex(),
                                    e.GetPubKeyHashB64(), e.ToB64()})
        EXPECT_EQ(text, "");
    EXPECT_TRUE(e.ToBin().empty() && e.GetPubKeyHashBytes().empty() && e.GetThumbprint().empty());
    EXPECT_EQ(e.GetSerialNumberInt(), 0);
    EXPECT_FALSE(e.IsCaCert() || e.IsSelfSigned() || e.IsOcspSigner() || e.IsRsaKey() ||
                 e.IsEcdsaKey() || e.GetExtAvailable("keyUsage") || e.GetBoolExt("keyUsage"));
    unsigned int len = 7;
    EXPECT_FALSE(e.GetSubjectDER(nullptr, len) || e.GetSerialNumberDER(nullptr, len));
    EXPECT_EQ(len, 7u);
}
