// Real cryptography: every signature mechanism on every key kind verifies
// with OpenSSL outside the module, C_Verify tells good from bad, digests
// match known values, and misuse of operations gets the standard answers.
#include "SimHarness.h"

#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>

using namespace SimTesting;

namespace {

struct PkeyFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyFree>;

const Bytes kMessage = {'G', 'r', 0xC3, 0xBC, 0xC3, 0x9F, 'e', ' ', 'a', 'u', 's', ' ', 'W', 'i', 'e', 'n'};

const EVP_MD* digestOf(CK_MECHANISM_TYPE mechanism) {
    switch (mechanism) {
    case CKM_SHA1_RSA_PKCS:
    case CKM_ECDSA_SHA1: return EVP_sha1();
    case CKM_RIPEMD160_RSA_PKCS: return EVP_ripemd160();
    case CKM_SHA256_RSA_PKCS: return EVP_sha256();
    case CKM_SHA384_RSA_PKCS: return EVP_sha384();
    case CKM_SHA512_RSA_PKCS: return EVP_sha512();
    default: return nullptr;
    }
}

// Verifies a PKCS#11 signature with OpenSSL alone: r||s is turned into DER
// for ECDSA, raw mechanisms are checked on the bytes given.
bool opensslVerifies(EVP_PKEY* key, CK_MECHANISM_TYPE mechanism, const Bytes& data, const Bytes& signature) {
    Bytes encoded = signature;
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_EC) {
        ECDSA_SIG* sig = ECDSA_SIG_new();
        const int half = static_cast<int>(signature.size() / 2);
        ECDSA_SIG_set0(sig, BN_bin2bn(signature.data(), half, nullptr), BN_bin2bn(signature.data() + half, half, nullptr));
        encoded.assign(static_cast<size_t>(i2d_ECDSA_SIG(sig, nullptr)), 0);
        unsigned char* cursor = encoded.data();
        i2d_ECDSA_SIG(sig, &cursor);
        ECDSA_SIG_free(sig);
    }
    Bytes input = data;
    if (const EVP_MD* md = digestOf(mechanism)) {
        input.assign(EVP_MAX_MD_SIZE, 0);
        unsigned int size = 0;
        EVP_Digest(data.data(), data.size(), input.data(), &size, md, nullptr);
        input.resize(size);
    }
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(key, nullptr);
    bool ok = EVP_PKEY_verify_init(context) == 1;
    if (ok && EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA) {
        ok = EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1;
        if (ok && digestOf(mechanism)) ok = EVP_PKEY_CTX_set_signature_md(context, digestOf(mechanism)) == 1;
    }
    ok = ok && EVP_PKEY_verify(context, encoded.data(), encoded.size(), input.data(), input.size()) == 1;
    EVP_PKEY_CTX_free(context);
    return ok;
}

class SimCrypto : public SimTest {
protected:
    PkeyPtr certificateKey(CK_SESSION_HANDLE session, const std::string& suffix) {
        Bytes der = readAttribute(session, findObject(session, CKO_CERTIFICATE, "C.CH." + suffix), CKA_VALUE);
        const unsigned char* cursor = der.data();
        X509* certificate = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
        PkeyPtr key(certificate ? X509_get_pubkey(certificate) : nullptr);
        X509_free(certificate);
        return key;
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
        const char* pin;
    } cases[] = {
        {0, "SIG", CKM_RSA_PKCS, "123456"},        {0, "SIG", CKM_SHA1_RSA_PKCS, "123456"},
        {0, "SIG", CKM_RIPEMD160_RSA_PKCS, "123456"}, {0, "SIG", CKM_SHA256_RSA_PKCS, "123456"},
        {1, "SIG", CKM_SHA384_RSA_PKCS, "123456"}, {1, "SIG", CKM_SHA512_RSA_PKCS, "123456"},
        {0, "EKEY", CKM_ECDSA, "1234"},            {0, "EKEY", CKM_ECDSA_SHA1, "1234"},
        {2, "SIG", CKM_ECDSA, "123456"},           {2, "EKEY", CKM_ECDSA_SHA1, "1234"},
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
        PkeyPtr publicKey = certificateKey(session, c.suffix);
        ASSERT_TRUE(publicKey);
        EXPECT_TRUE(opensslVerifies(publicKey.get(), c.mechanism, data, signature));
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
    const unsigned long dialogs = m_sim.dialogCount();
    unsigned char small[16];
    CK_ULONG length = sizeof small;
    Bytes data = kMessage;
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), small, &length), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 192u);
    EXPECT_EQ(m_sim.dialogCount(), dialogs);

    // A context-specific login gives the PIN beforehand; C_Sign asks nothing.
    CK_UTF8CHAR pin[] = "123456";
    ASSERT_EQ(p11->C_Login(session, CKU_CONTEXT_SPECIFIC, pin, 6), CKR_OK);
    Bytes signature(length);
    ASSERT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_EQ(m_sim.dialogCount(), dialogs);

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
    PkeyPtr publicKey = certificateKey(session, "SIG");
    EXPECT_TRUE(opensslVerifies(publicKey.get(), CKM_SHA256_RSA_PKCS, data, signature));

    // A wrong PIN costs a try and ends the operation; a locked PIN asks nothing.
    SetPinAnswers({"000000", "000000", "000000"});
    for (int attempt = 0; attempt < 3; ++attempt) {
        ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
        EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_PIN_INCORRECT);
    }
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
    const unsigned long beforeLocked = m_sim.dialogCount();
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_PIN_LOCKED);
    EXPECT_EQ(m_sim.dialogCount(), beforeLocked);
}

} // namespace
