// Card set and window fixture of the main-window tests.
#include "tests/gui/WindowTestSupport.h"

#include "gui/CardList.h"
#include "gui/Images.h"

#include <wx/app.h>
#include <wx/bitmap.h>
#include <wx/image.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

#include <cstdlib>

#include <unistd.h>

namespace WindowTests {

const TestCard kJohann = {"johann", "1203000000001111", 0, "vessa premium ACOS 03"};
const TestCard kMaria = {"maria", "1204000000004711", 1, "vessa premium ACOS 04"};
const TestCard kErika = {"erika", "3002000000004242", 3, "vessa premium e-Card G2"};
const TestCard kBlank = {"blank", "0000000000000000", 2, "vessa premium ACOS 05"};
const TestCard kLukas = {"lukas", "3031000000003333", 4, "vessa premium e-Card G3A"};

namespace {

const char kCardSet[] = R"(<cardset>
  <reader name="Vessa Reader 0">
    <card id="johann" generation="ACOS-A03" serial="1203000000001111"
          given="Johann" family="&#214;sterreicher" birth="1959-01-30"/>
  </reader>
  <reader name="Vessa Reader 1">
    <card id="maria" generation="ACOS-A04" serial="1204000000004711"
          given="Maria" family="Musterfrau" birth="1975-04-12"/>
  </reader>
  <reader name="Vessa Reader 2">
    <card id="erika" generation="ECARD-G2" serial="3002000000004242"
          given="Erika" family="Beispiel" birth="1982-07-21"/>
  </reader>
  <reader name="Vessa Reader 3">
    <card id="blank" generation="ACOS-A05" serial="0000000000000000"/>
  </reader>
  <reader name="Vessa Reader 4"/>
  <reader name="Vessa Internal Slot" removable="false">
    <card id="internal" generation="INTERNAL" serial="0000000000000001"/>
  </reader>
  <spare>
    <card id="lukas" generation="ECARD-G3A" serial="3031000000003333"
          given="Lukas" family="Huber" birth="1971-09-09"/>
  </spare>
</cardset>
)";

} // namespace

} // namespace WindowTests

void PrepareGuiTestProcess()
{
    using namespace WindowTests;
    PrepareSimulator(kCardSet);
    // Stand-in certificate viewer: keeps a copy of every file it is given.
    const std::string& scratch = ScratchDir();
    WriteText(scratch + "/bin/certViewerApp",
              "#!/bin/sh\nn=$(ls '" + scratch + "'/viewed-*.cer 2>/dev/null | wc -l)\n"
              "cp \"$1\" '" + scratch + "'/viewed-$n.cer.part && mv '" + scratch + "'/viewed-$n.cer.part '" +
                  scratch + "'/viewed-$n.cer\n",
              true);
}

namespace WindowTests {

std::vector<std::string> ViewedCertificates()
{
    std::vector<std::string> files;
    for (int n = 0;; ++n) {
        const std::string path = ScratchDir() + "/viewed-" + std::to_string(n) + ".cer";
        if (access(path.c_str(), R_OK) != 0)
            return files;
        files.push_back(path);
    }
}

void MainWindowTest::SetUp()
{
    UseCardSet(!cardSet.empty() ? cardSet : UsesTestCardSet() ? kCardSet : "");
    frame = new MainFrame(nullptr);
    // Counts the refreshes once the window's own handler has shown the rows.
    frame->Bind(
        wxEVT_MENU,
        [this](wxCommandEvent& event) {
            event.Skip();
            frame->CallAfter([this] { ++refreshes; });
        },
        MainFrame::ID_THREAD_FINISHED);
    frame->Show();
    WaitForRefresh();
}

void MainWindowTest::TearDown()
{
    if (frame != nullptr) {
        frame->Destroy();
        Pump(50);
        frame = nullptr;
    }
}

void MainWindowTest::WaitForRefresh()
{
    // Counts from now: refreshes that card events started before are done.
    const int before = refreshes;
    ASSERT_TRUE(PumpUntil([this, before] { return refreshes > before; }, 60.0))
        << "card list refresh did not finish";
}

void MainWindowTest::Reload()
{
    Click(MainFrame::ID_RELOAD);
    WaitForRefresh();
}

std::vector<std::string> MainWindowTest::RowNumbers() const
{
    std::vector<std::string> numbers;
    for (long row = 0; row < frame->GetCardList()->GetItemCount(); ++row)
        numbers.push_back(RowText(row, 0));
    return numbers;
}

std::string MainWindowTest::RowText(long row, int column) const
{
    return frame->GetCardList()->RowText(row, column).ToStdString(wxConvUTF8);
}

long MainWindowTest::SelectedRow() const
{
    return frame->GetCardList()->GetSelectedRow();
}

long MainWindowTest::RowOf(const TestCard& card) const
{
    const std::vector<std::string> numbers = RowNumbers();
    for (size_t row = 0; row < numbers.size(); ++row) {
        if (numbers[row] == card.serial)
            return static_cast<long>(row);
    }
    ADD_FAILURE() << "card " << card.id << " not in the list";
    return -1;
}

void MainWindowTest::SelectRow(long row)
{
    frame->GetCardList()->ChooseRow(row);
    Pump(20);
}

bool MainWindowTest::IsEnabled(int id) const
{
    wxWindow* control = frame->FindWindow(id);
    return control != nullptr && control->IsEnabled();
}

void MainWindowTest::ClickWithoutWaiting(int id)
{
    wxWindow* control = frame->FindWindow(id);
    ASSERT_NE(control, nullptr) << "no control " << id;
    wxCommandEvent click(wxEVT_BUTTON, id);
    click.SetEventObject(control);
    control->GetEventHandler()->ProcessEvent(click);
}

void MainWindowTest::Click(int id)
{
    ClickWithoutWaiting(id);
    WaitForCardWork();
}

void MainWindowTest::WaitForCardWork()
{
    ASSERT_TRUE(PumpUntil([this] { return !frame->IsCardWorkRunning(); }, 60.0)) << "card work did not end";
}

void MainWindowTest::ChoosePopupItem(int id)
{
    wxCommandEvent choice(wxEVT_MENU, id);
    frame->evt_OnPopupClick(choice);
    WaitForCardWork();
}

wxString MainWindowTest::StatusText() const
{
    return frame->GetStatusText()->GetLabel();
}

bool MainWindowTest::StatusShown() const
{
    return frame->GetStatusText()->IsShown() && frame->GetStatusIcon()->IsShown();
}

void MainWindowTest::ExpectStatus(const char* text, bool isError) const
{
    EXPECT_EQ(StatusText(), Utf8(text));
    EXPECT_TRUE(StatusShown());
    EXPECT_TRUE(BitmapShowsPicture(frame->GetStatusIcon()->GetBitmap(), isError ? ButtonCancel : ButtonOk))
        << (isError ? "expected the red icon" : "expected the green icon");
}

} // namespace WindowTests
