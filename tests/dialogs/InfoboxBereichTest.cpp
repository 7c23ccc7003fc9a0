// Infobox viewer on the simulated cards: the fixed-object and the infobox-file
// layout, content pages, the identity-link summary, the protection switch and
// the missing-identity-link cases.
#include "gui/InfoboxBereich.h"

#include "base/ByteArray.h"
#include "formats/InfoboxFS.h"
#include "gui/MainFrame.h"
#include "tests/dialogs/GuiSupport.h"
#include "token/acPKCS11.h"

#include <wx/button.h>
#include <wx/listbox.h>
#include <wx/notebook.h>
#include <wx/textctrl.h>

#include <gtest/gtest.h>

using namespace DialogTests;

namespace {

// Counts the requests for the missing-identity-link dialog instead of
// showing it modally.
class RecordingInfobox : public InfoboxBereich {
public:
    using InfoboxBereich::InfoboxBereich;
    void ShowNoPersB() override { ++noPersBShown; }
    int noPersBShown = 0;
};

std::vector<wxString> Items(wxListBox* list) {
    std::vector<wxString> items;
    for (unsigned i = 0; i < list->GetCount(); ++i) items.push_back(list->GetString(i));
    return items;
}

// Type byte of an entry in the card's infobox file.
int EntryType(const Card& card, unsigned char tag) {
    LibInfobox::InfoboxFS file;
    if (!file.ParseInfoboxData(Korvex::ByteArray(ReadObject(card, "INFOBOX")))) return -1;
    unsigned char type = 0;
    Korvex::ByteArray data;
    return file.GetEntry(tag, type, data) ? type : -1;
}

class InfoboxBereichTest : public OpenDialogTest<RecordingInfobox> {
protected:
    RecordingInfobox* Open(const Card& card, Korvex::TokenType type) {
        if (dialog) dialog->Destroy();
        dialog = new RecordingInfobox(Frame(), type);
        dialog->SetP11(Token(), card.position);
        dialog->Show();
        wxTimer timer;
        wxTimerEvent start(timer);
        dialog->evt_OnTimer(start);
        return dialog;
    }

    void Select(const wxString& item) {
        wxListBox* list = dialog->GetList();
        const int index = list->FindString(item);
        ASSERT_NE(index, wxNOT_FOUND) << item;
        list->SetSelection(index);
        wxCommandEvent event(wxEVT_LISTBOX, InfoboxBereich::ID_LISTBOX);
        event.SetInt(index);
        event.SetString(item);
        dialog->evt_listbox(event);
    }

    void SwitchProtection() {
        wxCommandEvent event(wxEVT_BUTTON, InfoboxBereich::ID_PROTECT);
        dialog->evt_encrypt(event);
    }

    wxString Binary() const { return dialog->GetBinaryPage()->GetValue(); }
    wxString Text() const { return dialog->GetTextPage()->GetValue(); }
};

TEST_F(InfoboxBereichTest, FixedLayoutListsThreeObjectsAndShowsTheIdentityLink) {
    Open(kJohann, Korvex::TOKEN_ACOS_A03);
    EXPECT_FALSE(dialog->IsInfoboxFileMode());
    EXPECT_EQ(Items(dialog->GetList()),
              (std::vector<wxString>{"Personenbindung", "RFU1", "RFU2"}));
    EXPECT_FALSE(dialog->GetProtectButton()->IsEnabled());

    Select("Personenbindung");
    EXPECT_EQ(Binary(), SpacedHex(ReadObject(kJohann, "PERSONENBINDUNG")));
    const wxString expected = Utf8("Vorname: Johann\r\nNachname: Österreicher\r\n"
                                   "Geburtsdatum: 1959-01-30\r\n\r\nIssuerTemplate: ");
    EXPECT_TRUE(Text().StartsWith(expected)) << Text();
    EXPECT_NE(Text().Find("\r\nIssueInstant: "), wxNOT_FOUND);
    EXPECT_FALSE(dialog->GetProtectButton()->IsEnabled());
    EXPECT_EQ(dialog->noPersBShown, 0);
}

TEST_F(InfoboxBereichTest, ZeroFilledObjectShowsNothing) {
    Open(kJohann, Korvex::TOKEN_ACOS_A03);
    Select("Personenbindung");
    ASSERT_FALSE(Binary().empty());
    Select("RFU1");  // 256 zero bytes on the card
    EXPECT_TRUE(Binary().empty());
    EXPECT_TRUE(Text().empty());
    EXPECT_EQ(dialog->noPersBShown, 0);
}

TEST_F(InfoboxBereichTest, MissingIdentityLinkInFixedLayoutAsksForTheWriter) {
    Open(kOtto, Korvex::TOKEN_ACOS_A03);
    EXPECT_EQ(dialog->noPersBShown, 0);
    Select("Personenbindung");
    EXPECT_EQ(dialog->noPersBShown, 1);
    EXPECT_TRUE(Binary().empty());
}

TEST_F(InfoboxBereichTest, SelectingTheSameItemAgainDoesNotReadTheCard) {
    Open(kJohann, Korvex::TOKEN_ACOS_A03);
    Select("Personenbindung");
    const wxString shown = Binary();
    ASSERT_FALSE(shown.empty());
    // A read now would fail and clear the pages.
    Sim::SetFault("C_OpenSession", kJohann.serial, CKR_DEVICE_ERROR, -1);
    Select("Personenbindung");
    EXPECT_EQ(Binary(), shown);
    Select("RFU2");
    EXPECT_TRUE(Binary().empty());
}

TEST_F(InfoboxBereichTest, InfoboxFileListsEntriesByTagAndLabel) {
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    EXPECT_TRUE(dialog->IsInfoboxFileMode());
    EXPECT_EQ(Items(dialog->GetList()),
              (std::vector<wxString>{"01 PERSONENBINDUNG", "02 RFU1", "03 RFU2"}));
    EXPECT_EQ(dialog->GetList()->GetSelection(), wxNOT_FOUND);
    EXPECT_FALSE(dialog->GetProtectButton()->IsEnabled());

    Select("01 PERSONENBINDUNG");
    EXPECT_EQ(Binary(), SpacedHex(ReadObject(kMaria, "0x01")));
    EXPECT_TRUE(Text().StartsWith(Utf8("Vorname: Maria\r\nNachname: Musterfrau\r\n"
                                       "Geburtsdatum: 1975-04-12")))
        << Text();
    EXPECT_TRUE(dialog->GetProtectButton()->IsEnabled());
    EXPECT_EQ(dialog->GetProtectButton()->GetLabel(), Utf8("verschlüsselt speichern"));

    Select("02 RFU1");
    const std::vector<unsigned char> rfu = ReadObject(kMaria, "0x02");
    ASSERT_FALSE(rfu.empty());
    EXPECT_EQ(Binary(), SpacedHex(rfu));
    EXPECT_EQ(Text(), wxString::FromUTF8(reinterpret_cast<const char*>(rfu.data()), rfu.size()));
}

TEST_F(InfoboxBereichTest, ProtectionSwitchWritesTheFlagAndRebuildsTheList) {
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    ASSERT_EQ(EntryType(kMaria, 2) & 1, 0);
    Select("02 RFU1");
    const wxString content = Binary();
    SetPinAnswers({"4321"});  // writing a data object asks the identity-link PIN
    SwitchProtection();

    EXPECT_EQ(EntryType(kMaria, 2) & 1, 1);
    EXPECT_EQ(Items(dialog->GetList()).size(), 3u);
    EXPECT_EQ(dialog->GetList()->GetSelection(), wxNOT_FOUND);
    EXPECT_FALSE(dialog->GetProtectButton()->IsEnabled());
    EXPECT_TRUE(Binary().empty());

    // Reopened, the entry reads as protected (its content now needs the PIN)
    // and offers the way back; the content was written back unchanged.
    // Reading a protected object and writing it each ask the PIN.
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    SetPinAnswers({"4321", "4321"});
    Select("02 RFU1");
    EXPECT_EQ(Binary(), content);
    EXPECT_EQ(dialog->GetProtectButton()->GetLabel(), Utf8("unverschlüsselt speichern"));
    SwitchProtection();
    EXPECT_EQ(EntryType(kMaria, 2) & 1, 0);
}

TEST_F(InfoboxBereichTest, FailedProtectionSwitchLeavesTheList) {
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    Select("02 RFU1");
    SetPinAnswers({"CANCEL"});
    SwitchProtection();
    EXPECT_EQ(EntryType(kMaria, 2) & 1, 0);
    EXPECT_EQ(dialog->GetList()->GetStringSelection(), "02 RFU1");
    EXPECT_FALSE(Binary().empty());
}

TEST_F(InfoboxBereichTest, UnreadableInfoboxFileGivesEmptyListAndTheWriterDialog) {
    Sim::SetFault("C_FindObjectsInit", kMaria.serial, CKR_DEVICE_ERROR, 1);
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    EXPECT_TRUE(dialog->GetList()->IsEmpty());
    EXPECT_EQ(dialog->noPersBShown, 1);
}

TEST_F(InfoboxBereichTest, InfoboxFileWithoutIdentityLinkListsTheOtherEntries) {
    Open(kLena, Korvex::TOKEN_ACOS_A05);
    EXPECT_EQ(Items(dialog->GetList()), (std::vector<wxString>{"02 RFU1", "03 RFU2"}));
    EXPECT_EQ(dialog->noPersBShown, 0);
}

TEST_F(InfoboxBereichTest, ContentPagesForOtherData) {
    Open(kJohann, Korvex::TOKEN_ACOS_A03);
    dialog->SetContent({0x41, 0x00, 0x42, 0x0A, 0x43}, InfoboxBereich::CONTENT_OTHER);
    EXPECT_EQ(Binary(), "41 00 42 0A 43");
    EXPECT_EQ(Text(), "A.B\nC");
    dialog->SetContent({0x41}, InfoboxBereich::CONTENT_CLEAR);
    EXPECT_TRUE(Binary().empty());
    EXPECT_TRUE(Text().empty());
}

TEST_F(InfoboxBereichTest, Screenshot) {
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    Select("01 PERSONENBINDUNG");
    ASSERT_FALSE(Text().empty());
    // Show the summary page rather than the hex dump.
    auto* pages = dynamic_cast<wxNotebook*>(dialog->GetTextPage()->GetParent());
    ASSERT_NE(pages, nullptr);
    pages->SetSelection(1);
    ExpectScreenshot(dialog, "infobox");
}

} // namespace
