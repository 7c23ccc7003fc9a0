// The window on the module's built-in demo cards: its layout from the
// smallest size to seven cards, its pictures at the display scale, and every
// text of it and its dialogs in English.
#include "tests/gui/WindowTestSupport.h"

#include "app/I18N.h"
#include "gui/CardList.h"
#include "gui/Images.h"
#include "gui/XpmImage.h"
#include "sim/SimControl.h"

#include <wx/image.h>
#include <wx/intl.h>
#include <wx/regex.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>
#include <cstdlib>

namespace WindowTests {
namespace {

class DemoWindowTest : public MainWindowTest {
protected:
    bool UsesTestCardSet() const override { return false; }
};

// The window on the English catalogue the build made, as under an English
// desktop.
class EnglishWindowTest : public DemoWindowTest {
protected:
    void SetUp() override
    {
        setenv("LANG", "en_US.UTF-8", 1);
        unsetenv("LC_ALL");
        unsetenv("LC_MESSAGES");
        wxLocale::AddCatalogLookupPathPrefix(Utf8((BinaryDir() + "/share/VessaClient/vessaclient/I18N").c_str()));
        ASSERT_EQ(I18N::GetHandle()->Initialize(wxLANGUAGE_DEFAULT), I18N::I18N_OK);
        DemoWindowTest::SetUp();
    }
    void TearDown() override
    {
        DemoWindowTest::TearDown();
        I18N::Destroy();
    }
};

// Dark grey pixels along the list's right edge, below its header: the
// vertical scrollbar's slider, when one shows.
int ScrollbarPixels(MainFrame* frame, const std::string& shot)
{
    EXPECT_TRUE(SaveScreenshot(frame, shot));
    wxImage picture;
    if (!picture.LoadFile(Utf8((shot + ".png").c_str())))
        return -1;
    const wxRect list(frame->ScreenToClient(frame->GetCardList()->GetScreenPosition()),
                      frame->GetCardList()->GetSize());
    int dark = 0;
    for (int y = list.y + 40; y < list.GetBottom() - 20; ++y)
        for (int x = list.GetRight() - 12; x < list.GetRight() - 2; ++x)
            dark += std::abs(picture.GetRed(x, y) - picture.GetBlue(x, y)) < 12 && picture.GetBlue(x, y) < 180;
    return dark;
}

TEST_F(DemoWindowTest, AnExpiredCertificateIsMarkedInItsRow)
{
    EXPECT_TRUE(wxString(RowText(3, 3)).EndsWith(Utf8("(abgelaufen)"))) << RowText(3, 3);
}

TEST_F(DemoWindowTest, TheListStaysUsableFromTheSmallestWindowToSevenCards)
{
    const std::string shots = BinaryDir() + "/screenshots"; // SaveScreenshot makes the folder
    ASSERT_EQ(Sim::InsertCard(5, "anna"), static_cast<CK_RV>(CKR_OK));
    ASSERT_TRUE(PumpUntil([this] { return !frame->IsRefreshRunning() && RowNumbers().size() == 7; }));
    CardList* list = frame->GetCardList();
    const wxRect lastRow = list->GetItemRect(list->RowToItem(6));
    EXPECT_EQ(ScrollbarPixels(frame, shots + "/main-window-seven-cards"), 0) << "no row hidden, no scrollbar";

    // Every row shows at the size the window opens with.
    EXPECT_LE(lastRow.GetBottom(), list->GetClientSize().y);

    frame->SetSize(640, 480);
    Pump(300);
    EXPECT_EQ(frame->GetSize(), wxSize(640, 480));
    EXPECT_GT(ScrollbarPixels(frame, shots + "/main-window-smallest"), 20) << "rows hidden without a scrollbar";
    EXPECT_GE(list->GetClientSize().y, 4 * lastRow.height) << "fewer than four rows show";
    const wxRect banner = frame->GetBanner()->GetScreenRect();
    EXPECT_TRUE(frame->GetScreenRect().Contains(banner)) << "the banner is cut off";
    EXPECT_EQ(LayoutFaults(frame), std::vector<std::string>{});
}

// Every label and title of the window and its children, and the text fields.
void CollectTexts(wxWindow* window, std::vector<wxString>& texts)
{
    if (!window->GetLabel().empty())
        texts.push_back(window->GetLabel());
    if (wxTextCtrl* field = dynamic_cast<wxTextCtrl*>(window))
        texts.push_back(field->GetValue());
    for (wxWindow* child : window->GetChildren())
        CollectTexts(child, texts);
}

void ExpectNoGerman(const std::vector<wxString>& texts)
{
    for (const wxString& text : texts) {
        for (const char* german : {"\xC3\xA4", "\xC3\xB6", "\xC3\xBC", "\xC3\x9F", "Karte", "Zertifikat", "anzeigen",
                                   "testen", "Versuch", "entsperren", "ist ein"})
            EXPECT_FALSE(text.Contains(Utf8(german))) << text;
    }
}

// Also run with GDK_SCALE=2 (the CTest entry ending in "AtScale2"): the
// pictures then come drawn at twice the size, never enlarged; the window is
// saved as screenshots/main-window-scale<N>.png to be looked at.
TEST_F(DemoWindowTest, PicturesComeAtTheDisplayScale)
{
    const double scale = frame->GetContentScaleFactor();
    frame->SetStatus("Test", true);
    const struct {
        wxBitmap shown;
        wxSize logical;
    } pictures[] = {
        {frame->GetBanner()->GetBitmap(), wxSize(769, 170)},
        {frame->GetStatusIcon()->GetBitmap(), wxSize(32, 32)},
        {frame->GetCardList()->RowBitmap(0), wxSize(31, 22)},
    };
    for (const auto& picture : pictures) {
        EXPECT_EQ(picture.shown.GetScaleFactor(), scale);
        EXPECT_EQ(picture.shown.GetSize(), picture.logical * scale);
    }
    EXPECT_TRUE(SaveScreenshot(frame, BinaryDir() + "/screenshots/main-window-scale" +
                                          std::to_string(static_cast<int>(scale))));
}

TEST_F(EnglishWindowTest, EveryTextOfTheWindowIsEnglish)
{
    EXPECT_EQ(frame->GetTitle(), "Card Manager (x64)");
    // The desktop entry names the program as the window does.
    const std::string entry = ReadText(SourceDir() + "/data/org.korvex.VessaCards.desktop");
    EXPECT_NE(entry.find("\nName=" + frame->GetTitle().BeforeFirst('(').Trim().ToStdString() + "\n"),
              std::string::npos);
    SelectRow(4); // Max: a signature PIN on its last try
    EXPECT_EQ(frame->GetPinStateText(Korvex::APPL_SIGNATURE)->GetLabel(), "PIN: only 1 try left");
    EXPECT_TRUE(wxString(RowText(3, 3)).EndsWith("(expired)")) << RowText(3, 3);
    // No English locale is installed here: year-month-day, not dd.mm.yyyy.
    EXPECT_TRUE(wxRegEx("^[0-9]{4}-[0-9]{2}-[0-9]{2} ").Matches(RowText(3, 3))) << RowText(3, 3);
    std::vector<wxString> texts;
    CollectTexts(frame, texts);
    CardList* list = frame->GetCardList();
    for (unsigned column = 0; column < list->GetColumnCount(); ++column)
        texts.push_back(list->GetColumn(column)->GetTitle());
    EXPECT_GT(texts.size(), 15u);
    ExpectNoGerman(texts);
    // The buttons' English names: window_a11y.py names en.
    for (const char* english : {"Card number", "Issued to", "Card type", "Valid until"})
        EXPECT_NE(std::find(texts.begin(), texts.end(), wxString(english)), texts.end()) << english;
    // The banner's title is drawn again in English; the card picture stays.
    const wxImage german = XpmToImage(KorvexBanner);
    const wxImage shown = frame->GetBanner()->GetBitmap().ConvertToImage();
    ASSERT_EQ(shown.GetSize(), german.GetSize());
    int changedLeft = 0;
    for (int y = 40; y < 130; ++y)
        for (int x = 30; x < 480; ++x)
            changedLeft += shown.GetRed(x, y) != german.GetRed(x, y);
    EXPECT_GT(changedLeft, 1000) << "the German title is still there";
    for (int y = 40; y < 130; y += 7)
        for (int x = 560; x < 700; x += 7)
            EXPECT_EQ(shown.GetRed(x, y), german.GetRed(x, y)) << x << "," << y;

    // So are the dialogs the window opens.
    ModalRecorder recorder;
    std::vector<wxString> dialogTexts;
    recorder.inspect = [&dialogTexts](wxDialog* dialog) { CollectTexts(dialog, dialogTexts); };
    Click(MainFrame::ID_SIG_TEST);
    Click(MainFrame::ID_ENC_TEST);
    Click(MainFrame::ID_PERS_SHOW);
    ASSERT_EQ(recorder.seen.size(), 3u);
    EXPECT_EQ(recorder.seen[0].title, "Signature test with the signature key (6-digit PIN)");
    EXPECT_EQ(recorder.seen[1].title, "Signature test with the encryption key (4-digit PIN)");
    EXPECT_NE(std::find(dialogTexts.begin(), dialogTexts.end(),
                        "This is a test!\n\nThe signature of this text is only made for the test and is not stored."),
              dialogTexts.end());
    ExpectNoGerman(dialogTexts);
}

} // namespace
} // namespace WindowTests
