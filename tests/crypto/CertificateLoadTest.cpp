// slCertificate: loading, copying, storing, logging and untrusted input.
#include "CryptoTestSupport.h"

#include <openssl/err.h>
#include <openssl/x509.h>

using namespace Korvex;
using namespace CryptoTest;

TEST(CertificateLoad, DerPemBase64AndFileFormsGiveTheSameCertificate)
{
    const Bytes der = ReadBytes(FixturePath("ee-rsa.der")), pemBytes = ReadBytes(FixturePath("ee-rsa.pem"));
    const std::string pem(pemBytes.begin(), pemBytes.end());
    // Plain base64 of the DER: the PEM body without its armour lines.
    const size_t bodyStart = pem.find('\n') + 1;
    const std::string body = pem.substr(bodyStart, pem.find("-----END") - bodyStart);

    slCertificate fromDer, fromPem, fromB64, roundTrip;
    ASSERT_TRUE(fromDer.LoadFromBuffer(der.data(), der.size()));
    ASSERT_TRUE(fromPem.LoadFromB64(pem));
    ASSERT_TRUE(fromB64.LoadFromB64(body));
    ASSERT_TRUE(roundTrip.LoadFromB64(fromDer.ToB64()));
    slCertificate fromPemFile = Load("ee-rsa", ".pem"), fromDerFile = Load("ee-rsa");
    for (slCertificate* c : {&fromDer, &fromPem, &fromB64, &fromPemFile, &fromDerFile, &roundTrip})
        EXPECT_EQ(c->ToBin(), der);
}

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
    EXPECT_FALSE(slCertificate().LoadFromFile(FixturePath("make-certs.sh"))); // neither PEM nor DER
    // The expected failures must not stay in OpenSSL's error queue for
    // whoever asks it next on this thread.
    EXPECT_EQ(ERR_peek_error(), 0ul);
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

    LogCapture log(SLCERT_SetDebugLoggingFunc);
    EXPECT_FALSE(slCertificate().LogCertificate("empty"));
    EXPECT_TRUE(cert.LogCertificate("Card"));
    SLCERT_LogMessage("dropped: no message hook");
    ASSERT_EQ(LogCapture::all().size(), 1u);
    EXPECT_EQ(LogCapture::all()[0].rfind("Card: -----BEGIN CERTIFICATE-----\n", 0), 0u);
    EXPECT_NE(LogCapture::all()[0].find("-----END CERTIFICATE-----"), std::string::npos);
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

TEST(CertificateLoad, TruncatedAndCorruptedInputNeverMisbehaves)
{
    for (const char* name : {"ca", "ee-rsa", "ee-ec", "odd-ext", "v1-self"}) {
        const Bytes der = ReadBytes(FixturePath(std::string(name) + ".der"));
        for (size_t cut = 0; cut < der.size(); cut += (cut < 64 ? 1 : 37))
            EXPECT_FALSE(slCertificate().LoadFromBuffer(der.data(), cut)) << name << " " << cut;
        // Whatever still decodes after a flipped byte must answer the queries
        // without reading out of bounds (the sanitizer build checks that).
        for (size_t i = 0; i < der.size() / 2; i += 3) {
            Bytes bad = der;
            bad[i] ^= 0xA5;
            slCertificate c;
            if (!c.LoadFromBuffer(bad))
                continue;
            unsigned short y, mo, d, h, mi, s;
            unsigned int len = 0;
            Bytes a, b;
            c.GetSubject(), c.GetIssuerSepByComa(), c.GetSubjectCN(), c.GetSubjectDER(nullptr, len);
            c.GetSerialNumberInt(), c.IsCaCert(), c.IsOcspSigner(), c.GetBoolExt("2.5.29.19");
            c.GetSKI(), c.GetAKI(), c.Get_SAN_DNS(), c.Get_AIA(), c.Get_CRL_Dp(), c.IsValid(0);
            c.ValidFrom(y, mo, d, h, mi, s), c.GetRsaPubKeyComponents(a, b), c.GetThumbprint();
            c.GetPubKeyHashHex();
        }
    }
}
