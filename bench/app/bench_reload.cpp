// Warm reload of a long card list in the real main window (128 simulated
// cards, no reader latency) against the window's floor: the same rows put
// into the same list, with the same locking and wait dialog, but no card
// call and no thread. Both run alternately on the GUI thread, which spins the
// event loop until the list is full again; medians of the rounds are
// compared. Needs an X display (xvfb-run). Prints figures; asserts nothing.
//
//   bench_reload [cards [rounds]]
#include "gui/CardList.h"
#include "gui/MainFrame.h"
#include "token/LoadFreeLib.h"

#include <wx/app.h>
#include <wx/timer.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "../BenchCardSet.h"

namespace {

using Clock = std::chrono::steady_clock;

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// One row as the list shows it.
using ShownRow = CardList::Row;

class BenchApp : public wxApp {
public:
    static int s_cards, s_rounds;

    bool OnInit() override
    {
        SetAppName("VessaClient");
        m_frame = new MainFrame(nullptr);
        m_frame->Show();
        m_start.Bind(wxEVT_TIMER, [this](wxTimerEvent&) { Run(); });
        m_start.StartOnce(50);
        return true;
    }

private:
    bool Full() const
    {
        return !m_frame->IsRefreshRunning() && m_frame->GetCardList()->GetItemCount() == s_cards;
    }
    void SpinUntilFull()
    {
        while (!Full()) {
            Yield(true);
            usleep(50);
        }
    }
    double Reload()
    {
        const Clock::time_point start = Clock::now();
        wxCommandEvent click(wxEVT_BUTTON, MainFrame::ID_RELOAD);
        m_frame->GetEventHandler()->ProcessEvent(click);
        SpinUntilFull();
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }
    // What the window does around a refresh and with its rows, minus the
    // card calls: lock, wait dialog, empty list, the rows, selection, unlock.
    double Floor(const std::vector<ShownRow>& rows)
    {
        CardList* list = m_frame->GetCardList();
        const Clock::time_point start = Clock::now();
        m_frame->MyEnable(false);
        m_frame->GetWaitDialog().Centre(wxBOTH);
        m_frame->GetWaitDialog().Show();
        list->DeleteAllRows();
        int index = 0;
        for (const ShownRow& row : rows)
            index = list->InsertRow(index, row);
        list->ChooseRow(0);
        m_frame->MyEnable(true);
        m_frame->GetWaitDialog().Hide();
        Yield(true);
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }
    // The rows in insertion order (the last row first), as ShowRows adds them.
    std::vector<ShownRow> Capture() const
    {
        CardList* list = m_frame->GetCardList();
        std::vector<ShownRow> rows;
        for (int item = list->GetItemCount() - 1; item >= 0; --item) {
            ShownRow row;
            for (int column = 0; column < 4; ++column)
                row.texts.push_back(list->RowText(item, column));
            row.image = list->RowImage(item);
            row.data = list->RowData(item);
            row.background = list->RowBackground(item);
            row.toolTip = list->RowToolTip(item);
            rows.push_back(row);
        }
        return rows;
    }
    void Run()
    {
        const Clock::time_point first = Clock::now();
        SpinUntilFull();
        std::printf("first refresh (keys made where the store lacks them): %.1f ms\n",
                    std::chrono::duration<double, std::milli>(Clock::now() - first).count());
        Reload();  // warm: the token object and the decode memo know every card
        const std::vector<ShownRow> rows = Capture();
        std::vector<double> reloads, floors;
        for (int round = 0; round < s_rounds; ++round) {
            reloads.push_back(Reload());
            floors.push_back(Floor(rows));
        }
        const double reload = Median(reloads), floor = Median(floors);
        std::printf("warm reload, %d cards, no latency: median %.1f ms; GUI floor (same rows, no card calls) "
                    "median %.1f ms; ratio %.3f (target <= 1.5); %d alternated rounds\n",
                    s_cards, reload, floor, reload / floor, s_rounds);
        m_frame->Close(true);
    }

    MainFrame* m_frame = nullptr;
    wxTimer m_start;
};

int BenchApp::s_cards = 128;
int BenchApp::s_rounds = 11;

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && std::atoi(argv[1]) > 0)
        BenchApp::s_cards = std::atoi(argv[1]);
    if (argc > 2 && std::atoi(argv[2]) > 0)
        BenchApp::s_rounds = std::atoi(argv[2]);
    if (std::getenv("DISPLAY") == nullptr) {
        std::fprintf(stderr, "needs an X display: xvfb-run -a %s\n", argv[0]);
        return 1;
    }
    char pattern[] = "/tmp/bench-reload-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        return 1;
    const std::string scratch = pattern;
    std::system(("mkdir -p '" + scratch + "/etc' '" + scratch + "/state'").c_str());
    WriteBenchCardSet(scratch + "/cards.xml", BenchApp::s_cards);
    setenv("HOME", scratch.c_str(), 1);
    setenv("TMPDIR", (scratch + "/").c_str(), 1);
    setenv("KORVEX_ALLUSERS_DIR", (scratch + "/etc/").c_str(), 1);
    setenv("VESSA_SIM_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("VESSA_SIM_CARDS", (scratch + "/cards.xml").c_str(), 1);
    setenv("VESSA_SIM_KEY_DIR", KORVEX_BENCH_BINARY_DIR "/bench-scratch/sim-keys", 1);
    setenv("NO_AT_BRIDGE", "1", 1);
    unsetenv("VESSA_SIM_LATENCY_MS");
    unsetenv("VESSA_SIM_APDU_LATENCY_MS");
    unsetenv("VESSA_SIM_FAULTS");
    static const std::string module = KORVEX_BENCH_BINARY_DIR "/sim/libVessaP11.so";
    Korvex::PKCS11_LIB_NAME = module.c_str();

    wxApp::SetInstance(new BenchApp());
    const int status = wxEntry(argc, argv);
    std::system(("rm -rf '" + scratch + "'").c_str());
    return status;
}
