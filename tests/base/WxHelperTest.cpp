// Toolkit-string conversions and event posting.
#include "base/wxHelper.h"

#include "tests/support/TestCommon.h"

#include <wx/init.h>

#include <clocale>

namespace {

class Recorder : public wxEvtHandler {
public:
    Recorder() { Bind(wxEVT_COMMAND_MENU_SELECTED, &Recorder::OnMenu, this); }
    std::vector<int> ids;

private:
    void OnMenu(wxCommandEvent& event) { ids.push_back(event.GetId()); }
};

} // namespace

TEST(WxHelper, StringConversions)
{
    wxInitializer init;
    ASSERT_TRUE(init.IsOk());
    EXPECT_EQ("Kartenverwaltung", Korvex::WxStr2MB(wxString("Kartenverwaltung")));
    EXPECT_EQ("1234", Korvex::WxStr2Ascii(wxString("1234")));
    EXPECT_EQ("", Korvex::WxStr2MB(wxString()));

    std::setlocale(LC_ALL, "C.UTF-8");
    const wxString umlaut = wxString::FromUTF8("\xC3\x84nderung");
    EXPECT_EQ("\xC3\x84nderung", Korvex::WxStr2MB(umlaut));
    EXPECT_EQ("_nderung", Korvex::WxStr2Ascii(umlaut)) << "non-ASCII characters are replaced";
    std::setlocale(LC_ALL, "C");
}

TEST(WxHelper, SendQueuesAndProcessRunsAtOnce)
{
    wxInitializer init;
    ASSERT_TRUE(init.IsOk());
    Recorder recorder;
    Korvex::SendEvent(&recorder, 5453);
    EXPECT_TRUE(recorder.ids.empty()) << "posting only queues";
    recorder.ProcessPendingEvents();
    EXPECT_EQ(std::vector<int>{5453}, recorder.ids);

    Korvex::ProcessEvent(&recorder, 5432);
    EXPECT_EQ((std::vector<int>{5453, 5432}), recorder.ids);

    Korvex::SendEvent(nullptr, 1);
    Korvex::ProcessEvent(nullptr, 1);
}
