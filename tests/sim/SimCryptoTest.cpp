// Signing like a card: the module's own SHA-384 and SHA-512 digesting, and a
// wrong PIN given to the signature costs a try.
#include "SimHarness.h"
#include "tests/support/SignatureCheck.h"

#include "tests/support/TestCommon.h"

using namespace SimTesting;

namespace {

const Bytes kMessage = {'G', 'r', 0xC3, 0xBC, 0xC3, 0x9F, 'e', ' ', 'a', 'u', 's', ' ', 'W', 'i', 'e', 'n'};

using SimCrypto = SimTest;

// The token layer hashes before it signs and the window offers neither
// hash: the module's own SHA-384 and SHA-512 digesting is checked here only.
TEST_F(SimCrypto, Sha384AndSha512SignaturesVerifyWithTheCertificate) {
    CK_SESSION_HANDLE session = openSession(1);
    CK_OBJECT_HANDLE key = findObject(session, CKO_PRIVATE_KEY, "SK.CH.SIG");
    const Bytes certificate = readAttribute(session, findObject(session, CKO_CERTIFICATE, "C.CH.SIG"), CKA_VALUE);
    Bytes data = kMessage;
    Bytes signature(256);
    CK_ULONG length = 0;
    for (const auto& [type, digest] :
         {std::pair{CKM_SHA384_RSA_PKCS, "SHA384"}, std::pair{CKM_SHA512_RSA_PKCS, "SHA512"}}) {
        CK_MECHANISM mechanism = {type, nullptr, 0};
        SetPinAnswers({"123456"});
        ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
        length = signature.size();
        ASSERT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_OK);
        const Bytes signed_(signature.begin(), signature.begin() + length);
        EXPECT_TRUE(TestSupport::verifyWithCertificate(certificate, digest, data, signed_)) << digest;
    }
    CK_MECHANISM mechanism = {CKM_SHA256_RSA_PKCS, nullptr, 0};
    SetPinAnswers({"000000"});
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
    length = signature.size();
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_PIN_INCORRECT);
    EXPECT_EQ(Sim::PinTries(kECardG4, VSIM_PIN_SIGNATURE), 2);
}

} // namespace
