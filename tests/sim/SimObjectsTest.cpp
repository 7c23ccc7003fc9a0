// The objects a card carries: keys and certificates that fit together and
// name the holder, secrets that stay secret, and writes of the identity link.
#include "SimHarness.h"

#include "formats/Personenbindung.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

using namespace SimTesting;

namespace {

using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;

X509Ptr parseCertificate(const Bytes& der) {
    const unsigned char* cursor = der.data();
    return X509Ptr(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())), X509_free);
}

std::string commonName(X509_NAME* name) {
    char text[256] = {0};
    X509_NAME_get_text_by_NID(name, NID_commonName, text, sizeof text);
    return text;
}

class SimObjects : public SimTest {};

TEST_F(SimObjects, KeysAndCertificatesNameTheHolderAndFitTogether) {
    const std::string caText = ReadText(std::string(getenv("VESSA_SIM_KEY_DIR")) + "/ca.cert.der");
    X509Ptr ca = parseCertificate(Bytes(caText.begin(), caText.end()));
    ASSERT_TRUE(ca);
    const struct { CK_SLOT_ID slot; const char* holder; int signatureType; int signatureBits; } cards[] = {
        {0, "Maria Musterfrau", EVP_PKEY_RSA, 1536},
        {1, "Max Mustermann", EVP_PKEY_RSA, 2048},
        {2, "Erika Beispiel", EVP_PKEY_EC, 192},
        {3, "Johann \xC3\x96sterreicher", EVP_PKEY_RSA, 1536}};
    for (const auto& card : cards) {
        CK_SESSION_HANDLE session = openSession(card.slot);
        for (const std::string suffix : {"SIG", "EKEY"}) {
            SCOPED_TRACE(std::string(card.holder) + " " + suffix);
            X509Ptr certificate = parseCertificate(
                readAttribute(session, findObject(session, CKO_CERTIFICATE, "C.CH." + suffix), CKA_VALUE));
            ASSERT_TRUE(certificate);
            EXPECT_EQ(commonName(X509_get_subject_name(certificate.get())), card.holder);
            EXPECT_EQ(X509_verify(certificate.get(), X509_get0_pubkey(ca.get())), 1);
            EVP_PKEY* key = X509_get0_pubkey(certificate.get());
            if (suffix == "SIG") {
                EXPECT_EQ(EVP_PKEY_get_base_id(key), card.signatureType);
                EXPECT_EQ(EVP_PKEY_get_bits(key), card.signatureBits);
            }
            // The public key object holds the certificate's key.
            Bytes info = readAttribute(session, findObject(session, CKO_PUBLIC_KEY, "PK.CH." + suffix),
                                       CKA_PUBLIC_KEY_INFO);
            const unsigned char* cursor = info.data();
            EVP_PKEY* fromObject = d2i_PUBKEY(nullptr, &cursor, static_cast<long>(info.size()));
            EXPECT_EQ(EVP_PKEY_eq(fromObject, key), 1);
            EVP_PKEY_free(fromObject);
        }
    }
}

TEST_F(SimObjects, SecretsStaySecretAndHandlesBelongToTheirCard) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = findObject(session, CKO_PRIVATE_KEY, "SK.CH.SIG");
    unsigned char small[4];
    CK_BBOOL sign = CK_FALSE;
    CK_ATTRIBUTE pattern[] = {{CKA_PRIVATE_EXPONENT, nullptr, 0},
                              {0x7FFF0000UL, nullptr, 0},
                              {CKA_MODULUS, small, sizeof small},
                              {CKA_SIGN, &sign, sizeof sign}};
    CK_RV rv = p11->C_GetAttributeValue(session, key, pattern, 4);
    EXPECT_TRUE(rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID || rv == CKR_BUFFER_TOO_SMALL);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(pattern[i].ulValueLen, CK_UNAVAILABLE_INFORMATION) << i;
    EXPECT_EQ(sign, CK_TRUE);
    EXPECT_EQ(readAttribute(session, key, CKA_MODULUS).size(), 192u);

    CK_ATTRIBUTE label = {CKA_LABEL, nullptr, 0};
    EXPECT_EQ(p11->C_GetAttributeValue(session, 0xDEAD, &label, 1), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(p11->C_GetAttributeValue(openSession(3), key, &label, 1), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_TRUE(findAll(openSession(kBlankSlot), nullptr, 0).empty());
}

TEST_F(SimObjects, WritingTheIdentityLinkNeedsReadWriteAndThePinAndPersists) {
    Bytes record(300, 0x5A);
    record[0] = 0x30;
    auto write = [&](CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, const Bytes& value) {
        CK_ATTRIBUTE attribute = {CKA_VALUE, const_cast<unsigned char*>(value.data()), value.size()};
        return p11->C_SetAttributeValue(session, object, &attribute, 1);
    };
    CK_SESSION_HANDLE readOnly = openSession(0);
    CK_OBJECT_HANDLE link = findObject(readOnly, CKO_DATA, "PERSONENBINDUNG");
    EXPECT_EQ(write(readOnly, link, record), CKR_SESSION_READ_ONLY);
    CK_SESSION_HANDLE session = openSession(0, true);
    EXPECT_EQ(write(session, link, Bytes(1025, 0x30)), CKR_ATTRIBUTE_VALUE_INVALID);
    EXPECT_EQ(write(session, findObject(session, CKO_DATA, "INFOBOX"), record), CKR_ATTRIBUTE_READ_ONLY);
    SetPinAnswers({"0000"});
    EXPECT_EQ(write(session, link, record), CKR_PIN_INCORRECT);
    SetPinAnswers({"4321"});
    ASSERT_EQ(write(session, link, record), CKR_OK);

    // After a restart the link and its infobox entry hold it; a reset brings back the factory record.
    reload();
    session = openSession(0);
    EXPECT_EQ(readAttribute(session, findObject(session, CKO_DATA, "PERSONENBINDUNG"), CKA_VALUE), record);
    EXPECT_EQ(readAttribute(session, findObject(session, CKO_DATA, "0x01"), CKA_VALUE), record);
    ASSERT_EQ(Sim::ResetState(kAcosA04), CKR_OK);
    session = openSession(0);
    Bytes factory = readAttribute(session, findObject(session, CKO_DATA, "PERSONENBINDUNG"), CKA_VALUE);
    Korvex::Personenbindung parsed;
    EXPECT_EQ(parsed.parse(factory.data(), static_cast<int>(factory.size())), 1);
}

} // namespace
