// Raw APDUs, named card data (EHIC, Grunddaten), the card number and the
// identity-link write. (The infobox's data objects and their protection:
// InfoboxBereichTest.ProtectionSwitchWritesTheFlagAndRebuildsTheList.)
#include "tests/token/TokenTestSupport.h"

using namespace tokentest;

namespace {

using TokenCardDataTest = TokenTest;

const char* const kAcos03 = kCards[0].serial;  // fixed objects
const char* const kECard = kCards[6].serial;

Bytes identityLink(size_t size, unsigned char first = 0x30)
{
    Bytes data(size);
    for (size_t i = 0; i < size; ++i)
        data[i] = static_cast<unsigned char>(i * 7);
    data[0] = first;
    return data;
}

TEST_F(TokenCardDataTest, ApdusAppendTheirResponseWithStatusWord)
{
    ASSERT_TRUE(openCard(kAcos03));
    Bytes response = {0x01};
    EXPECT_TRUE(p11->SendAPDU({0x00, 0xA4, 0x00, 0x0C, 0x02, 0xDF, 0x71}, response));
    EXPECT_EQ(response, (Bytes{0x01, 0x90, 0x00}));

    std::string hex;
    EXPECT_TRUE(p11->SendAPDU_HEX("00a4000c02df71", hex));
    EXPECT_EQ(hex, "9000");
    EXPECT_TRUE(p11->SendAPDU_HEX("00CA000000", hex));
    EXPECT_EQ(hex, "6D00");  // upper case
    EXPECT_FALSE(p11->SendAPDU_HEX("00A", hex));
    EXPECT_FALSE(p11->SendAPDU_HEX("00ZZ", hex));
    EXPECT_EQ(Log::errors(), Lines(2, "Fehler bei HexStr2BinData"));

    // GET CHALLENGE of 256 bytes: 258 with the status word, cut to the buffer.
    unsigned char buffer[256];
    unsigned long length = sizeof(buffer);
    const unsigned char challenge[] = {0x00, 0x84, 0x00, 0x00, 0x00};
    EXPECT_TRUE(p11->SendAPDU(challenge, sizeof(challenge), buffer, length));
    EXPECT_EQ(length, 256u);

    // A module overstating the answer's length is held to its 4096-byte buffer.
    Sim::SetMalformed("C_CardTransmit", kAcos03, 1);
    Bytes overstated;
    EXPECT_TRUE(p11->SendAPDU({0x00, 0x84, 0x00, 0x00, 0x08}, overstated));
    EXPECT_EQ(overstated.size(), 4096u);
}

TEST_F(TokenCardDataTest, ECardDataIsReadByName)
{
    ASSERT_TRUE(openCard(kECard));
    unsigned char buffer[2048];
    unsigned long length = sizeof(buffer);
    ASSERT_TRUE(p11->ReadEHIC(buffer, length));
    EXPECT_GT(length, 0u);
    EXPECT_EQ(buffer[0], 0x30);
    length = sizeof(buffer);
    ASSERT_TRUE(p11->ReadGrunddaten(buffer, length));
    EXPECT_GT(length, 0u);

    length = 4;
    EXPECT_FALSE(p11->ReadGrunddaten(buffer, length));
    Sim::SetMalformed("C_CardAttribute", kECard, 1);
    length = sizeof(buffer);
    EXPECT_FALSE(p11->ReadEHIC(buffer, length));
    EXPECT_EQ(length, sizeof(buffer));
    ASSERT_TRUE(openCard(kAcos03));
    EXPECT_FALSE(p11->ReadEHIC(buffer, length));
    EXPECT_EQ(Log::errors(), (Lines{"Failed get Grunddaten, rv = 0x150", "Failed get EHIC, rv = 0x150",
                                    "Failed get EHIC, rv = 0x54"}));
}

TEST_F(TokenCardDataTest, IdentityLinkRefusals)
{
    std::string error;
    const unsigned long dialogs = Sim::PinDialogCount();
    // Too large for the value buffer: refused before any card is looked up.
    EXPECT_FALSE(p11->UpdatePersonenbindung("9999999999999999", identityLink(1025), error));
    EXPECT_EQ(error, "Falsche Update Daten für die Smartcard");
    EXPECT_FALSE(p11->UpdatePersonenbindung("9999999999999999", identityLink(200), error));
    EXPECT_EQ(error, "Keine Smartcard gefunden für CIN=9999999999999999");
    EXPECT_FALSE(p11->UpdatePersonenbindung(kAcos03, identityLink(127), error));
    EXPECT_EQ(error, "Falsche Update Daten für die Smartcard");
    EXPECT_FALSE(p11->UpdatePersonenbindung(kAcos03, identityLink(128, 0x31), error));
    EXPECT_EQ(Sim::PinDialogCount(), dialogs);
    EXPECT_EQ(Log::errors(), (Lines{"Falsche Update Daten für die Smartcard (3)",
                                    "Keine Smartcard gefunden für CIN= 9999999999999999",
                                    "Falsche Update Daten für die Smartcard (1)",
                                    "Falsche Update Daten für die Smartcard (2)"}));

    Log::clear();
    SetPinAnswers({"CANCEL"});
    EXPECT_FALSE(p11->UpdatePersonenbindung(kAcos03, identityLink(200), error));
    EXPECT_EQ(error, "Fehler beim Initialisieren des Kartenobjektes. (CLogin)");
    Sim::SetFault("C_SetAttributeValue", kAcos03, CKR_DEVICE_MEMORY, 1);
    SetPinAnswers({"4321"});
    EXPECT_FALSE(p11->UpdatePersonenbindung(kAcos03, identityLink(200), error));
    EXPECT_EQ(error, "Fehler beim modifizieren des Kartenobjektes. (C_SetAttributeValue)");
    Sim::SetFault("C_OpenSession", kAcos03, CKR_DEVICE_ERROR, 1);
    EXPECT_FALSE(p11->UpdatePersonenbindung(kAcos03, identityLink(200), error));
    EXPECT_EQ(error, "Fehler beim öffnen der Kartensession");
    EXPECT_EQ(Log::errors(), (Lines{"PKCS11 Proc_C_Login0x50", "PKCS11 Proc_C_SetAttributeValue0x31",
                                    "PKCS11 Proc_C_OpenSession ERROR0x30"}));
}

TEST_F(TokenCardDataTest, ShortLongAndFailedResponses)
{
    ASSERT_TRUE(openCard(kAcos03));
    // Every APDU of the card number gets the same answer.
    Sim::AddFaults("C_CardTransmit=answer:A0A1A2A3A4A5A6A7A8A9");
    std::string cin;
    EXPECT_TRUE(p11->GetCinCsn(cin));
    EXPECT_EQ(cin, "A0A1A2A3A4A5A6A7");
    Sim::ClearFaults();
    Sim::AddFaults("C_CardTransmit=answer:A0A1A2A3A4A5A6A7A8");
    EXPECT_FALSE(p11->GetCinCsn(cin));
    EXPECT_TRUE(Log::errors().empty());

    Sim::ClearFaults();
    Sim::AddFaults(("C_CardTransmit=answer:" + std::string(600, '5')).c_str());
    unsigned char buffer[256];
    unsigned long length = sizeof(buffer);
    EXPECT_TRUE(p11->SendAPDU(buffer, 5, buffer, length));
    EXPECT_EQ(length, 256u);
    EXPECT_EQ(buffer[255], 0x55);

    // Each APDU of the card number reports its own failure.
    Sim::ClearFaults();
    Sim::AddFaults("C_CardTransmit#2=CKR_DEVICE_ERROR*1");
    EXPECT_FALSE(p11->GetCinCsn(cin));
    EXPECT_EQ(Log::errors().back(), "error select EF DEC");
    Sim::AddFaults("C_CardTransmit#3=CKR_DEVICE_REMOVED*1");
    EXPECT_FALSE(p11->GetCinCsn(cin));
    EXPECT_EQ(Log::errors(), (Lines{"Failed C_CardTransmit, rv = 0x30", "sendAPDU failed", "error select EF DEC",
                                    "Failed C_CardTransmit, rv = 0x32", "sendAPDU failed", "error read binary"}));
}

} // namespace
