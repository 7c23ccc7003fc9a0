// The simulator's parts on their own: the written forms of faults and card
// sets, and Assuan escaping.
#include "formats/Personenbindung.h"
#include "sim/CardData.h"
#include "sim/CardSet.h"
#include "sim/CardStateText.h"
#include "sim/ControlFile.h"
#include "sim/Der.h"
#include "sim/FaultRules.h"
#include "sim/PinEntry.h"
#include "sim/PinState.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace VessaSim;

namespace {

TEST(SimFaultRules, ParsesEveryFormAndRefusesNonsense) {
    std::vector<FaultRule> rules;
    std::string error;
    ASSERT_TRUE(parseFaultRules(" C_Sign@1204000000004711=CKR_PIN_LOCKED*2 ; C_GetSlotList=0x30;*@slot:3=malformed*1;",
                               rules, error))
        << error;
    ASSERT_EQ(rules.size(), 3u);
    EXPECT_EQ(rules[0].function, "C_Sign");
    EXPECT_EQ(rules[0].card, "1204000000004711");
    EXPECT_EQ(rules[0].rv, static_cast<CK_RV>(CKR_PIN_LOCKED));
    EXPECT_EQ(rules[0].times, 2);
    EXPECT_EQ(rules[1].card, "*");
    EXPECT_EQ(rules[1].rv, 0x30u);
    EXPECT_EQ(rules[1].times, -1);
    EXPECT_TRUE(rules[2].malformed);
    EXPECT_EQ(faultRuleToString(rules[0]), "C_Sign@1204000000004711=CKR_PIN_LOCKED*2");
    EXPECT_EQ(faultRuleToString(rules[2]), "*@slot:3=malformed*1");

    for (const char* bad : {"C_Sign", "Sign=CKR_OK", "C_Sign=CKR_NOTHING", "C_Sign=0x30*x", "C_Sign=12abc"}) {
        std::vector<FaultRule> none;
        EXPECT_FALSE(parseFaultRules(bad, none, error)) << bad;
        EXPECT_TRUE(none.empty());
    }
    EXPECT_EQ(returnCodeName(0x54), "CKR_FUNCTION_NOT_SUPPORTED");
    EXPECT_EQ(returnCodeName(0x80000123UL), "0x80000123");
}

TEST(SimCardSet, ValidatesCardsAndRoundTripsGeneratedSets) {
    struct Bad {
        const char* xml;
        const char* complaint;
    } bad[] = {
        {"<cardset/>", "without readers"},
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

    CardSetSpec generated = generatedCardSet(9);
    std::istringstream xml(cardSetToXml(generated));
    CardSetSpec parsed;
    std::string error;
    ASSERT_TRUE(parseCardSet(xml, parsed, error)) << error;
    ASSERT_EQ(parsed.readers.size(), 9u);
    EXPECT_EQ(parsed.readers[7].card->generation, Generation::AcosA03);  // generations in turn
    EXPECT_EQ(parsed.readers[8].card->serial, generated.readers[8].card->serial);
    EXPECT_EQ(parsed.readers[8].card->holderName(), generated.readers[8].card->holderName());
    EXPECT_TRUE(parsed.findCard("card3"));

    CardSpec adHoc;
    EXPECT_TRUE(resolveCard(demoCardSet(), "ecard-g3a:3031000000001234", adHoc, error));
    EXPECT_EQ(adHoc.generation, Generation::ECardG3A);
    EXPECT_TRUE(resolveCard(demoCardSet(), "1205000000000505", adHoc, error));
    EXPECT_EQ(adHoc.givenName, "Anna");
    EXPECT_FALSE(resolveCard(demoCardSet(), "ACOS-A04:123", adHoc, error));
    EXPECT_FALSE(resolveCard(demoCardSet(), "nobody", adHoc, error));
}

TEST(SimPinEntry, EscapesWhatAssuanReserves) {
    EXPECT_EQ(PinEntry::escape("100%\nfertig\r"), "100%25%0Afertig%0D");
    EXPECT_EQ(PinEntry::unescape("12%2534%0A%zz%4"), "12%34\n%zz%4");
    EXPECT_EQ(PinEntry::unescape(PinEntry::escape("a%b\nc")), "a%b\nc");
}

} // namespace
