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
#include <wx/stattext.h>
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

TEST_F(InfoboxBereichTest, TheViewerRepaintsWhileTheCardIsReadAndStaysOpenMeanwhile) {
    Open(kJohann, Korvex::TOKEN_ACOS_A03);
    int ticks = 0;
    bool closedDuringRead = true, controlsOffDuringRead = false;
    wxTimer timer;
    timer.Bind(wxEVT_TIMER, [&](wxTimerEvent&) {
        if (++ticks != 2) return;
        controlsOffDuringRead = dialog->IsCardWorkRunning() && !dialog->GetList()->IsEnabled();
        closedDuringRead = dialog->Close();
    });
    TestSupport::Sim::SetLatency(150, 150);  // a slow reader
    timer.Start(20);
    Select(Utf8("Personenbindung"));
    timer.Stop();
    TestSupport::Sim::SetLatency(0, 0);
    // Ticks come late on a loaded machine: a tick after the close attempt
    // is enough to show that the loop ran on.
    EXPECT_GT(ticks, 2) << "the event loop stood still while the card was read";
    EXPECT_TRUE(controlsOffDuringRead);
    EXPECT_FALSE(closedDuringRead) << "closing waits for the card";
    EXPECT_TRUE(dialog->GetList()->IsEnabled());
    EXPECT_TRUE(Text().StartsWith(Utf8("Vorname: Johann\r\n"))) << Text();
}

TEST_F(InfoboxBereichTest, FixedLayoutListsThreeObjectsAndShowsTheIdentityLink) {
    Open(kJohann, Korvex::TOKEN_ACOS_A03);
    EXPECT_FALSE(dialog->IsInfoboxFileMode());
    EXPECT_EQ(Items(dialog->GetList()), (std::vector<wxString>{"Personenbindung", "RFU1", "RFU2"}));
    Select("Personenbindung");
    EXPECT_EQ(TestSupport::LayoutFaults(dialog), std::vector<std::string>{});
    const wxString shown = Binary();
    EXPECT_EQ(shown, SpacedHex(ReadObject(kJohann, "PERSONENBINDUNG")));
    EXPECT_TRUE(Text().StartsWith(Utf8("Vorname: Johann\r\nNachname: Österreicher\r\n"
                                       "Geburtsdatum: 1959-01-30\r\n\r\nIssuerTemplate: ")))
        << Text();
    EXPECT_NE(Text().Find("\r\nIssueInstant: "), wxNOT_FOUND);
    EXPECT_FALSE(dialog->GetProtectButton()->IsEnabled());

    // The same item again is not read again (a read would now fail and
    // clear the pages); a zero-filled object shows nothing.
    Sim::SetFault("C_OpenSession", kJohann.serial, CKR_DEVICE_ERROR, 1);
    Select("Personenbindung");
    EXPECT_EQ(Binary(), shown);
    Select("RFU1");
    EXPECT_TRUE(Binary().empty());
    EXPECT_TRUE(Text().empty());
    dialog->SetContent({0x41, 0x00, 0x42, 0x0A, 0x43}, InfoboxBereich::CONTENT_OTHER);
    EXPECT_EQ(Binary(), "41 00 42 0A 43");
    EXPECT_EQ(Text(), "A.B\nC");
    EXPECT_EQ(dialog->noPersBShown, 0);

    Open(kOtto, Korvex::TOKEN_ACOS_A03);  // no identity link: asks for the writer on selection
    EXPECT_EQ(dialog->noPersBShown, 0);
    Select("Personenbindung");
    EXPECT_EQ(dialog->noPersBShown, 1);
    EXPECT_TRUE(Binary().empty());
}

TEST_F(InfoboxBereichTest, AnUnreadableIdentityLinkIsAReadErrorNotAMissingOne) {
    // Both layouts, with the search, the read or the read's answer failing:
    // the card has an identity link, so no writer is offered.
    const char* const faults[] = {"C_FindObjectsInit@%s=CKR_DEVICE_ERROR*1", "C_GetAttributeValue@%s=CKR_DEVICE_ERROR*1",
                                  "C_GetAttributeValue@%s=malformed*1"};
    for (const char* fault : faults) {
        for (const Card* card : {&kMaria, &kJohann}) {
            SCOPED_TRACE(std::string(fault) + " " + card->serial);
            Open(*card, card == &kMaria ? Korvex::TOKEN_ACOS_A04 : Korvex::TOKEN_ACOS_A03);
            ASSERT_EQ(Sim::AddFaults(wxString::Format(fault, card->serial).utf8_str()), CKR_OK);
            if (card == &kMaria)
                Open(kMaria, Korvex::TOKEN_ACOS_A04);
            else
                Select("Personenbindung");
            EXPECT_EQ(dialog->noPersBShown, 0);
            EXPECT_TRUE(dialog->GetNotice()->IsShown());
            EXPECT_EQ(dialog->GetNotice()->GetLabel(), "Die Karte konnte nicht gelesen werden.");
            Sim::ClearFaults();
        }
    }
}

TEST_F(InfoboxBereichTest, ProtectionSwitchWritesTheFlagAndRebuildsTheList) {
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    EXPECT_FALSE(dialog->GetProtectButton()->IsEnabled());
    Select("02 RFU1");
    EXPECT_EQ(dialog->GetProtectButton()->GetLabel(), Utf8("verschlüsselt speichern"));
    const wxString content = Binary();
    const std::vector<unsigned char> rfu = ReadObject(kMaria, "0x02");
    EXPECT_EQ(Text(), wxString::FromUTF8(reinterpret_cast<const char*>(rfu.data()), rfu.size()));
    SetPinAnswers({"CANCEL"});  // a failed switch leaves everything as it was
    SwitchProtection();
    EXPECT_EQ(EntryType(kMaria, 2) & 1, 0);
    EXPECT_EQ(dialog->GetList()->GetStringSelection(), "02 RFU1");
    EXPECT_FALSE(Binary().empty());

    SetPinAnswers({"4321"});  // writing a data object asks the identity-link PIN
    SwitchProtection();
    EXPECT_EQ(EntryType(kMaria, 2) & 1, 1);
    EXPECT_EQ(Items(dialog->GetList()).size(), 3u);
    EXPECT_EQ(dialog->GetList()->GetSelection(), wxNOT_FOUND);
    EXPECT_FALSE(dialog->GetProtectButton()->IsEnabled());
    EXPECT_TRUE(Binary().empty());

    // Reopened, the entry reads as protected (reading and writing each ask
    // the PIN) with its content unchanged, and offers the way back.
    Open(kMaria, Korvex::TOKEN_ACOS_A04);
    SetPinAnswers({"4321", "4321"});
    Select("02 RFU1");
    EXPECT_EQ(Binary(), content);
    EXPECT_EQ(dialog->GetProtectButton()->GetLabel(), Utf8("unverschlüsselt speichern"));
    SwitchProtection();
    EXPECT_EQ(EntryType(kMaria, 2) & 1, 0);
}

} // namespace
