// The card list of the real window on the simulated module: the first
// refresh, row order and contents, the selection rules per card type, reloads
// after cards come and go, and module failures during a refresh.
#include "tests/gui/WindowTestSupport.h"

#include "sim/SimControl.h"

#include <wx/bmpbuttn.h>
#include <wx/listctrl.h>
#include <wx/toplevel.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

namespace WindowTests {
namespace {

const int kCommandButtons[] = {
    MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_SIG_PUK,      MainFrame::ID_SIG_SHOW_CERT,
    MainFrame::ID_SIG_TEST,       MainFrame::ID_ENC_CHANGE_PIN, MainFrame::ID_ENC_PUK,
    MainFrame::ID_ENC_SHOW,       MainFrame::ID_ENC_TEST,     MainFrame::ID_PERS_CHANGE,
    MainFrame::ID_PERS_PUK,       MainFrame::ID_PERS_SHOW,
};

void ExpectNoWindowLeftAndANewOneReadsEveryCard()
{
    for (wxWindow* window : wxTopLevelWindows)
        EXPECT_EQ(dynamic_cast<MainFrame*>(window), nullptr) << "a closed main window is still there";
    MainFrame* next = new MainFrame(nullptr);
    next->Show();
    EXPECT_TRUE(PumpUntil([next] { return !next->IsRefreshRunning() && next->GetCardList()->GetItemCount() == 4; }))
        << next->GetCardList()->GetItemCount() << " rows";
    next->Destroy();
    Pump(50);
}

class CardListTest : public MainWindowTest {
protected:
    void ExpectRow(long row, const TestCard& card)
    {
        wxListCtrl* list = frame->GetCardList();
        EXPECT_EQ(RowText(row, 0), card.serial) << "row " << row;
        EXPECT_EQ(RowText(row, 1), *card.holder ? card.holder : "unbekannt") << "row " << row;
        EXPECT_EQ(RowText(row, 2), card.typeName) << "row " << row;
        EXPECT_EQ(static_cast<int>(list->GetItemData(row)), card.type) << "row " << row;
        wxListItem item;
        item.SetId(row);
        item.SetMask(wxLIST_MASK_IMAGE);
        ASSERT_TRUE(list->GetItem(item));
        EXPECT_EQ(item.GetImage(), 0) << "row " << row << " lacks the chip image";
    }

    // Enabled state of the four buttons the card-type rules touch.
    void ExpectRestrictions(bool persEnabled, bool unblockEnabled)
    {
        EXPECT_EQ(IsEnabled(MainFrame::ID_PERS_CHANGE), persEnabled);
        EXPECT_EQ(IsEnabled(MainFrame::ID_PERS_PUK), persEnabled);
        EXPECT_EQ(IsEnabled(MainFrame::ID_SIG_PUK), unblockEnabled);
        EXPECT_EQ(IsEnabled(MainFrame::ID_ENC_PUK), unblockEnabled);
        // The rules never touch these.
        for (int id : {MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_SIG_SHOW_CERT, MainFrame::ID_SIG_TEST,
                       MainFrame::ID_ENC_CHANGE_PIN, MainFrame::ID_ENC_SHOW, MainFrame::ID_ENC_TEST,
                       MainFrame::ID_PERS_SHOW, MainFrame::ID_RELOAD})
            EXPECT_TRUE(IsEnabled(id)) << "control " << id;
    }
};

TEST_F(CardListTest, FirstRefreshListsTheLastCardReadOnTopAndSelectsIt)
{
    ASSERT_EQ(frame->GetCardList()->GetItemCount(), 4);
    // Readers are read 0..3; the internal slot is not removable and is left out.
    ExpectRow(0, kBlank);
    ExpectRow(1, kErika);
    ExpectRow(2, kMaria);
    ExpectRow(3, kJohann);
    EXPECT_EQ(SelectedRow(), 0);
    EXPECT_FALSE(frame->GetWaitDialog().IsShown());
    EXPECT_FALSE(frame->IsRefreshRunning());
}

TEST_F(CardListTest, WindowHasItsColumnsTitleAndButtons)
{
    wxListCtrl* list = frame->GetCardList();
    ASSERT_EQ(list->GetColumnCount(), 3);
    const char* titles[] = {"Kartennummer", "Ausgestellt f\xC3\xBCr", "Kartentyp"};
    const int widths[] = {170, 350, 190};
    for (int column = 0; column < 3; ++column) {
        wxListItem header;
        header.SetMask(wxLIST_MASK_TEXT | wxLIST_MASK_WIDTH);
        ASSERT_TRUE(list->GetColumn(column, header));
        EXPECT_EQ(header.GetText(), wxString::FromUTF8(titles[column]));
        EXPECT_EQ(list->GetColumnWidth(column), widths[column]);
    }
    EXPECT_TRUE(list->HasFlag(wxLC_SINGLE_SEL));
    EXPECT_EQ(frame->GetTitle(), "Kartenverwaltung (x64)");

    const std::pair<int, const char*> labels[] = {
        {MainFrame::ID_SIG_CHANGE_PIN, "6 stellige PIN \xC3\xA4ndern"},
        {MainFrame::ID_SIG_PUK, "6 stellige PIN entsperren"},
        {MainFrame::ID_SIG_SHOW_CERT, "Zertifikat anzeigen"},
        {MainFrame::ID_SIG_TEST, "Signatur testen"},
        {MainFrame::ID_ENC_CHANGE_PIN, "4 stellige PIN \xC3\xA4ndern"},
        {MainFrame::ID_ENC_PUK, "4 stellige PIN entsperren"},
        {MainFrame::ID_ENC_SHOW, "Zertifikat anzeigen"},
        {MainFrame::ID_ENC_TEST, "Signatur testen"},
        {MainFrame::ID_PERS_CHANGE, "4 stellige PIN \xC3\xA4ndern"},
        {MainFrame::ID_PERS_PUK, "4 stellige PIN entsperren"},
        {MainFrame::ID_PERS_SHOW, "Infobox anzeigen"},
    };
    for (const auto& label : labels) {
        wxWindow* button = frame->FindWindow(label.first);
        ASSERT_NE(button, nullptr) << label.first;
        EXPECT_EQ(button->GetLabel(), wxString::FromUTF8(label.second)) << label.first;
    }
    EXPECT_NE(wxDynamicCast(frame->FindWindow(MainFrame::ID_RELOAD), wxBitmapButton), nullptr);
    // Nothing has been reported yet.
    EXPECT_FALSE(frame->GetStatusText()->IsShown());
    EXPECT_FALSE(frame->GetStatusIcon()->IsShown());
}

TEST_F(CardListTest, SelectionRulesFollowTheCardType)
{
    SelectCard(kJohann); // type 0: identity-link PIN buttons on
    ExpectRestrictions(true, true);
    SelectCard(kMaria); // type 1
    ExpectRestrictions(false, true);
    frame->MyEnable(true);
    SelectCard(kBlank); // type 2
    ExpectRestrictions(false, true);
    SelectCard(kErika); // type 3: no identity-link PIN, no unblock
    ExpectRestrictions(false, false);

    // Back on a type-0 card the identity-link buttons return, but the unblock
    // buttons stay off until the window is unlocked again.
    SelectCard(kJohann);
    EXPECT_TRUE(IsEnabled(MainFrame::ID_PERS_CHANGE));
    EXPECT_TRUE(IsEnabled(MainFrame::ID_PERS_PUK));
    EXPECT_FALSE(IsEnabled(MainFrame::ID_SIG_PUK));
    EXPECT_FALSE(IsEnabled(MainFrame::ID_ENC_PUK));
    frame->MyEnable(true);
    ExpectRestrictions(true, true);
}

TEST_F(CardListTest, LockingDisablesEveryCommandAndUnlockingReappliesTheRules)
{
    SelectCard(kErika);
    frame->MyEnable(false);
    for (int id : kCommandButtons)
        EXPECT_FALSE(IsEnabled(id)) << id;
    EXPECT_FALSE(IsEnabled(MainFrame::ID_RELOAD));
    EXPECT_FALSE(frame->GetCardList()->IsEnabled());

    frame->MyEnable(true);
    EXPECT_TRUE(frame->GetCardList()->IsEnabled());
    ExpectRestrictions(false, false);
}

TEST_F(CardListTest, InsertedTypeFourCardAppearsOnTopAfterAReload)
{
    ASSERT_EQ(Sim::InsertCard(kEmptyReader, kLukas.id), static_cast<CK_RV>(CKR_OK));
    Reload();
    ASSERT_EQ(frame->GetCardList()->GetItemCount(), 5);
    ExpectRow(0, kLukas);
    ExpectRow(1, kBlank);
    EXPECT_EQ(SelectedRow(), 0);
    // An e-card G3A: no identity-link PIN buttons and no unblock buttons.
    ExpectRestrictions(false, false);
}

TEST_F(CardListTest, RemovedCardIsGoneAfterAReload)
{
    ASSERT_EQ(Sim::RemoveCard(1), static_cast<CK_RV>(CKR_OK)); // Maria
    Reload();
    EXPECT_EQ(RowNumbers(), (std::vector<std::string>{kBlank.serial, kErika.serial, kJohann.serial}));
    EXPECT_EQ(SelectedRow(), 0);
}

TEST_F(CardListTest, ReloadShowsTheWaitBoxAndLocksTheWindowWhileReading)
{
    // Slow cards keep the refresh running long enough to look at the window.
    Sim::SetLatency(150);
    Click(MainFrame::ID_RELOAD);
    EXPECT_TRUE(frame->IsRefreshRunning());
    EXPECT_TRUE(frame->GetWaitDialog().IsShown());
    EXPECT_FALSE(IsEnabled(MainFrame::ID_RELOAD));
    EXPECT_FALSE(frame->GetCardList()->IsEnabled());
    EXPECT_EQ(frame->GetCardList()->GetItemCount(), 0);
    WaitForRefresh();
    Sim::SetLatency(0);
    EXPECT_EQ(frame->GetCardList()->GetItemCount(), 4);
}

TEST_F(CardListTest, CardWhoseSessionFailsIsLeftOut)
{
    Sim::SetFault("C_OpenSession", kErika.serial, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    EXPECT_EQ(RowNumbers(), (std::vector<std::string>{kBlank.serial, kMaria.serial, kJohann.serial}));
}

TEST_F(CardListTest, CardWithoutReadableCertificateIsListedAsUnknownHolder)
{
    Sim::SetFault("C_FindObjectsInit", kMaria.serial, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    const long row = RowOf(kMaria);
    ASSERT_GE(row, 0);
    EXPECT_EQ(RowText(row, 1), "unbekannt");
    EXPECT_EQ(RowText(row, 2), kMaria.typeName);
    EXPECT_EQ(RowText(RowOf(kJohann), 1), kJohann.holder);
}

TEST_F(CardListTest, UnreadableSlotListLeavesAnEmptyUnlockedWindow)
{
    Sim::SetFault("C_GetSlotList", nullptr, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    EXPECT_EQ(frame->GetCardList()->GetItemCount(), 0);
    EXPECT_EQ(SelectedRow(), -1);
    EXPECT_TRUE(IsEnabled(MainFrame::ID_RELOAD));
    for (int id : kCommandButtons)
        EXPECT_TRUE(IsEnabled(id)) << id;

    // With the module back, the next reload lists the cards again.
    Sim::ClearFaults();
    Reload();
    EXPECT_EQ(frame->GetCardList()->GetItemCount(), 4);
}

TEST_F(CardListTest, CommandWithoutSelectionActsOnTheFirstRow)
{
    frame->GetCardList()->SetItemState(0, 0, wxLIST_STATE_SELECTED);
    ASSERT_EQ(SelectedRow(), -1);
    std::string number;
    Korvex::TokenType type = Korvex::TOKEN_UNKNOWN;
    frame->GetSelectedItem(number, type);
    EXPECT_EQ(number, kBlank.serial);
    EXPECT_EQ(type, kBlank.type);
    EXPECT_EQ(SelectedRow(), 0);
}

} // namespace
} // namespace WindowTests

namespace WindowTests {
namespace {

// Closing while a refresh runs: the window goes (its thread joined, the late
// result dropped) and the next window still reads every card.
TEST_F(CardListTest, ClosingTheWindowDuringARefreshIsSafe)
{
    Sim::SetLatency(100);
    Click(MainFrame::ID_RELOAD);
    ASSERT_TRUE(frame->IsRefreshRunning());
    frame->Destroy();
    frame = nullptr;
    Pump(300);
    Sim::SetLatency(0);
    ExpectNoWindowLeftAndANewOneReadsEveryCard();
}

} // namespace
} // namespace WindowTests

namespace WindowTests {
namespace {

TEST(MainWindowLifetime, ClosingRightAfterStartIsSafe)
{
    UseTestCardSet(true);
    for (int delayMs : {0, 1, 3, 10, 30}) {
        MainFrame* frame = new MainFrame(nullptr);
        frame->Show();
        Pump(delayMs);
        frame->Destroy();
        Pump(100);
    }
    ExpectNoWindowLeftAndANewOneReadsEveryCard();
}

} // namespace
} // namespace WindowTests
