// The popup menu (contents per card type, each choice's command, the real
// menu on screen), the double click, Ctrl+C and the two signature tests.
#include "tests/gui/WindowTestSupport.h"

#include "gui/InfoboxBereich.h"
#include "gui/TestDialog.h"
#include "sim/SimControl.h"

#include <wx/clipbrd.h>
#include <wx/dataobj.h>
#include "gui/CardList.h"
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/timer.h>
#include <wx/uiaction.h>

#include <memory>

namespace WindowTests {
namespace {

// One line per entry: label (separators as "-"), submenus indented.
Lines Describe(wxMenu* menu, const std::string& indent = "")
{
    Lines lines;
    for (wxMenuItem* item : menu->GetMenuItems()) {
        if (item->IsSeparator()) {
            lines.push_back(indent + "-");
            continue;
        }
        std::string line = indent + item->GetItemLabelText().ToStdString(wxConvUTF8);
        lines.push_back(item->IsSubMenu() ? line : line + " " + std::to_string(item->GetId()));
        if (item->IsSubMenu()) {
            for (const std::string& sub : Describe(item->GetSubMenu(), indent + "  "))
                lines.push_back(sub);
        }
    }
    return lines;
}

const Lines kTypeZeroMenu = {
    "PIN \xC3\xA4ndern",     "  Geheimhaltungszertifikat 5454", "  Signaturzertifikat 5455",
    "  Personenbindung 5456", "PIN ensperren",                    "  Geheimhaltungszertifikat 5457",
    "  Signaturzertifikat 5458", "  Personenbindung 5459",        "-",
    "Zertifikat anzeigen",   "  Geheimhaltungszertifikat 5460", "  Signaturzertifikat 5461",
    "Infobox anzeigen 5462", "-",                               "Signatur testen",
    "  Geheimhaltungszertifikat 5463", "  Signaturzertifikat 5464",
    "-",                     "Zertifikat speichern\xE2\x80\xA6", "  Geheimhaltungszertifikat 5530",
    "  Signaturzertifikat 5531", "Diagnose 5532",
};

// The type-0 menu without the two identity-link entries.
Lines WithoutIdentityLink()
{
    Lines lines;
    for (const std::string& line : kTypeZeroMenu)
        if (line.find("Personenbindung") == std::string::npos)
            lines.push_back(line);
    return lines;
}

wxString ClipboardText()
{
    wxString text;
    if (wxTheClipboard->Open()) {
        wxTextDataObject data;
        if (wxTheClipboard->GetData(data))
            text = data.GetText();
        wxTheClipboard->Close();
    }
    return text;
}

void SetClipboardText(const wxString& text)
{
    if (wxTheClipboard->Open()) {
        wxTheClipboard->SetData(new wxTextDataObject(text));
        wxTheClipboard->Close();
    }
}

class MenuAndKeysTest : public MainWindowTest {
protected:
    // Right-clicks the card list and returns the popup menu that opened
    // (empty when none did); Escape closes it once it is up.
    Lines RightClickMenu(long row = -1)
    {
        auto shown = std::make_shared<Lines>(); // the handler stays bound to the window
        frame->Bind(wxEVT_MENU_OPEN, [shown](wxMenuEvent& event) {
            if (shown->empty() && event.GetMenu() != nullptr)
                *shown = Describe(event.GetMenu());
            event.Skip();
        });
        wxTimer closer;
        closer.Bind(wxEVT_TIMER, [](wxTimerEvent&) { wxUIActionSimulator().Char(WXK_ESCAPE); });
        closer.Start(400);
        CardList* list = frame->GetCardList();
        wxDataViewEvent rightClick(wxEVT_DATAVIEW_ITEM_CONTEXT_MENU, list,
                                   row < 0 ? wxDataViewItem() : list->RowToItem(row));
        frame->GetEventHandler()->ProcessEvent(rightClick);
        closer.Stop();
        return *shown;
    }

    // Types a key into the card list with the X server's test extension.
    void TypeIntoList(char key, int modifiers)
    {
        frame->GetCardList()->SetFocus();
        wxUIActionSimulator keyboard;
        keyboard.MouseMove(frame->GetCardList()->GetScreenPosition() + wxPoint(60, 40));
        Pump(100);
        keyboard.Char(key, modifiers);
        Pump(300);
    }

    void DoubleClick()
    {
        wxDataViewEvent activate(wxEVT_DATAVIEW_ITEM_ACTIVATED, frame->GetCardList(), wxDataViewItem());
        frame->GetEventHandler()->ProcessEvent(activate);
    }
};

TEST_F(MenuAndKeysTest, PopupOffersTheIdentityLinkOnlyForTypeZeroAndDisablesNothing)
{
    for (Korvex::TokenType type : {Korvex::TOKEN_ACOS_A03, Korvex::TOKEN_ACOS_A04, Korvex::TOKEN_ECARD_G3A,
                                   Korvex::TOKEN_UNKNOWN}) {
        std::unique_ptr<wxMenu> menu(frame->CreatePopupMenu(type));
        EXPECT_EQ(Describe(menu.get()), type == Korvex::TOKEN_ACOS_A03 ? kTypeZeroMenu : WithoutIdentityLink())
            << type;
        EXPECT_TRUE(menu->IsEnabled(MainFrame::ID_POPUP_SIG_PUK)) << type;
    }
    // The real menu on screen: for the selected card, and the type-0 menu
    // when the list is empty.
    SelectCard(kJohann);
    EXPECT_EQ(RightClickMenu(RowOf(kErika)), WithoutIdentityLink()) << "the menu is for the row clicked";
    EXPECT_EQ(SelectedRow(), RowOf(kErika));
    Sim::SetFault("C_GetSlotList", nullptr, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    EXPECT_EQ(RightClickMenu(), kTypeZeroMenu);
    ExpectStatus("Die Kartenliste konnte nicht gelesen werden.", true);
}

TEST_F(MenuAndKeysTest, PinChoicesReachTheirApplication)
{
    SelectCard(kJohann);
    const struct {
        int id, pin;
        bool puk;
    } choices[] = {
        {MainFrame::ID_POPUP_ENC_CHANGE_PIN, VSIM_PIN_ENCRYPTION, false},
        {MainFrame::ID_POPUP_SIG_CHANGE_PIN, VSIM_PIN_SIGNATURE, false},
        {MainFrame::ID_POPUP_PERS_CHANGE_PIN, VSIM_PIN_IDENTITY_LINK, false},
        {MainFrame::ID_POPUP_ENC_PUK, VSIM_PIN_ENCRYPTION, true},
        {MainFrame::ID_POPUP_SIG_PUK, VSIM_PIN_SIGNATURE, true},
        {MainFrame::ID_POPUP_PERS_PUK, VSIM_PIN_IDENTITY_LINK, true},
    };
    for (const auto& choice : choices) {
        SCOPED_TRACE(choice.id);
        // A wrong PIN or PUK of the right length costs exactly one try of the
        // application the choice is meant for.
        const std::string wrong = choice.puk ? "99999999" : (choice.pin == VSIM_PIN_SIGNATURE ? "999999" : "9999");
        const std::string fresh = choice.pin == VSIM_PIN_SIGNATURE ? "111111" : "1111";
        SetPinAnswers({wrong, fresh, fresh});
        ChoosePopupItem(choice.id);
        for (int pin : {VSIM_PIN_SIGNATURE, VSIM_PIN_ENCRYPTION, VSIM_PIN_IDENTITY_LINK}) {
            EXPECT_EQ(Sim::PinTries(kJohann.serial, pin), (!choice.puk && pin == choice.pin) ? 2 : 3) << pin;
            EXPECT_EQ(Sim::PukTries(kJohann.serial, pin), (choice.puk && pin == choice.pin) ? 9 : 10) << pin;
        }
        ASSERT_EQ(Sim::ResetState(kJohann.serial), static_cast<CK_RV>(CKR_OK));
    }
}

TEST_F(MenuAndKeysTest, CertificateCommandsOpenTheViewerOnTheRightCertificate)
{
    SelectCard(kMaria);
    ChoosePopupItem(MainFrame::ID_POPUP_ENC_SHOW);
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 1; }));
    ChoosePopupItem(MainFrame::ID_POPUP_SIG_SHOW);
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 2; }));
    // A double click shows the encryption certificate, or the signature
    // certificate when that one cannot be found.
    SelectCard(kJohann);
    DoubleClick();
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 3; }));
    Sim::SetFault("C_FindObjectsInit", kJohann.serial, CKR_DEVICE_ERROR, 1);
    DoubleClick();
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 4; }));
    Pump(200);
    const std::vector<std::string> viewed = ViewedCertificates();
    ASSERT_EQ(viewed.size(), 4u);
    EXPECT_EQ(ReadBytes(viewed[0]), IssuedCertificate(kMaria.serial, false));
    EXPECT_EQ(ReadBytes(viewed[1]), IssuedCertificate(kMaria.serial, true));
    EXPECT_EQ(ReadBytes(viewed[2]), IssuedCertificate(kJohann.serial, false));
    EXPECT_EQ(ReadBytes(viewed[3]), IssuedCertificate(kJohann.serial, true));
}

TEST_F(MenuAndKeysTest, DialogCommandsOpenTheirDialogsForTheSelectedCard)
{
    ModalRecorder recorder;
    std::vector<wxString> keyAlgorithms;
    recorder.inspect = [&keyAlgorithms](wxDialog* dialog) {
        if (TestDialog* test = dynamic_cast<TestDialog*>(dialog))
            keyAlgorithms.push_back(test->GetKeyAlgorithmField()->GetValue());
    };
    SelectCard(kJohann);
    ChoosePopupItem(MainFrame::ID_POPUP_SIG_TEST);
    ChoosePopupItem(MainFrame::ID_POPUP_ENC_TEST);
    ChoosePopupItem(MainFrame::ID_POPUP_PERS_SHOW);
    ChoosePopupItem(5465); // not a menu item: nothing happens
    SelectCard(kErika);
    Click(MainFrame::ID_SIG_TEST);
    ASSERT_EQ(recorder.seen.size(), 4u);
    EXPECT_EQ(recorder.seen[0].title, Utf8("Unterschriftentest mit Signaturschl\xC3\xBCssel (6-stellige PIN)"));
    EXPECT_EQ(recorder.seen[1].title, Utf8("Unterschriftentest mit Geheimhaltungsschl\xC3\xBCssel (4-stellige PIN)"));
    EXPECT_EQ(recorder.seen[2].type, typeid(InfoboxBereich).name());
    EXPECT_EQ(recorder.seen[3].type, typeid(TestDialog).name());
    // ACOS 03: RSA signature key, EC encryption key; an e-card G2 signs with EC.
    EXPECT_EQ(keyAlgorithms, (std::vector<wxString>{"RSA", "ECC", "ECC"}));
    EXPECT_FALSE(StatusShown());
}

TEST_F(MenuAndKeysTest, CtrlCCopiesTheSelectedCardNumberOnly)
{
    SelectCard(kMaria);
    SetClipboardText("vorher");
    TypeIntoList('c', wxMOD_NONE);
    EXPECT_EQ(ClipboardText(), "vorher");
    TypeIntoList('c', wxMOD_CONTROL);
    EXPECT_EQ(ClipboardText(), kMaria.serial);

    Sim::SetFault("C_GetSlotList", nullptr, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    SetClipboardText("vorher");
    TypeIntoList('c', wxMOD_CONTROL);
    EXPECT_EQ(ClipboardText(), "vorher");
}

} // namespace
} // namespace WindowTests
