// Signing and verification on the card for every supported key and hash
// pair, each signature checked with OpenSSL outside the module too.
#include "tests/token/TokenTestSupport.h"

#include "crypto/Hash.h"

#include <optional>
#include "tests/support/TestCommon.h"

using namespace tokentest;
using Korvex::HashAlgorithm;

namespace {

using TokenSignTest = TokenTest;

const char* const kAcos = kCards[1].serial;  // RSA 1536 signature key, EC P-256 encryption key

Bytes bytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes certificateOf(Token& p11, bool signatureKey)
{
    unsigned char buffer[Token::CERT_BUFFER_SIZE];
    unsigned long length = sizeof(buffer);
    if (!p11.LoadSigningCertificate(signatureKey) || !p11.GetSigningCertificate(buffer, length))
        return {};
    return Bytes(buffer, buffer + length);
}

// signString into a 512-byte buffer; the signature, or nothing on failure.
std::optional<Bytes> signRaw(Token& p11, const Bytes& data, Korvex::SignKey& kind, bool signatureKey,
                             HashAlgorithm alg, size_t size = 0)
{
    unsigned char out[512];
    unsigned long length = sizeof(out);
    if (!p11.signString(data.data(), size != 0 ? size : data.size(), out, length, kind, signatureKey, alg))
        return std::nullopt;
    return Bytes(out, out + length);
}

TEST_F(TokenSignTest, EveryKeyAndHashPairGivesASignatureOpenSslAccepts)
{
    const struct {
        const char* serial;
        bool signatureKey;
        HashAlgorithm alg;
        const char* mdName;
        Korvex::SignKey keyKind;
    } cases[] = {
        {kAcos, true, Korvex::HashSha1, "SHA1", Korvex::SIGN_KEY_RSA},
        {kAcos, true, Korvex::HashRipemd160, "RIPEMD160", Korvex::SIGN_KEY_RSA},
        {kAcos, true, Korvex::HashSha256, "SHA256", Korvex::SIGN_KEY_RSA},
        {kAcos, true, Korvex::HashSha384, "SHA384", Korvex::SIGN_KEY_RSA},
        {kAcos, true, Korvex::HashSha512, "SHA512", Korvex::SIGN_KEY_RSA},
        {kAcos, false, Korvex::HashSha1, "SHA1", Korvex::SIGN_KEY_EC},
        {kAcos, false, Korvex::HashRipemd160, "RIPEMD160", Korvex::SIGN_KEY_EC},
        {kAcos, false, Korvex::HashSha256, "SHA256", Korvex::SIGN_KEY_EC},
        {kCards[6].serial, true, Korvex::HashSha256, "SHA256", Korvex::SIGN_KEY_RSA},  // RSA 2048
        {kCards[3].serial, true, Korvex::HashSha1, "SHA1", Korvex::SIGN_KEY_EC},       // P-192
    };
    const Bytes text = bytes("Das ist ein Test!");
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.serial) + (c.signatureKey ? " SIG " : " ENC ") + c.mdName);
        ASSERT_TRUE(openCard(c.serial));
        Bytes certificate = certificateOf(*p11, c.signatureKey);
        ASSERT_FALSE(certificate.empty());
        SetPinAnswers({c.signatureKey ? "123456" : "1234"});
        Korvex::SignKey kind = c.keyKind == Korvex::SIGN_KEY_RSA ? Korvex::SIGN_KEY_EC : Korvex::SIGN_KEY_RSA;
        std::optional<Bytes> signature = signRaw(*p11, text, kind, c.signatureKey, c.alg);
        ASSERT_TRUE(signature);
        EXPECT_EQ(kind, c.keyKind);
        EXPECT_TRUE(verifyWithCertificate(certificate, c.mdName, text, *signature));
        EXPECT_TRUE(Log::hasMessage("PKCS11 Anzeige: Bitte PIN eingeben"));
        p11->CloseSession();
    }
    EXPECT_TRUE(Log::errors().empty());
}

TEST_F(TokenSignTest, SignAndVerifyAFinishedDigestOnTheCard)
{
    ASSERT_TRUE(openCard(kAcos));
    Bytes digest;
    ASSERT_TRUE(Korvex::Hash(bytes("Das ist ein Test!"), digest, Korvex::HashSha256, false));

    for (bool signatureKey : {true, false}) {
        const std::string suffix = signatureKey ? "SIG" : "EKEY";
        Bytes certificate = certificateOf(*p11, signatureKey);
        SetPinAnswers({signatureKey ? "123456" : "1234"});
        Bytes signature = {0xAA};  // appended to, not replaced
        ASSERT_TRUE(p11->Sign("SK.CH." + suffix, digest, signature, Korvex::HashAlreadyHashed));
        ASSERT_EQ(signature.front(), 0xAA);
        signature.erase(signature.begin());
        EXPECT_TRUE(verifyWithCertificate(certificate, nullptr, digest, signature));
        EXPECT_TRUE(p11->Verify("PK.CH." + suffix, digest, signature, Korvex::HashAlreadyHashed));

        signature[signature.size() / 2] ^= 0x01;
        EXPECT_FALSE(p11->Verify("PK.CH." + suffix, digest, signature, Korvex::HashAlreadyHashed));
        EXPECT_EQ(Log::errors().back(), "PKCS11 Proc_C_Verify ERROR0xc0");
    }

    // The short Verify form checks with SHA-1 over the data itself.
    const Bytes text = bytes("Kurzform");
    SetPinAnswers({"123456"});
    Korvex::SignKey kind = Korvex::SIGN_KEY_RSA;
    std::optional<Bytes> signature = signRaw(*p11, text, kind, true, Korvex::HashSha1);
    ASSERT_TRUE(signature);
    EXPECT_TRUE(p11->Verify("PK.CH.SIG", text, *signature));
}

TEST_F(TokenSignTest, InputChecksComeBeforeTheCardAndCardFailuresAreLogged)
{
    unsigned char out[512];
    unsigned long length = sizeof(out);
    Korvex::SignKey kind = Korvex::SIGN_KEY_RSA;
    const unsigned char one = 1;
    EXPECT_FALSE(p11->signString(&one, 0, out, length, kind, true, Korvex::HashSha256));
    EXPECT_FALSE(p11->signString(nullptr, 1, out, length, kind, true, Korvex::HashSha256));
    EXPECT_FALSE(p11->signString(&one, 1, nullptr, length, kind, true, Korvex::HashSha256));
    EXPECT_FALSE(p11->signString(&one, 1, out, length, kind, true, Korvex::HashSha256));
    EXPECT_EQ(Log::errors(), (Lines{"PKCS11 insize == 0", "PKCS11 input == NULL", "PKCS11 output == NULL",
                                    "PKCS11 Session nicht offen"}));

    ASSERT_TRUE(openCard(kAcos));
    Log::clear();
    Bytes big(2049, 'x');
    EXPECT_FALSE(signRaw(*p11, big, kind, true, Korvex::HashSha256));
    EXPECT_FALSE(signRaw(*p11, big, kind, true, Korvex::HashMd5, 10));
    EXPECT_EQ(Log::errors(), (Lines{"Data size too long: 2049 bytes", "PKCS11 Unbekannter Signaturalgorihtmus"}));
    SetPinAnswers({"123456"});
    EXPECT_TRUE(signRaw(*p11, big, kind, true, Korvex::HashSha256, 2048));

    // Then the card's failures, each logged with its code.
    Log::clear();
    const Bytes text = bytes("abc");
    SetPinAnswers({"CANCEL"});
    EXPECT_FALSE(signRaw(*p11, text, kind, true, Korvex::HashSha1));
    Sim::SetFault("C_SignInit", kAcos, CKR_KEY_FUNCTION_NOT_PERMITTED, 1);
    EXPECT_FALSE(signRaw(*p11, text, kind, true, Korvex::HashSha1));
    Sim::SetFault("C_FindObjectsInit", kAcos, CKR_DEVICE_ERROR, 1);
    EXPECT_FALSE(signRaw(*p11, text, kind, true, Korvex::HashSha1));
    Bytes signature;
    EXPECT_FALSE(p11->Sign("SK.CH.EKEY", text, signature, Korvex::HashSha256));  // EC needs a digest
    Sim::SetFault("C_Sign", kAcos, CKR_DEVICE_MEMORY, 1);
    EXPECT_FALSE(p11->Sign("SK.CH.SIG", text, signature, Korvex::HashSha1));
    EXPECT_FALSE(p11->Sign("SK.CH.NONE", text, signature, Korvex::HashSha1));
    EXPECT_TRUE(signature.empty());
    EXPECT_EQ(Log::errors(), (Lines{"PKCS11 Proc_C_Sign ERROR0x50", "PKCS11 Proc_C_SignInit ERROR0x68",
                                    "PKCS11 Proc_C_FindObjectsInit ERROR0x30",
                                    "PKCS11 Unbekannter Signaturalgorihtmus", "PKCS11 Proc_C_Sign0x31"}));

    Log::clear();
    Sim::SetFault("C_VerifyInit", kAcos, CKR_KEY_TYPE_INCONSISTENT, 1);
    EXPECT_FALSE(p11->Verify("PK.CH.SIG", text, text, Korvex::HashSha1));
    EXPECT_EQ(Log::errors(), Lines{"PKCS11 Proc_C_VerifyInit0x63"});

    // A signature length beyond the buffer is refused, not copied. (A fresh
    // session: the failed size query above left its operation open.)
    p11->CloseSession();
    ASSERT_TRUE(openCard(kAcos));
    Sim::SetMalformed("C_Sign", kAcos, VSIM_ALWAYS);
    SetPinAnswers({"123456", "123456"});
    EXPECT_FALSE(signRaw(*p11, text, kind, true, Korvex::HashSha1));
    EXPECT_EQ(Log::errors().back(), "PKCS11 buffer size error");
    EXPECT_FALSE(p11->Sign("SK.CH.SIG", text, signature, Korvex::HashSha1));
    EXPECT_TRUE(signature.empty());
}

TEST_F(TokenSignTest, KeyKindsLabelsAndHashChoice)
{
    ASSERT_TRUE(openCard(kAcos));
    Korvex::SignKey kind = Korvex::SIGN_KEY_EC;
    EXPECT_TRUE(p11->GetSignKeyType(kind, true));
    EXPECT_EQ(kind, Korvex::SIGN_KEY_RSA);
    EXPECT_TRUE(p11->GetSignKeyType(kind, false));
    EXPECT_EQ(kind, Korvex::SIGN_KEY_EC);
    std::string label;
    EXPECT_TRUE(p11->findPrivateKeyFromID(std::string(1, '\x02'), label));
    EXPECT_EQ(label, "SK.CH.EKEY");
    EXPECT_FALSE(p11->findPrivateKeyFromID("none", label));

    // The text form signs with the signature key and the card's hash choice.
    Bytes certificate = certificateOf(*p11, true);
    SetPinAnswers({"123456"});
    unsigned char out[512];
    unsigned long length = sizeof(out);
    ASSERT_TRUE(p11->signString("Hallo", out, length));
    EXPECT_TRUE(verifyWithCertificate(certificate, "RIPEMD160", bytes("Hallo"),
                                      Bytes(out, out + length)));

    // An unpersonalised card has no keys: the kind stays as it was.
    ASSERT_TRUE(openCard(kBlankSerial));
    kind = Korvex::SIGN_KEY_EC;
    EXPECT_TRUE(p11->GetSignKeyType(kind, true));
    EXPECT_EQ(kind, Korvex::SIGN_KEY_EC);
    EXPECT_FALSE(signRaw(*p11, bytes("abcd"), kind, true, Korvex::HashSha1));
    EXPECT_TRUE(Log::hasMessage("PKCS11 Key NOT Found"));
}

} // namespace
