// The popup menu (contents per card type, each choice's command, the real
// menu on screen), the double click, Ctrl+C and the two signature tests.
#include "tests/gui/WindowTestSupport.h"

#include "gui/InfoboxBereich.h"
#include "gui/TestDialog.h"
#include "sim/SimControl.h"

#include <wx/clipbrd.h>
#include <wx/dataobj.h>
#include <wx/listctrl.h>
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/timer.h>
#include <wx/uiaction.h>

#include <memory>

namespace WindowTests {
namespace {

// One line per entry: label (separators as "-"), submenus indented.
std::vector<std::string> Describe(wxMenu* menu, const std::string& indent = "")
{
    std::vector<std::string> lines;
    for (wxMenuItem* item : menu->GetMenuItems()) {
        if (item->IsSeparator()) {
            lines.push_back(indent + "-");
            continue;
        }
        std::string line = indent + item->GetItemLabelText().ToStdString(wxConvUTF8);
        if (!item->IsSubMenu())
            line += " " + std::to_string(item->GetId());
        lines.push_back(line);
        if (item->IsSubMenu()) {
            for (const std::string& sub : Describe(item->GetSubMenu(), indent + "  "))
                lines.push_back(sub);
        }
    }
    return lines;
}

// Records the modal dialogs and, of each signature test dialog, the key
// algorithm it shows.
class SignatureTestRecorder : public ModalRecorder {
public:
    SignatureTestRecorder()
    {
        inspect = [this](wxDialog* dialog) {
            if (TestDialog* test = dynamic_cast<TestDialog*>(dialog))
                keyAlgorithms.push_back(test->GetKeyAlgorithmField()->GetValue());
        };
    }
    std::vector<wxString> keyAlgorithms;
};

class MenuAndKeysTest : public MainWindowTest {
protected:
    // Right-clicks the card list and returns the popup menu that opened, as
    // Describe lists it (empty when none did); Escape closes it once it is up.
    std::vector<std::string> RightClickMenu()
    {
        // Shared with the handler, which stays bound to the window.
        auto shown = std::make_shared<std::vector<std::string>>();
        frame->Bind(wxEVT_MENU_OPEN, [shown](wxMenuEvent& event) {
            if (shown->empty() && event.GetMenu() != nullptr)
                *shown = Describe(event.GetMenu());
            event.Skip();
        });
        wxTimer closer;
        closer.Bind(wxEVT_TIMER, [](wxTimerEvent&) {
            wxUIActionSimulator keyboard;
            keyboard.Char(WXK_ESCAPE);
        });
        closer.Start(400);
        wxListEvent rightClick(wxEVT_LIST_ITEM_RIGHT_CLICK, MainFrame::ID_CARD_LIST);
        frame->GetEventHandler()->ProcessEvent(rightClick);
        closer.Stop();
        return *shown;
    }
};

TEST_F(MenuAndKeysTest, PopupOffersTheIdentityLinkOnlyForTypeZero)
{
    std::unique_ptr<wxMenu> first(frame->CreatePopupMenu(Korvex::TOKEN_ACOS_A03));
    EXPECT_EQ(Describe(first.get()), (std::vector<std::string>{
                                         "PIN \xC3\xA4ndern",
                                         "  Geheimhaltungszertifikat 5454",
                                         "  Signaturzertifikat 5455",
                                         "  Personenbindung 5456",
                                         "PIN ensperren",
                                         "  Geheimhaltungszertifikat 5457",
                                         "  Signaturzertifikat 5458",
                                         "  Personenbindung 5459",
                                         "-",
                                         "Zertifikat anzeigen",
                                         "  Geheimhaltungszertifikat 5460",
                                         "  Signaturzertifikat 5461",
                                         "Infobox anzeigen 5462",
                                         "-",
                                         "Signatur testen",
                                         "  Geheimhaltungszertifikat 5463",
                                         "  Signaturzertifikat 5464",
                                     }));
    for (Korvex::TokenType type : {Korvex::TOKEN_ACOS_A04, Korvex::TOKEN_ECARD_G3A, Korvex::TOKEN_UNKNOWN}) {
        std::unique_ptr<wxMenu> menu(frame->CreatePopupMenu(type));
        const std::vector<std::string> lines = Describe(menu.get());
        EXPECT_EQ(lines.size(), 15u) << type;
        for (const std::string& line : lines)
            EXPECT_EQ(line.find("Personenbindung"), std::string::npos) << type;
        // Nothing is ever disabled; the commands refuse what a card cannot do.
        EXPECT_TRUE(menu->IsEnabled(MainFrame::ID_POPUP_SIG_PUK)) << type;
    }
}

TEST_F(MenuAndKeysTest, PinChoicesReachTheirApplication)
{
    SelectCard(kJohann);
    struct Choice {
        int id;
        int pin;
        bool puk;
    };
    const Choice choices[] = {
        {MainFrame::ID_POPUP_ENC_CHANGE_PIN, VSIM_PIN_ENCRYPTION, false},
        {MainFrame::ID_POPUP_SIG_CHANGE_PIN, VSIM_PIN_SIGNATURE, false},
        {MainFrame::ID_POPUP_PERS_CHANGE_PIN, VSIM_PIN_IDENTITY_LINK, false},
        {MainFrame::ID_POPUP_ENC_PUK, VSIM_PIN_ENCRYPTION, true},
        {MainFrame::ID_POPUP_SIG_PUK, VSIM_PIN_SIGNATURE, true},
        {MainFrame::ID_POPUP_PERS_PUK, VSIM_PIN_IDENTITY_LINK, true},
    };
    for (const Choice& choice : choices) {
        SCOPED_TRACE(choice.id);
        // A wrong PIN or PUK of the right length costs exactly one try of
        // the application the choice is meant for.
        const std::string wrong = choice.puk ? "99999999" : (choice.pin == VSIM_PIN_SIGNATURE ? "999999" : "9999");
        const std::string fresh = choice.pin == VSIM_PIN_SIGNATURE ? "111111" : "1111";
        SetPinAnswers({wrong, fresh, fresh});
        ChoosePopupItem(choice.id);
        for (int pin : {VSIM_PIN_SIGNATURE, VSIM_PIN_ENCRYPTION, VSIM_PIN_IDENTITY_LINK}) {
            const int expectedPin = (!choice.puk && pin == choice.pin) ? 2 : 3;
            const int expectedPuk = (choice.puk && pin == choice.pin) ? 9 : 10;
            EXPECT_EQ(Sim::PinTries(kJohann.serial, pin), expectedPin) << "PIN " << pin;
            EXPECT_EQ(Sim::PukTries(kJohann.serial, pin), expectedPuk) << "PIN " << pin;
        }
        ASSERT_EQ(Sim::ResetState(kJohann.serial), static_cast<CK_RV>(CKR_OK));
    }
}

TEST_F(MenuAndKeysTest, CertificateChoicesOpenTheViewerOnTheRightCertificate)
{
    SelectCard(kMaria);
    ChoosePopupItem(MainFrame::ID_POPUP_ENC_SHOW);
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 1; }));
    ChoosePopupItem(MainFrame::ID_POPUP_SIG_SHOW);
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 2; }));
    const std::vector<std::string> viewed = ViewedCertificates();
    EXPECT_EQ(ReadBytes(viewed[0]), IssuedCertificate(kMaria, false));
    EXPECT_EQ(ReadBytes(viewed[1]), IssuedCertificate(kMaria, true));
}

TEST_F(MenuAndKeysTest, DialogChoicesOpenTheirDialogs)
{
    SelectCard(kJohann);
    SignatureTestRecorder recorder;
    ChoosePopupItem(MainFrame::ID_POPUP_SIG_TEST);
    ChoosePopupItem(MainFrame::ID_POPUP_ENC_TEST);
    ChoosePopupItem(MainFrame::ID_POPUP_PERS_SHOW);
    ChoosePopupItem(5465); // not a menu item: nothing happens
    ASSERT_EQ(recorder.seen.size(), 3u);
    EXPECT_EQ(recorder.seen[0].title,
              wxString::FromUTF8("Unterschriftentest mit Signaturschl\xC3\xBCssel (6-stellige PIN)"));
    EXPECT_EQ(recorder.seen[1].title,
              wxString::FromUTF8("Unterschriftentest mit Geheimhaltungsschl\xC3\xBC"
                                 "ssel (4-stellige PIN)"));
    EXPECT_EQ(recorder.seen[2].type, typeid(InfoboxBereich).name());
    // The signature key of an ACOS 03 card is RSA, its encryption key EC.
    EXPECT_EQ(recorder.keyAlgorithms, (std::vector<wxString>{"RSA", "ECC"}));
    EXPECT_FALSE(StatusShown());
}

TEST_F(MenuAndKeysTest, SignatureTestButtonsOpenTheDialogForTheSelectedCard)
{
    SelectCard(kErika);
    SignatureTestRecorder recorder;
    Click(MainFrame::ID_SIG_TEST);
    ASSERT_EQ(recorder.seen.size(), 1u);
    EXPECT_EQ(recorder.seen[0].type, typeid(TestDialog).name());
    // An e-card G2 signs with an EC key.
    EXPECT_EQ(recorder.keyAlgorithms, (std::vector<wxString>{"ECC"}));
}

TEST_F(MenuAndKeysTest, DoubleClickShowsTheEncryptionCertificate)
{
    SelectCard(kJohann);
    wxListEvent activate(wxEVT_LIST_ITEM_ACTIVATED, MainFrame::ID_CARD_LIST);
    frame->GetEventHandler()->ProcessEvent(activate);
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 1; }));
    EXPECT_EQ(ReadBytes(ViewedCertificates()[0]), IssuedCertificate(kJohann, false));
}

TEST_F(MenuAndKeysTest, DoubleClickFallsBackToTheSignatureCertificate)
{
    SelectCard(kJohann);
    // The first certificate search (for the encryption certificate) fails.
    Sim::SetFault("C_FindObjectsInit", kJohann.serial, CKR_DEVICE_ERROR, 1);
    wxListEvent activate(wxEVT_LIST_ITEM_ACTIVATED, MainFrame::ID_CARD_LIST);
    frame->GetEventHandler()->ProcessEvent(activate);
    ASSERT_TRUE(PumpUntil([] { return ViewedCertificates().size() == 1; }));
    Pump(200);
    EXPECT_EQ(ViewedCertificates().size(), 1u);
    EXPECT_EQ(ReadBytes(ViewedCertificates()[0]), IssuedCertificate(kJohann, true));
}

// Types Ctrl+C into the card list with the X server's test extension.
void TypeCtrlC(wxListCtrl* list)
{
    list->SetFocus();
    wxUIActionSimulator keyboard;
    keyboard.MouseMove(list->GetScreenPosition() + wxPoint(60, 40));
    Pump(100);
    keyboard.Char('c', wxMOD_CONTROL);
    Pump(300);
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

TEST_F(MenuAndKeysTest, CtrlCCopiesTheCardNumber)
{
    SelectCard(kMaria);
    SetClipboardText("vorher");
    TypeCtrlC(frame->GetCardList());
    EXPECT_EQ(ClipboardText(), kMaria.serial);

    // A plain "c" copies nothing.
    SetClipboardText("vorher");
    wxUIActionSimulator keyboard;
    keyboard.Char('c');
    Pump(300);
    EXPECT_EQ(ClipboardText(), "vorher");
}

TEST_F(MenuAndKeysTest, CtrlCWithAnEmptyListLeavesTheClipboardAlone)
{
    Sim::SetFault("C_GetSlotList", nullptr, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    ASSERT_EQ(frame->GetCardList()->GetItemCount(), 0);
    SetClipboardText("vorher");
    TypeCtrlC(frame->GetCardList());
    EXPECT_EQ(ClipboardText(), "vorher");
}

TEST_F(MenuAndKeysTest, RightClickShowsTheMenuForTheSelectedCard)
{
    SelectCard(kErika);
    const std::vector<std::string> shown = RightClickMenu();

    ASSERT_FALSE(shown.empty()) << "the menu did not open";
    EXPECT_EQ(shown.size(), 15u);
    for (const std::string& line : shown)
        EXPECT_EQ(line.find("Personenbindung"), std::string::npos);
    EXPECT_FALSE(StatusShown());
}

TEST_F(MenuAndKeysTest, RightClickOnAnEmptyListStillOffersTheIdentityLink)
{
    Sim::SetFault("C_GetSlotList", nullptr, CKR_DEVICE_ERROR, VSIM_ALWAYS);
    Reload();
    const std::vector<std::string> shown = RightClickMenu();
    ASSERT_EQ(shown.size(), 17u);
    EXPECT_EQ(shown[3], "  Personenbindung 5456");
}

} // namespace
} // namespace WindowTests
