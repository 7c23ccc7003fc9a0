// Signing like a card: the module's own SHA-384 and SHA-512 digesting, and
// only the real signature asks the PIN (size queries, a context-specific
// login, multi-part signing, cancel, wrong and locked PINs).
#include "SimHarness.h"
#include "tests/support/SignatureCheck.h"

#include "tests/support/TestCommon.h"

using namespace SimTesting;

namespace {

const Bytes kMessage = {'G', 'r', 0xC3, 0xBC, 0xC3, 0x9F, 'e', ' ', 'a', 'u', 's', ' ', 'W', 'i', 'e', 'n'};

class SimCrypto : public SimTest {
protected:
    Bytes certificate(CK_SESSION_HANDLE session, const std::string& suffix) {
        return readAttribute(session, findObject(session, CKO_CERTIFICATE, "C.CH." + suffix), CKA_VALUE);
    }
};

// The token layer hashes before it signs and the window offers neither
// hash: the module's own SHA-384 and SHA-512 digesting is checked here only.
TEST_F(SimCrypto, Sha384AndSha512SignaturesVerifyWithTheCertificate) {
    CK_SESSION_HANDLE session = openSession(1);
    CK_OBJECT_HANDLE key = findObject(session, CKO_PRIVATE_KEY, "SK.CH.SIG");
    Bytes data = kMessage;
    for (const auto& [type, digest] :
         {std::pair{CKM_SHA384_RSA_PKCS, "SHA384"}, std::pair{CKM_SHA512_RSA_PKCS, "SHA512"}}) {
        CK_MECHANISM mechanism = {type, nullptr, 0};
        SetPinAnswers({"123456"});
        ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
        Bytes signature(256);
        CK_ULONG length = signature.size();
        ASSERT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_OK);
        signature.resize(length);
        EXPECT_TRUE(TestSupport::verifyWithCertificate(certificate(session, "SIG"), digest, data, signature)) << digest;
    }
}

TEST_F(SimCrypto, SigningAsksThePinOnlyForTheRealSignature) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = findObject(session, CKO_PRIVATE_KEY, "SK.CH.SIG");
    CK_MECHANISM mechanism = {CKM_SHA256_RSA_PKCS, nullptr, 0};
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
    EXPECT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OPERATION_ACTIVE);
    const unsigned long dialogs = Sim::PinDialogCount();
    unsigned char small[16];
    CK_ULONG length = sizeof small;
    Bytes data = kMessage;
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), small, &length), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 192u);
    EXPECT_EQ(Sim::PinDialogCount(), dialogs);

    // A context-specific login gives the PIN beforehand; C_Sign asks nothing.
    CK_UTF8CHAR pin[] = "123456";
    ASSERT_EQ(p11->C_Login(session, CKU_CONTEXT_SPECIFIC, pin, 6), CKR_OK);
    Bytes signature(length);
    ASSERT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_EQ(Sim::PinDialogCount(), dialogs);

    // Multi-part signing asks at the end; a cancel ends the operation.
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
    ASSERT_EQ(p11->C_SignUpdate(session, data.data(), 4), CKR_OK);
    ASSERT_EQ(p11->C_SignUpdate(session, data.data() + 4, data.size() - 4), CKR_OK);
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_OPERATION_ACTIVE);
    SetPinAnswers({"CANCEL"});
    EXPECT_EQ(p11->C_SignFinal(session, signature.data(), &length), CKR_FUNCTION_CANCELED);
    EXPECT_EQ(p11->C_SignFinal(session, signature.data(), &length), CKR_OPERATION_NOT_INITIALIZED);
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
    ASSERT_EQ(p11->C_SignUpdate(session, data.data(), data.size()), CKR_OK);
    SetPinAnswers({"123456"});
    length = signature.size();
    ASSERT_EQ(p11->C_SignFinal(session, signature.data(), &length), CKR_OK);
    EXPECT_TRUE(TestSupport::verifyWithCertificate(certificate(session, "SIG"), "SHA256", data, signature));
    CK_OBJECT_HANDLE verifier = findObject(session, CKO_PUBLIC_KEY, "PK.CH.SIG");
    ASSERT_EQ(p11->C_VerifyInit(session, &mechanism, verifier), CKR_OK);
    EXPECT_EQ(p11->C_Verify(session, data.data(), data.size(), signature.data(), length - 1), CKR_SIGNATURE_LEN_RANGE);

    // A wrong PIN costs a try and ends the operation; a locked PIN asks nothing.
    SetPinAnswers({"000000", "000000", "000000"});
    for (int attempt = 0; attempt < 3; ++attempt) {
        ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
        EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_PIN_INCORRECT);
    }
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
    const unsigned long beforeLocked = Sim::PinDialogCount();
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_PIN_LOCKED);
    EXPECT_EQ(Sim::PinDialogCount(), beforeLocked);
}

} // namespace
