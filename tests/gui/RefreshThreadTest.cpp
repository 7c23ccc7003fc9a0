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

TEST_F(RefreshThreadTest, ReadsOneEntryPerCardInReaderOrderAndNoneWithoutASlotList)
{
    const ListEntryVector rows = Run();
    const TestCard* expected[] = {&kJohann, &kMaria, &kErika, &kBlank};
    ASSERT_EQ(rows.size(), 4u);
    for (size_t i = 0; i < rows.size(); ++i) {
        const TestCard& card = *expected[i];
        EXPECT_EQ(rows[i]->number, card.serial);
        EXPECT_EQ(rows[i]->holder, wxString::FromUTF8(*card.holder ? card.holder : "unbekannt"));
        EXPECT_EQ(rows[i]->typeName, card.typeName);
        EXPECT_EQ(rows[i]->type, card.type);
    }
    EXPECT_EQ(m_p11->GetSessionHandle(), 0u) << "the thread leaves no session behind";
    Sim::SetFault("C_GetSlotList", nullptr, CKR_DEVICE_ERROR, 1);
    EXPECT_TRUE(Run().empty());
}

TEST_F(RefreshThreadTest, UnreadableTokenInformationLeavesTheTypeUnknown)
{
    // Erika's token information fails: the slot enumeration skips her card,
    // and the card read in her place looks at her token position (a position
    // counts every slot with a token), so that row gets no type.
    Sim::SetFault("C_GetTokenInfo", kErika.serial, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    const ListEntryVector rows = Run();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0]->typeName, kJohann.typeName);
    EXPECT_EQ(rows[1]->typeName, kMaria.typeName);
    EXPECT_EQ(rows[2]->number, kBlank.serial);
    EXPECT_EQ(rows[2]->typeName, "");
    EXPECT_EQ(rows[2]->type, Korvex::TOKEN_UNKNOWN);
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
