// Real cryptography: every signature mechanism on every key kind verifies
// with OpenSSL outside the module, and only the real signature asks the PIN.
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
    CK_RV signWith(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE type, const Bytes& data,
                   Bytes& signature) {
        CK_MECHANISM mechanism = {type, nullptr, 0};
        CK_RV rv = p11->C_SignInit(session, &mechanism, key);
        if (rv != CKR_OK) return rv;
        CK_ULONG length = 0;
        rv = p11->C_Sign(session, const_cast<unsigned char*>(data.data()), data.size(), nullptr, &length);
        if (rv != CKR_OK) return rv;
        signature.assign(length, 0);
        rv = p11->C_Sign(session, const_cast<unsigned char*>(data.data()), data.size(), signature.data(), &length);
        signature.resize(length);
        return rv;
    }
    CK_RV verifyWith(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE type, const Bytes& data,
                     const Bytes& signature) {
        CK_MECHANISM mechanism = {type, nullptr, 0};
        CK_RV rv = p11->C_VerifyInit(session, &mechanism, key);
        if (rv != CKR_OK) return rv;
        return p11->C_Verify(session, const_cast<unsigned char*>(data.data()), data.size(),
                             const_cast<unsigned char*>(signature.data()), signature.size());
    }
};

TEST_F(SimCrypto, EveryMechanismSignsVerifiablyWithItsKey) {
    const Bytes sha256DigestInfo = {0x30, 0x31, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65,
                                    0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
    Bytes digestInfo = sha256DigestInfo;
    digestInfo.resize(digestInfo.size() + 32, 0x11);
    struct Case {
        CK_SLOT_ID slot;
        const char* suffix;
        CK_MECHANISM_TYPE mechanism;
        const char* digest;  // OpenSSL's name; null: the data is signed as it is
        const char* pin;
    } cases[] = {
        {0, "SIG", CKM_RSA_PKCS, nullptr, "123456"},       {0, "SIG", CKM_SHA1_RSA_PKCS, "SHA1", "123456"},
        {0, "SIG", CKM_RIPEMD160_RSA_PKCS, "RIPEMD160", "123456"}, {0, "SIG", CKM_SHA256_RSA_PKCS, "SHA256", "123456"},
        {1, "SIG", CKM_SHA384_RSA_PKCS, "SHA384", "123456"}, {1, "SIG", CKM_SHA512_RSA_PKCS, "SHA512", "123456"},
        {0, "EKEY", CKM_ECDSA, nullptr, "1234"},           {0, "EKEY", CKM_ECDSA_SHA1, "SHA1", "1234"},
        {2, "SIG", CKM_ECDSA, nullptr, "123456"},          {2, "EKEY", CKM_ECDSA_SHA1, "SHA1", "1234"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("slot " + std::to_string(c.slot) + " " + c.suffix + " mechanism " + std::to_string(c.mechanism));
        CK_SESSION_HANDLE session = openSession(c.slot);
        CK_OBJECT_HANDLE key = findObject(session, CKO_PRIVATE_KEY, std::string("SK.CH.") + c.suffix);
        const Bytes& data = c.mechanism == CKM_RSA_PKCS ? digestInfo
                            : c.mechanism == CKM_ECDSA  ? Bytes(32, 0x42)
                                                        : kMessage;
        SetPinAnswers({c.pin});
        Bytes signature;
        ASSERT_EQ(signWith(session, key, c.mechanism, data, signature), CKR_OK);
        EXPECT_EQ(PinDialogLog().size() >= 4 ? PinDialogLog()[2] : "",
                  std::string("SETPROMPT ") + (c.suffix[0] == 'S' ? "Signatur-PIN:" : "Geheimhaltungs-PIN:"));
        EXPECT_TRUE(TestSupport::verifyWithCertificate(certificate(session, c.suffix), c.digest, data, signature));
        CK_OBJECT_HANDLE verifier = findObject(session, CKO_PUBLIC_KEY, std::string("PK.CH.") + c.suffix);
        EXPECT_EQ(verifyWith(session, verifier, c.mechanism, data, signature), CKR_OK);
        signature[signature.size() / 2] ^= 0x01;
        EXPECT_EQ(verifyWith(session, verifier, c.mechanism, data, signature), CKR_SIGNATURE_INVALID);
        signature.pop_back();
        EXPECT_EQ(verifyWith(session, verifier, c.mechanism, data, signature), CKR_SIGNATURE_LEN_RANGE);
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
