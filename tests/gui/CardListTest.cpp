// The card list of the real window on the simulated module: its columns, the
// selection rules per card type, module failures during a refresh, the
// tooltip, the empty list's hint and commands without a selection.
#include "tests/gui/WindowTestSupport.h"

#include "sim/SimControl.h"

#include "gui/CardList.h"
#include <wx/stattext.h>
#include <wx/toplevel.h>
#include <wx/tooltip.h>
#include <wx/uiaction.h>

namespace WindowTests {
namespace {

using Rows = std::vector<std::string>;

const int kCommandButtons[] = {
    MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_SIG_PUK, MainFrame::ID_SIG_SHOW_CERT, MainFrame::ID_SIG_TEST,
    MainFrame::ID_ENC_CHANGE_PIN, MainFrame::ID_ENC_PUK, MainFrame::ID_ENC_SHOW,      MainFrame::ID_ENC_TEST,
    MainFrame::ID_PERS_CHANGE,    MainFrame::ID_PERS_PUK, MainFrame::ID_PERS_SHOW,
};

class CardListTest : public MainWindowTest {
protected:
    // The four buttons the card-type rules touch; the rules leave the others on.
    void ExpectRestrictions(bool persEnabled, bool unblockEnabled)
    {
        EXPECT_EQ(IsEnabled(MainFrame::ID_PERS_CHANGE), persEnabled);
        EXPECT_EQ(IsEnabled(MainFrame::ID_PERS_PUK), persEnabled);
        EXPECT_EQ(IsEnabled(MainFrame::ID_SIG_PUK), unblockEnabled);
        EXPECT_EQ(IsEnabled(MainFrame::ID_ENC_PUK), unblockEnabled);
        for (int id : {MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_SIG_SHOW_CERT, MainFrame::ID_SIG_TEST,
                       MainFrame::ID_ENC_CHANGE_PIN, MainFrame::ID_ENC_SHOW, MainFrame::ID_ENC_TEST,
                       MainFrame::ID_PERS_SHOW, MainFrame::ID_RELOAD})
            EXPECT_TRUE(IsEnabled(id)) << "control " << id;
    }
};

TEST_F(CardListTest, ColumnsHaveTheirTitlesAndWidthsAndOneRowAtATimeIsSelectable)
{
    CardList* list = frame->GetCardList();
    const char* titles[] = {"Kartennummer", "Ausgestellt f\xC3\xBCr", "Kartentyp", "G\xC3\xBCltig bis"};
    const int widths[] = {170, 350, 190, 170};
    ASSERT_EQ(list->GetColumnCount(), 4u);
    for (unsigned column = 0; column < 4; ++column) {
        EXPECT_EQ(list->GetColumn(column)->GetTitle(), Utf8(titles[column]));
        // The last column takes what room the view has left.
        if (column < 3)
            EXPECT_EQ(list->GetColumn(column)->GetWidth(), widths[column]);
        else
            EXPECT_GE(list->GetColumn(column)->GetWidth(), widths[column]);
    }
    EXPECT_FALSE(list->HasFlag(wxDV_MULTIPLE));
}

TEST_F(CardListTest, SelectionAndLockingRulesFollowTheCardType)
{
    SelectCard(kJohann); // type 0: identity-link PIN buttons on
    ExpectRestrictions(true, true);
    SelectCard(kMaria); // type 1
    ExpectRestrictions(false, true);
    SelectCard(kErika); // type 3: no identity-link PIN, no unblock
    ExpectRestrictions(false, false);
    SelectCard(kBlank); // type 2
    ExpectRestrictions(false, true);
    frame->MyEnable(false);
    for (int id : kCommandButtons)
        EXPECT_FALSE(IsEnabled(id)) << id;
    EXPECT_FALSE(IsEnabled(MainFrame::ID_RELOAD));
    EXPECT_FALSE(frame->GetCardList()->IsEnabled());
    frame->MyEnable(true);
    EXPECT_TRUE(frame->GetCardList()->IsEnabled());
    ExpectRestrictions(false, true);
}

TEST_F(CardListTest, ModuleFailuresDuringARefreshLeaveOutWhatCannotBeReadAndSayWhat)
{
    Sim::SetFault("C_OpenSession", kErika.serial, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Sim::SetFault("C_FindObjectsInit", kMaria.serial, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    EXPECT_EQ(RowNumbers(), (Rows{kBlank.serial, kMaria.serial, kJohann.serial}));
    EXPECT_EQ(RowText(1, 1), "unbekannt"); // no certificate, no holder
    EXPECT_EQ(RowText(1, 2), kMaria.typeName);
    ExpectStatus("Eine Karte konnte nicht gelesen werden.", true);
    SelectCard(kMaria);
    Click(MainFrame::ID_SIG_SHOW_CERT);
    ExpectStatus("Das Zertifikat konnte nicht gelesen werden.", true);

    // Objects that cannot be read: the PIN states are not vouched for. A
    // card whose token information cannot be read is missing: said too.
    Sim::ClearFaults();
    Sim::SetFault("C_GetAttributeValue", kMaria.serial, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    ExpectStatus("Die Daten der Karte 1204000000004711 konnten nicht gelesen werden.", true);
    SelectCard(kMaria);
    EXPECT_EQ(frame->GetPinStateText(Korvex::APPL_IDENTITY_LINK)->GetLabel(), "PIN-Status unbekannt");
    Sim::ClearFaults();
    Sim::SetFault("C_GetTokenInfo", kErika.serial, CKR_GENERAL_ERROR, VSIM_ALWAYS);
    Reload();
    EXPECT_EQ(RowNumbers().size(), 3u);
    ExpectStatus("Eine Karte konnte nicht gelesen werden.", true);
    Sim::ClearFaults();
    Reload(); // a good read ends the waits between retries

    // A one-off failure of the slot list: the window says so, and the next
    // automatic try brings the cards back without the reload button.
    Sim::SetFault("C_GetSlotList", nullptr, CKR_DEVICE_ERROR, 1);
    Reload();
    EXPECT_EQ(frame->GetCardList()->GetItemCount(), 0);
    EXPECT_EQ(SelectedRow(), -1);
    ExpectStatus("Die Kartenliste konnte nicht gelesen werden.", true);
    for (int id : kCommandButtons)
        EXPECT_TRUE(IsEnabled(id)) << id;
    EXPECT_TRUE(PumpUntil([this] { return !frame->IsRefreshRunning() && RowNumbers().size() == 4; }, 10.0));
}

TEST_F(CardListTest, TheTooltipBelongsToTheRowUnderThePointer)
{
    SelectCard(kMaria);
    CardList* list = frame->GetCardList();
    wxUIActionSimulator mouse;
    for (const TestCard* card : {&kErika, &kJohann}) {
        SCOPED_TRACE(card->id);
        const wxRect row = list->GetItemRect(list->RowToItem(RowOf(*card)));
        mouse.MouseMove(list->ClientToScreen(row.GetPosition() + wxPoint(row.width / 2, row.height / 2)));
        Pump(200);
        EXPECT_TRUE(list->GetToolTipText().Contains(wxString(RowText(RowOf(*card), 3)).Left(10)))
            << list->GetToolTipText();
    }
    // Below the last row nothing covers the list.
    mouse.MouseMove(list->ClientToScreen(wxPoint(list->GetClientSize().x / 2, list->GetClientSize().y - 8)));
    Pump(200);
    EXPECT_EQ(list->GetToolTip(), nullptr);
}

TEST_F(CardListTest, AnEmptyListSaysWhetherTheCardOrTheReaderIsMissing)
{
    EXPECT_FALSE(frame->GetListHint()->IsShown());
    for (CK_SLOT_ID reader = 0; reader < 4; ++reader)
        ASSERT_EQ(Sim::RemoveCard(reader), static_cast<CK_RV>(CKR_OK));
    ASSERT_TRUE(PumpUntil([this] { return !frame->IsRefreshRunning() && RowNumbers().empty(); }));
    EXPECT_TRUE(frame->GetListHint()->IsShown());
    EXPECT_EQ(frame->GetListHint()->GetLabel(),
              Utf8("Keine Karte gefunden. Bitte stecken Sie Ihre Karte in den Kartenleser."));

    TearDown();
    cardSet = R"(<cardset><reader name="Vessa Internal Slot" removable="false">
                   <card id="internal" generation="INTERNAL" serial="0000000000000001"/></reader></cardset>)";
    SetUp();
    EXPECT_EQ(frame->GetListHint()->GetLabel(),
              Utf8("Kein Kartenleser gefunden. Bitte schlie\xC3\x9F" "en Sie einen Kartenleser an."));
}

TEST_F(CardListTest, CommandWithoutSelectionActsOnTheFirstRow)
{
    frame->GetCardList()->UnselectAll();
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
