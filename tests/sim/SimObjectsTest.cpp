// The objects a card carries: secrets stay secret and handles belong to
// their card.
#include "SimHarness.h"

#include "tests/support/TestCommon.h"

using namespace SimTesting;

namespace {

class SimObjects : public SimTest {};

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

} // namespace
