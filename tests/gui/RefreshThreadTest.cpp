// The refresh thread on its own, without a window: what it reads per card, in
// reading order, and what it leaves out.
#include "tests/gui/WindowTestSupport.h"

#include "gui/RefreshCardThread.h"
#include "sim/SimControl.h"
#include "token/acPKCS11.h"

namespace WindowTests {
namespace {

class RefreshThreadTest : public testing::Test {
protected:
    void SetUp() override
    {
        UseTestCardSet(true);
        m_p11 = new Korvex::acPKCS11();
        ASSERT_TRUE(m_p11->init());
    }
    void TearDown() override
    {
        Sim::ClearFaults();
        m_p11->destroy();
        delete m_p11;
    }

    ListEntryVector Run()
    {
        RefreshCardThread thread(nullptr, m_p11);
        EXPECT_EQ(thread.Run(), wxTHREAD_NO_ERROR);
        thread.Wait();
        return thread.GetList();
    }

    Korvex::acPKCS11* m_p11 = nullptr;
};

TEST_F(RefreshThreadTest, FixedSlotFirstEachRowDescribesItsOwnCardWithPinsAndValidity)
{
    // A module that lists its fixed slot before the readers: token positions
    // and reader positions differ, the rows must not.
    m_p11->destroy();
    UseCardSet(R"(<cardset>
  <reader name="Vessa Internal Slot" removable="false">
    <card id="internal" generation="INTERNAL" serial="0000000000000001"/>
  </reader>
  <reader name="Vessa Reader 0">
    <card id="lukas" generation="ECARD-G3A" serial="3031000000003333" given="Lukas" family="Huber"
          birth="1971-09-09" sig-tries-left="1" cert-valid-days="45"/>
  </reader>
  <reader name="Vessa Reader 1"/>
  <reader name="Vessa Reader 2">
    <card id="maria" generation="ACOS-A04" serial="1204000000004711" given="Maria" family="Musterfrau"
          birth="1975-04-12" cert-valid-days="-30"/>
  </reader>
  <reader name="Vessa Reader 3">
    <card id="erika" generation="ECARD-G2" serial="3002000000004242" given="Erika" family="Beispiel"
          birth="1982-07-21"/>
  </reader>
</cardset>)");
    ASSERT_TRUE(m_p11->init());
    const ListEntryVector rows = Run();
    const TestCard* expected[] = {&kLukas, &kMaria, &kErika};
    const unsigned long slots[] = {1, 3, 4};
    ASSERT_EQ(rows.size(), 3u);
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(expected[i]->id);
        EXPECT_EQ(rows[i]->number, expected[i]->serial);
        EXPECT_EQ(rows[i]->typeName, expected[i]->typeName);
        EXPECT_EQ(rows[i]->type, expected[i]->type);
        EXPECT_EQ(rows[i]->slotId, slots[i]);
    }

    // PIN states as each generation tells them, checked against the card
    // (what the window makes of them: LiveCardListTest).
    EXPECT_EQ(rows[0]->pins.pins[Korvex::APPL_SIGNATURE].triesLeft, Sim::PinTries(kLukas.serial, VSIM_PIN_SIGNATURE));
    EXPECT_EQ(rows[1]->pins.pins[Korvex::APPL_SIGNATURE].triesLeft, 3) << "ACOS key PINs answer a status query";
    for (const Korvex::PinStatus& pin : rows[2]->pins.pins)
        EXPECT_FALSE(pin.known) << "the oldest e-card tells nothing";

    // Validity from the certificate the refresh parses anyway.
    const std::time_t now = std::time(nullptr);
    const long day = 24 * 3600;
    EXPECT_NEAR(static_cast<double>(rows[0]->validTo - now) / day, 45, 1);
    EXPECT_NEAR(static_cast<double>(rows[1]->validTo - now) / day, -30, 1);
    EXPECT_LT(rows[1]->validFrom, rows[1]->validTo);
    EXPECT_FALSE(rows[2]->issuer.empty());
}

TEST(TokenTypeDisplayName, NamesTheSevenGenerationsOnly)
{
    EXPECT_EQ(TokenTypeDisplayName(0), "vessa premium ACOS 03");
    EXPECT_EQ(TokenTypeDisplayName(3), "vessa premium e-Card G2");
    EXPECT_EQ(TokenTypeDisplayName(6), "vessa premium e-Card G4");
    EXPECT_EQ(TokenTypeDisplayName(7), "");
    EXPECT_EQ(TokenTypeDisplayName(-1), "");
}

} // namespace
} // namespace WindowTests
