// The simulator's parts on their own: the written forms of faults, control
// file and card sets, the DER encoder, the identity-link builder against the
// program's reader, Assuan escaping, the PUK rules and the kept CA signature.
#include "formats/Personenbindung.h"
#include "sim/CardData.h"
#include "sim/CardSet.h"
#include "sim/ControlFile.h"
#include "sim/FaultRules.h"
#include "base/PinEntry.h"
#include "sim/KeyFactory.h"
#include "sim/SimPaths.h"
#include "sim/PinState.h"

#include "tests/support/TestCommon.h"

using namespace VessaSim;

namespace {

TEST(SimFaultRules, ParsesEveryFormAndRefusesNonsense) {
    std::vector<FaultRule> rules;
    std::string error;
    ASSERT_TRUE(parseFaultRules(" C_Sign@1204000000004711=CKR_PIN_LOCKED*2 ; C_GetSlotList=0x30;*@slot:3=malformed*1;",
                               rules, error))
        << error;
    ASSERT_EQ(rules.size(), 3u);
    EXPECT_EQ(rules[1].card, "*");
    EXPECT_EQ(rules[1].rv, 0x30u);
    EXPECT_EQ(rules[1].times, -1);
    EXPECT_TRUE(rules[2].malformed);
    EXPECT_EQ(faultRuleToString(rules[0]), "C_Sign@1204000000004711=CKR_PIN_LOCKED*2");
    EXPECT_EQ(faultRuleToString(rules[2]), "*@slot:3=malformed*1");
    const std::string fixedThird = "C_CardAttribute@slot:1#3=answer:FF03*1";
    ASSERT_TRUE(parseFaultRules(fixedThird, rules, error)) << error;
    EXPECT_EQ(faultRuleToString(rules[3]), fixedThird);

    for (const char* bad : {"C_Sign", "Sign=CKR_OK", "C_Sign=CKR_NOTHING", "C_Sign=0x30*x", "C_Sign=12abc",
                            "C_Sign#0=CKR_OK", "C_CardTransmit=answer:F0F", "C_CardTransmit=answer:+1"}) {
        std::vector<FaultRule> none;
        EXPECT_FALSE(parseFaultRules(bad, none, error)) << bad;
        EXPECT_TRUE(none.empty());
    }
    EXPECT_EQ(returnCodeName(0x54), "CKR_FUNCTION_NOT_SUPPORTED");
    EXPECT_EQ(returnCodeName(0x80000123UL), "0x80000123");
}

// Written back by every vessa-sim command the module tests run.
TEST(SimControlFile, SkipsWhatItCannotRead) {
    ControlState state = parseControl("# comment\n"
                                      "slot 2 insert ECARD-G4:3014000000000999:Eva Maria:Huber\n"
                                      "slot 5 remove\r\n"
                                      "slot x remove\n"
                                      "fault 3 C_Sign=CKR_DEVICE_ERROR*1\n"
                                      "latency 20 5\n"
                                      "reset 7 *\n"
                                      "bogus line\n");
    EXPECT_EQ(state.slots.size(), 2u);
    EXPECT_EQ(state.slots[2], "insert ECARD-G4:3014000000000999:Eva Maria:Huber");
    EXPECT_EQ(state.slots[5], "remove");
    EXPECT_EQ(state.faults[3], "C_Sign=CKR_DEVICE_ERROR*1");
    EXPECT_EQ(state.nextFaultId(), 4);
    EXPECT_TRUE(state.hasLatency);
    EXPECT_EQ(state.apduLatencyMs, 5u);
    EXPECT_EQ(state.lastResetEpoch(), 7);
}

TEST(SimCardSet, ValidatesCardsAndRoundTripsGeneratedSets) {
    struct Bad {
        const char* xml;
        const char* complaint;
    } bad[] = {
        {"<cardset/>", "without readers"},
        {"<cardset><reader name='A'><card generation='ACOS-A09' serial='1204000000004711'/></reader></cardset>",
         "unknown generation 'ACOS-A09'"},
        {"<other/>", "no <cardset>"},
        {"<cardset><reader name='A'><card generation='ACOS-A04' serial='12'/></reader></cardset>", "16 hexadecimal"},
        {"<cardset><reader name='A'><card generation='ACOS-A04' serial='120400000000471G'/></reader></cardset>",
         "16 hexadecimal"},
        {"<cardset><reader name='A'><card generation='ACOS-A04' serial='1204000000004711' sig-pin='1234'/>"
         "</reader></cardset>",
         "6 digits"},
        {"<cardset><reader name='A'><card generation='ECARD-G2' serial='1204000000004711'/>"
         "<card generation='ECARD-G2' serial='1204000000004712'/></reader></cardset>",
         "more than one card"},
        {"<cardset><reader><card generation='ECARD-G2' serial='1204000000004711'/></reader></cardset>", "name"},
        {"<cardset><reader name='A'", ""},
        // Control characters cannot be written back into a card-set file.
        {"<cardset><reader name='A'><card generation='ECARD-G2' serial='1204000000004711' family='&#;x'/>"
         "</reader></cardset>",
         "control character"},
        {"<cardset><reader name='A&#9;'/></cardset>", "control character"},
    };
    for (const auto& b : bad) {
        std::istringstream in(b.xml);
        CardSetSpec set;
        std::string error;
        EXPECT_FALSE(parseCardSet(in, set, error)) << b.xml;
        EXPECT_NE(error.find(b.complaint), std::string::npos) << error;
    }
    CardSpec adHoc;
    std::string error;
    EXPECT_FALSE(resolveCard(demoCardSet(), "ACOS-A04:123", adHoc, error));
}

TEST(SimIdentityLink, LongNamesAreCutSoTheReaderStillFindsThem) {
    CardSpec card;
    card.serial = "1204000000004711";
    card.givenName = std::string(50, 'G');
    card.familyName = "\xC3\x96" + std::string(60, 'F');
    card.birthDate = "2001-02-03";
    Bytes record = buildIdentityLink(card, nullptr);
    Korvex::Personenbindung link;
    ASSERT_EQ(link.parse(record.data(), static_cast<int>(record.size())), 1);
    EXPECT_EQ(link.getGivenName(), std::string(36, 'G'));
    EXPECT_EQ(link.getFamilyName(), "\xC3\x96" + std::string(34, 'F'));
    EXPECT_EQ(link.getDateOfBirth(), "2001-02-03");
    EXPECT_EQ(link.getBaseId(), defaultBaseId(card.serial));
    EXPECT_GE(record.size(), 128u);
    EXPECT_EQ(insuranceNumber(card), "4711030201");
}

TEST(SimPinEntry, EscapesWhatAssuanReserves) {
    EXPECT_EQ(Korvex::PinEntry::escape("100%\nfertig\r"), "100%25%0Afertig%0D");
    EXPECT_EQ(Korvex::PinEntry::unescape("12%2534%0A%zz%4"), "12%34\n%zz%4");
    EXPECT_EQ(Korvex::PinEntry::unescape(Korvex::PinEntry::escape("a%b\nc")), "a%b\nc");
}

TEST(SimPinState, ChecksThePukFormatBeforeTouchingItsCounter) {
    PinState pin;
    pin.value = "1234";
    pin.puk = "12345678";
    EXPECT_EQ(unblockPin(pin, "1234567", "5678", "5678"), static_cast<CK_RV>(CKR_PIN_LEN_RANGE));
    pin.pukTries = 1;
    EXPECT_EQ(unblockPin(pin, "00000000", "5678", "5678"), static_cast<CK_RV>(CKR_PIN_INCORRECT));
    EXPECT_EQ(unblockPin(pin, "12345678", "5678", "5678"), static_cast<CK_RV>(CKR_PIN_LOCKED));
    pin.hasPuk = false;
    EXPECT_EQ(unblockPin(pin, "12345678", "5678", "5678"), static_cast<CK_RV>(CKR_FUNCTION_NOT_SUPPORTED));
}

TEST(SimIdentityLink, TheKeptCaSignatureIsKeptForItsOwnBytesOnly) {
    CardKeys keys;
    keys.caKey = sharePkey(PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{1024})));
    keys.caCertificate = {1, 2, 3};
    const std::string serial = "9900000000000999";
    ASSERT_TRUE(makeDirectories(cardKeyDirectory(serial)));
    const Bytes data = {4, 5, 6}, other = {7};
    EXPECT_EQ(keptCaSignature(serial, keys, data), signWithCa(keys.caKey.get(), data));
    Bytes kept;
    ASSERT_TRUE(readWholeFile(cardKeyDirectory(serial) + "/identity-link.sig", kept));
    kept.back() ^= 1;  // what is read back is what is handed out
    ASSERT_TRUE(writeFileAtomically(cardKeyDirectory(serial) + "/identity-link.sig", kept));
    EXPECT_NE(keptCaSignature(serial, keys, data), signWithCa(keys.caKey.get(), data));
    EXPECT_EQ(keptCaSignature(serial, keys, other), signWithCa(keys.caKey.get(), other));
}

} // namespace
