// The objects a card carries: keys and certificates that fit together and
// name the holder, the identity link and infobox in the program's formats,
// attribute answers, and writes of the data objects.
#include "SimHarness.h"

#include "formats/InfoboxFS.h"
#include "formats/Personenbindung.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

using namespace SimTesting;

namespace {

struct X509Free {
    void operator()(X509* p) const { X509_free(p); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;

X509Ptr parseCertificate(const Bytes& der) {
    const unsigned char* cursor = der.data();
    return X509Ptr(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())));
}

std::string commonName(X509_NAME* name) {
    char text[256] = {0};
    X509_NAME_get_text_by_NID(name, NID_commonName, text, sizeof text);
    return text;
}

Korvex::Personenbindung parseLink(Bytes bytes, int& result) {
    Korvex::Personenbindung link;
    result = link.parse(bytes.data(), static_cast<int>(bytes.size()));
    return link;
}

class SimObjects : public SimTest {
protected:
    LibInfobox::InfoboxFS& infobox(CK_SESSION_HANDLE session) {
        m_infobox.Clear();
        Bytes file = readAttribute(session, findObject(session, CKO_DATA, "INFOBOX"), CKA_VALUE);
        EXPECT_TRUE(m_infobox.ParseInfoboxData(Korvex::ByteArray(file.data(), file.size())));
        return m_infobox;
    }
    CK_RV write(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, const Bytes& value) {
        CK_ATTRIBUTE attribute = {CKA_VALUE, const_cast<unsigned char*>(value.data()), value.size()};
        return p11->C_SetAttributeValue(session, object, &attribute, 1);
    }
    LibInfobox::InfoboxFS m_infobox;
};

TEST_F(SimObjects, KeysAndCertificatesNameTheHolderAndFitTogether) {
    const Bytes caDer = [&] {
        std::string text = ReadText(std::string(getenv("VESSA_SIM_KEY_DIR")) + "/ca.cert.der");
        return Bytes(text.begin(), text.end());
    }();
    struct Card {
        CK_SLOT_ID slot;
        const char* holder;
        int signatureType;
        int signatureBits;
    } cards[] = {{0, "Maria Musterfrau", EVP_PKEY_RSA, 1536},
                 {1, "Max Mustermann", EVP_PKEY_RSA, 2048},
                 {2, "Erika Beispiel", EVP_PKEY_EC, 192},
                 {3, "Johann \xC3\x96sterreicher", EVP_PKEY_RSA, 1536}};
    for (const auto& card : cards) {
        CK_SESSION_HANDLE session = openSession(card.slot);
        for (const char* suffix : {"SIG", "EKEY"}) {
            SCOPED_TRACE(std::string(card.holder) + " " + suffix);
            CK_OBJECT_HANDLE handle = findObject(session, CKO_CERTIFICATE, std::string("C.CH.") + suffix);
            ASSERT_NE(handle, CK_INVALID_HANDLE);
            X509Ptr certificate = parseCertificate(readAttribute(session, handle, CKA_VALUE));
            ASSERT_TRUE(certificate);
            EXPECT_EQ(commonName(X509_get_subject_name(certificate.get())), card.holder);
            EXPECT_EQ(commonName(X509_get_issuer_name(certificate.get())), "vessa Simulation Test-CA");
            X509Ptr ca = parseCertificate(caDer);
            ASSERT_TRUE(ca);
            EXPECT_EQ(X509_verify(certificate.get(), X509_get0_pubkey(ca.get())), 1);
            EVP_PKEY* key = X509_get0_pubkey(certificate.get());
            if (std::string(suffix) == "SIG") {
                EXPECT_EQ(EVP_PKEY_get_base_id(key), card.signatureType);
                EXPECT_EQ(EVP_PKEY_get_bits(key), card.signatureBits);
            }
            // The public key object holds the certificate's key.
            CK_OBJECT_HANDLE publicKey = findObject(session, CKO_PUBLIC_KEY, std::string("PK.CH.") + suffix);
            Bytes info = readAttribute(session, publicKey, CKA_PUBLIC_KEY_INFO);
            const unsigned char* cursor = info.data();
            EVP_PKEY* fromObject = d2i_PUBKEY(nullptr, &cursor, static_cast<long>(info.size()));
            ASSERT_NE(fromObject, nullptr);
            EXPECT_EQ(EVP_PKEY_eq(fromObject, key), 1);
            EVP_PKEY_free(fromObject);
            EXPECT_EQ(readAttribute(session, publicKey, CKA_ID), readAttribute(session, handle, CKA_ID));
        }
    }
}

TEST_F(SimObjects, SecretsStaySecretAndAttributeAnswersFollowTheStandard) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE key = findObject(session, CKO_PRIVATE_KEY, "SK.CH.SIG");
    unsigned char small[4];
    CK_BBOOL sign = CK_FALSE;
    CK_KEY_TYPE type = 0;
    CK_ATTRIBUTE pattern[] = {{CKA_PRIVATE_EXPONENT, nullptr, 0},
                              {0x7FFF0000UL, nullptr, 0},
                              {CKA_MODULUS, small, sizeof small},
                              {CKA_SIGN, &sign, sizeof sign},
                              {CKA_KEY_TYPE, &type, sizeof type}};
    CK_RV rv = p11->C_GetAttributeValue(session, key, pattern, 5);
    EXPECT_TRUE(rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID || rv == CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(pattern[0].ulValueLen, CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(pattern[1].ulValueLen, CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(pattern[2].ulValueLen, CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(sign, CK_TRUE);
    EXPECT_EQ(type, static_cast<CK_KEY_TYPE>(CKK_RSA));
    EXPECT_EQ(readAttribute(session, key, CKA_MODULUS).size(), 192u);

    CK_ATTRIBUTE label = {CKA_LABEL, nullptr, 0};
    EXPECT_EQ(p11->C_GetAttributeValue(session, 0xDEAD, &label, 1), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(p11->C_GetAttributeValue(session, key, nullptr, 1), CKR_ARGUMENTS_BAD);
    // Handles of one card mean nothing on another.
    CK_SESSION_HANDLE other = openSession(3);
    EXPECT_EQ(p11->C_GetAttributeValue(other, key, &label, 1), CKR_OBJECT_HANDLE_INVALID);

    CK_OBJECT_HANDLE found[2];
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_FindObjects(session, found, 2, &count), CKR_OPERATION_NOT_INITIALIZED);
    ASSERT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OK);
    EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(p11->C_FindObjects(session, nullptr, 2, &count), CKR_ARGUMENTS_BAD);
    ASSERT_EQ(p11->C_FindObjects(session, found, 2, &count), CKR_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OPERATION_NOT_INITIALIZED);

    CK_SESSION_HANDLE blank = openSession(kBlankSlot);
    EXPECT_TRUE(findAll(blank, nullptr, 0).empty());
}

TEST_F(SimObjects, ProtectedEntriesAskForTheIdentityLinkPinWhenRead) {
    CK_SESSION_HANDLE session = openSession(0);
    CK_OBJECT_HANDLE entry = findObject(session, CKO_DATA, "0x03");
    ASSERT_NE(entry, CK_INVALID_HANDLE);
    // Its length is no secret; its content is.
    CK_ATTRIBUTE query = {CKA_VALUE, nullptr, 0};
    const unsigned long before = m_sim.dialogCount();
    ASSERT_EQ(p11->C_GetAttributeValue(session, entry, &query, 1), CKR_OK);
    EXPECT_EQ(m_sim.dialogCount(), before);
    Bytes value(query.ulValueLen);
    query.pValue = value.data();
    SetPinAnswers({"CANCEL"});
    EXPECT_EQ(p11->C_GetAttributeValue(session, entry, &query, 1), CKR_FUNCTION_CANCELED);
    SetPinAnswers({"4321"});
    ASSERT_EQ(p11->C_GetAttributeValue(session, entry, &query, 1), CKR_OK);
    EXPECT_NE(std::string(value.begin(), value.end()).find("Maria Musterfrau"), std::string::npos);
    // The successful entry logged the token in: no second question.
    const unsigned long after = m_sim.dialogCount();
    EXPECT_FALSE(readAttribute(session, entry, CKA_VALUE).empty());
    EXPECT_EQ(m_sim.dialogCount(), after);
}

TEST_F(SimObjects, WritingTheIdentityLinkNeedsReadWriteAndThePinAndPersists) {
    Bytes record(300, 0x5A);
    record[0] = 0x30;
    CK_SESSION_HANDLE readOnly = openSession(0);
    CK_OBJECT_HANDLE link = findObject(readOnly, CKO_DATA, "PERSONENBINDUNG");
    EXPECT_EQ(write(readOnly, link, record), CKR_SESSION_READ_ONLY);

    CK_SESSION_HANDLE session = openSession(0, true);
    EXPECT_EQ(write(session, link, Bytes(1025, 0x30)), CKR_ATTRIBUTE_VALUE_INVALID);
    EXPECT_EQ(write(session, findObject(session, CKO_DATA, "INFOBOX"), record), CKR_ATTRIBUTE_READ_ONLY);
    CK_UTF8CHAR label[] = "X";
    CK_ATTRIBUTE relabel = {CKA_LABEL, label, 1};
    EXPECT_EQ(p11->C_SetAttributeValue(session, link, &relabel, 1), CKR_ATTRIBUTE_READ_ONLY);
    SetPinAnswers({"0000"});
    EXPECT_EQ(write(session, link, record), CKR_PIN_INCORRECT);
    SetPinAnswers({"4321"});
    ASSERT_EQ(write(session, link, record), CKR_OK);
    unsigned char type = 0;
    Korvex::ByteArray data;
    ASSERT_TRUE(infobox(session).GetEntry(1, type, data));
    EXPECT_EQ(data.ToVector(), record);

    reload();
    session = openSession(0);
    EXPECT_EQ(readAttribute(session, findObject(session, CKO_DATA, "PERSONENBINDUNG"), CKA_VALUE), record);
    EXPECT_EQ(readAttribute(session, findObject(session, CKO_DATA, "0x01"), CKA_VALUE), record);
    ASSERT_EQ(m_sim.resetState(kAcosA04), CKR_OK);
    session = openSession(0);
    int result = 0;
    parseLink(readAttribute(session, findObject(session, CKO_DATA, "PERSONENBINDUNG"), CKA_VALUE), result);
    EXPECT_EQ(result, 1);
}

} // namespace
