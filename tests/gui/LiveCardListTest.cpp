// The card list as it follows the readers without the reload button, and the
// PIN states and certificate validity it shows, on the simulated module.
#include "tests/gui/WindowTestSupport.h"

#include "app/ProgramConfig.h"
#include "base/Config.h"
#include "sim/SimControl.h"

#include "gui/CardList.h"
#include <filesystem>
#include <wx/stattext.h>

namespace WindowTests {
namespace {

using Rows = std::vector<std::string>;
const char kLocked[] = "PIN gesperrt \xE2\x80\x93 mit PUK entsperren";

class LiveCardListTest : public MainWindowTest {
protected:
    // Waits until the rows are `numbers` and no refresh runs.
    bool WaitForRows(const Rows& numbers, double seconds = 5.0)
    {
        return PumpUntil([&] { return !frame->IsRefreshRunning() && RowNumbers() == numbers; }, seconds);
    }
    std::string PinLabel(int appl) const
    {
        return frame->GetPinStateText(static_cast<Korvex::ApplType>(appl))->GetLabel().ToStdString(wxConvUTF8);
    }
    int RowImage(long row) const
    {
        return frame->GetCardList()->RowImage(row);
    }
    void RunPinCommand(int id, const Lines& answers)
    {
        SetPinAnswers(answers);
        Click(id);
        Pump(20);
    }
};

TEST_F(LiveCardListTest, CardsComingAndGoingAreSeenWithoutReloadAndOneRefreshFollowsACommand)
{
    SelectCard(kMaria);
    int before = refreshes;
    ASSERT_EQ(Sim::InsertCard(kEmptyReader, kLukas.id), static_cast<CK_RV>(CKR_OK));
    ASSERT_TRUE(WaitForRows({kLukas.serial, kBlank.serial, kErika.serial, kMaria.serial, kJohann.serial}));
    EXPECT_EQ(refreshes, before + 1);
    EXPECT_EQ(RowText(0, 2), kLukas.typeName);
    EXPECT_EQ(SelectedRow(), 3) << "the selection stays with the card, not with the row";

    // While a command uses the module nothing else calls it: the cards that
    // come and go meanwhile make one refresh once the command has ended.
    before = refreshes;
    {
        MainFrame::CommandScope command(frame);
        ASSERT_EQ(Sim::RemoveCard(kEmptyReader), static_cast<CK_RV>(CKR_OK));
        ASSERT_EQ(Sim::RemoveCard(1), static_cast<CK_RV>(CKR_OK)); // Maria
        ASSERT_EQ(Sim::InsertCard(1, kMaria.id), static_cast<CK_RV>(CKR_OK));
        ASSERT_EQ(Sim::RemoveCard(2), static_cast<CK_RV>(CKR_OK)); // Erika
        Pump(700);
        EXPECT_EQ(refreshes, before);
        EXPECT_EQ(RowNumbers().size(), 5u);
    }
    ASSERT_TRUE(WaitForRows({kBlank.serial, kMaria.serial, kJohann.serial}));
    Pump(700);
    EXPECT_EQ(refreshes, before + 1);
}

TEST_F(LiveCardListTest, WithTheSettingOffOnlyTheReloadButtonReadsTheCards)
{
    // The all-users settings file of this test's scratch folder.
    const std::string folder = ScratchDir() + "/etc/korvex/vessaclient";
    std::filesystem::create_directories(folder);
    WriteText(folder + "/config", "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                                  "<config><vessa_Client><AutoRefresh>0</AutoRefresh></vessa_Client></config>\n");
    Korvex::Config::GetHandle(0)->Destroy();
    GenerateConfig();
    TearDown();
    SetUp();
    const int before = refreshes;
    ASSERT_EQ(Sim::RemoveCard(0), static_cast<CK_RV>(CKR_OK)); // Johann
    Pump(700);
    EXPECT_EQ(refreshes, before);
    EXPECT_EQ(RowNumbers().size(), 4u);
    Reload();
    EXPECT_EQ(RowNumbers(), (Rows{kBlank.serial, kErika.serial, kMaria.serial}));
    Korvex::Config::GetHandle(0)->Destroy();
}

TEST_F(LiveCardListTest, WrongPinsCostVisibleTriesAndALockedPinCanOnlyBeUnblocked)
{
    // An e-card that counts its tries: each wrong PIN shows at once.
    ASSERT_EQ(Sim::InsertCard(kEmptyReader, kLukas.id), static_cast<CK_RV>(CKR_OK));
    ASSERT_TRUE(PumpUntil([this] { return !frame->IsRefreshRunning() && RowNumbers().size() == 5; }));
    SelectCard(kLukas);
    EXPECT_EQ(PinLabel(Korvex::APPL_SIGNATURE), "PIN: noch 3 Versuche");
    EXPECT_EQ(PinLabel(Korvex::APPL_ENCRYPTION), "PIN: noch 3 Versuche");
    EXPECT_EQ(PinLabel(Korvex::APPL_IDENTITY_LINK), "") << "unknown states show nothing";
    RunPinCommand(MainFrame::ID_SIG_CHANGE_PIN, {"999999", "111111", "111111"});
    EXPECT_EQ(PinLabel(Korvex::APPL_SIGNATURE), "PIN: noch 2 Versuche");
    RunPinCommand(MainFrame::ID_SIG_CHANGE_PIN, {"999999", "111111", "111111"});
    EXPECT_EQ(PinLabel(Korvex::APPL_SIGNATURE), "PIN: nur noch 1 Versuch");
    EXPECT_EQ(RowImage(RowOf(kLukas)), 1) << "a PIN on its last try marks the row";
    // Locked, it cannot be unblocked: the line says what the holder can do.
    RunPinCommand(MainFrame::ID_SIG_CHANGE_PIN, {"999999", "111111", "111111"});
    EXPECT_EQ(PinLabel(Korvex::APPL_SIGNATURE), "PIN gesperrt \xE2\x80\x93 neue Karte beim Kartenaussteller anfordern");
    EXPECT_FALSE(IsEnabled(MainFrame::ID_SIG_CHANGE_PIN));

    // An ACOS card's key PINs answer a status query; a locked one turns its
    // change button off. Its identity-link PIN is not this window's to change.
    SelectCard(kMaria);
    EXPECT_EQ(PinLabel(Korvex::APPL_ENCRYPTION), "PIN: noch 3 Versuche");
    EXPECT_EQ(PinLabel(Korvex::APPL_IDENTITY_LINK), "PIN: hier nicht \xC3\xA4nderbar");
    for (int attempt = 0; attempt < 3; ++attempt)
        RunPinCommand(MainFrame::ID_ENC_CHANGE_PIN, {"9999", "1111", "1111"});
    EXPECT_EQ(PinLabel(Korvex::APPL_ENCRYPTION), kLocked);
    EXPECT_FALSE(IsEnabled(MainFrame::ID_ENC_CHANGE_PIN));
    EXPECT_TRUE(IsEnabled(MainFrame::ID_SIG_CHANGE_PIN));

    // An ACOS card's login PIN is its identity-link PIN (token flags): once
    // locked, its change button goes off and its unblock button stays on.
    SelectCard(kJohann);
    EXPECT_EQ(PinLabel(Korvex::APPL_IDENTITY_LINK), "PIN: in Ordnung");
    for (int attempt = 0; attempt < 3; ++attempt)
        RunPinCommand(MainFrame::ID_PERS_CHANGE, {"9999", "1111", "1111"});
    EXPECT_EQ(PinLabel(Korvex::APPL_IDENTITY_LINK), kLocked);
    EXPECT_FALSE(IsEnabled(MainFrame::ID_PERS_CHANGE));
    EXPECT_TRUE(IsEnabled(MainFrame::ID_PERS_PUK));
    EXPECT_TRUE(IsEnabled(MainFrame::ID_SIG_CHANGE_PIN));
    EXPECT_EQ(RowImage(RowOf(kJohann)), 1);
    // Another card selected and back: the buttons follow the card.
    SelectCard(kMaria);
    SelectCard(kJohann);
    EXPECT_FALSE(IsEnabled(MainFrame::ID_PERS_CHANGE));

    RunPinCommand(MainFrame::ID_PERS_PUK, {"11223344", "1111", "1111"});
    EXPECT_EQ(Sim::PinTries(kJohann.serial, VSIM_PIN_IDENTITY_LINK), 3);
    EXPECT_EQ(PinLabel(Korvex::APPL_IDENTITY_LINK), "PIN: in Ordnung");
    EXPECT_TRUE(IsEnabled(MainFrame::ID_PERS_CHANGE));
    EXPECT_EQ(RowImage(RowOf(kJohann)), 0);

    // While a reload reads the cards, the list is empty and so are the lines.
    Sim::SetLatency(300);
    ClickWithoutWaiting(MainFrame::ID_RELOAD);
    ASSERT_TRUE(PumpUntil([this] { return frame->IsRefreshRunning() && RowNumbers().empty(); }));
    for (int appl : {Korvex::APPL_SIGNATURE, Korvex::APPL_ENCRYPTION, Korvex::APPL_IDENTITY_LINK})
        EXPECT_EQ(PinLabel(appl), "") << appl;
    Sim::SetLatency(0);
    WaitForRefresh();
}

} // namespace
} // namespace WindowTests
