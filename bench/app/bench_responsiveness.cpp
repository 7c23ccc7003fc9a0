// Responsiveness benchmark: the real main window on simulated cards with a
// real reader's latency (30 ms per module call and per APDU unless given),
// driven through start-up, a reload, a PIN change with the module's PIN
// dialogue (a scripted pinentry that takes 0.3 s per field), a certificate
// display, a signature test and the infobox viewer. A 5 ms timer on the GUI
// thread records the longest gap between two of its ticks in each phase: the
// longest time the window could not repaint or answer. Also the time from the click to the PIN
// dialogue. Needs an X display (xvfb-run). Prints figures; asserts nothing.
//
//   bench_responsiveness [call_ms [apdu_ms]]
#include "gui/CardList.h"
#include "gui/InfoboxBereich.h"
#include "gui/MainFrame.h"
#include "gui/TestDialog.h"
#include "token/LoadFreeLib.h"

#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/listbox.h>
#include <wx/timer.h>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Phase {
    const char* name;
    std::function<void()> start;      // begins the phase on the GUI thread
    std::function<bool()> finished;   // polled by the timer
};

class BenchApp : public wxApp {
public:
    bool OnInit() override
    {
        SetAppName("VessaClient");
        const std::string scratch = kScratch;
        m_pinLog = scratch + "/pins.log";
        std::ofstream(scratch + "/pins") << "1234\n5678\n5678\n5678\n";
        std::ofstream viewer(scratch + "/bin/certViewerApp");
        viewer << "#!/bin/sh\nexit 0\n";
        viewer.close();
        chmod((scratch + "/bin/certViewerApp").c_str(), 0755);

        m_phases = {
            {"start-up (window to filled list)", [] {}, [this] { return Idle() && Rows() == 6; }},
            {"reload", [this] { Press(MainFrame::ID_RELOAD); }, [this] { return Idle() && Rows() == 6; }},
            {"PIN change (with PIN dialogue)",
             [this] {
                 SelectJohann();
                 m_clicked = Clock::now();
                 Press(MainFrame::ID_ENC_CHANGE_PIN);
             },
             [this] {
                 struct stat info;
                 if (m_clickToDialogueMs < 0 && stat(m_pinLog.c_str(), &info) == 0 && info.st_size > 0)
                     m_clickToDialogueMs = MillisecondsSince(m_clicked);
                 return Idle();
             }},
            {"certificate display", [this] { Press(MainFrame::ID_ENC_SHOW); }, [this] { return Idle(); }},
            {"signature test (with PIN dialogue)", [this] { Press(MainFrame::ID_ENC_TEST); },
             [this] { return DriveSignatureTest(); }},
            {"infobox viewer (open and list)", [this] { Press(MainFrame::ID_PERS_SHOW); },
             [this] { return DriveInfobox(); }},
        };
        m_frame = new MainFrame(nullptr);
        m_frame->Show();
        m_phaseStart = m_lastTick = Clock::now();
        m_ticker.Bind(wxEVT_TIMER, [this](wxTimerEvent&) { Tick(); });
        m_ticker.Start(5);
        return true;
    }

    static std::string kScratch;

private:
    bool Idle() const { return !m_frame->IsRefreshRunning() && !m_frame->IsCardWorkRunning(); }
    int Rows() const { return m_frame->GetCardList()->GetItemCount(); }
    void Press(int id)
    {
        wxCommandEvent click(wxEVT_BUTTON, id);
        m_frame->GetEventHandler()->ProcessEvent(click);
    }
    // Signs once in the modal signature test, then closes it; true once it
    // has gone.
    bool DriveSignatureTest()
    {
        for (wxWindow* window : wxTopLevelWindows) {
            auto* dialog = dynamic_cast<TestDialog*>(window);
            if (dialog == nullptr)
                continue;
            if (!dialog->IsModal() || dialog->IsCardWorkRunning())
                return false;
            wxCommandEvent click(wxEVT_BUTTON, TestDialog::ID_SIGN);
            if (!m_signed)
                dialog->evt_sign(click);
            else
                dialog->EndModal(wxID_CLOSE);
            m_signed = true;
            return false;
        }
        return m_signed && Idle();
    }
    // Closes the modal infobox viewer once it has listed the card's objects;
    // true once it has gone.
    bool DriveInfobox()
    {
        for (wxWindow* window : wxTopLevelWindows) {
            auto* viewer = dynamic_cast<InfoboxBereich*>(window);
            if (viewer == nullptr)
                continue;
            if (viewer->IsModal() && !viewer->IsCardWorkRunning() && !viewer->GetList()->IsEmpty()) {
                viewer->EndModal(0);
                m_infoboxShown = true;
            }
            return false;
        }
        return m_infoboxShown && Idle();
    }
    void SelectJohann()
    {
        for (int row = 0; row < Rows(); ++row)
            if (m_frame->GetCardList()->RowText(row, 0) == "1203000000001111")
                m_frame->GetCardList()->ChooseRow(row);
    }

    void Tick()
    {
        const Clock::time_point now = Clock::now();
        m_longestGapMs = std::max(m_longestGapMs, std::chrono::duration<double, std::milli>(now - m_lastTick).count());
        m_lastTick = now;
        // Inside a yield of the window (the status line does one) the next
        // phase must not start: only the gap counts there.
        if (m_startPending ||
            (wxEventLoopBase::GetActive() != nullptr && wxEventLoopBase::GetActive()->IsYielding()))
            return;
        if (m_phase >= m_phases.size() || !m_started || !m_phases[m_phase].finished()) {
            if (!m_started && m_phase < m_phases.size()) {
                m_started = true;
                // A command that blocks the GUI thread does it inside start():
                // the next tick sees that gap. Started outside this timer's
                // handler: a modal dialog in start() would stop its ticks.
                m_phaseStart = m_lastTick = Clock::now();
                m_longestGapMs = 0;
                m_startPending = true;
                CallAfter([this, phase = m_phase] {
                    m_startPending = false;
                    m_phases[phase].start();
                });
            }
            return;
        }
        std::printf("%-34s %9.1f ms   longest event-loop gap %7.1f ms\n", m_phases[m_phase].name,
                    MillisecondsSince(m_phaseStart), m_longestGapMs);
        ++m_phase;
        m_started = m_phase == 0;
        if (m_phase == m_phases.size()) {
            std::printf("click to PIN dialogue: %.1f ms\n", m_clickToDialogueMs);
            m_ticker.Stop();
            m_frame->Close(true);
        }
    }

    MainFrame* m_frame = nullptr;
    wxTimer m_ticker;
    std::vector<Phase> m_phases;
    size_t m_phase = 0;
    bool m_started = true;  // start-up begins with the window
    Clock::time_point m_phaseStart, m_lastTick, m_clicked;
    double m_longestGapMs = 0;
    double m_clickToDialogueMs = -1;
    bool m_signed = false;
    bool m_infoboxShown = false;
    bool m_startPending = false;  // a phase's start() is queued, not yet run
    std::string m_pinLog;
};

std::string BenchApp::kScratch;

} // namespace

int main(int argc, char** argv)
{
    const char* callMs = argc > 1 ? argv[1] : "30";
    const char* apduMs = argc > 2 ? argv[2] : "30";
    if (std::getenv("DISPLAY") == nullptr) {
        std::fprintf(stderr, "needs an X display: xvfb-run -a %s\n", argv[0]);
        return 1;
    }
    char pattern[] = "/tmp/bench-responsive-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        return 1;
    const std::string scratch = pattern;
    BenchApp::kScratch = scratch;
    std::system(("mkdir -p '" + scratch + "/etc' '" + scratch + "/bin' '" + scratch + "/state'").c_str());
    setenv("HOME", scratch.c_str(), 1);
    setenv("TMPDIR", (scratch + "/").c_str(), 1);
    setenv("KORVEX_ALLUSERS_DIR", (scratch + "/etc/").c_str(), 1);
    setenv("VESSA_SIM_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("VESSA_SIM_KEY_DIR", KORVEX_BENCH_BINARY_DIR "/bench-scratch/sim-keys", 1);
    setenv("VESSA_SIM_PINENTRY", KORVEX_SOURCE_DIR "/tests/support/fake-pinentry", 1);
    setenv("FAKE_PINENTRY_SCRIPT", (scratch + "/pins").c_str(), 1);
    setenv("FAKE_PINENTRY_LOG", (scratch + "/pins.log").c_str(), 1);
    setenv("FAKE_PINENTRY_DELAY", "0.3", 1);
    setenv("VESSA_SIM_LATENCY_MS", callMs, 1);
    setenv("VESSA_SIM_APDU_LATENCY_MS", apduMs, 1);
    setenv("PATH", (scratch + "/bin:" + std::getenv("PATH")).c_str(), 1);
    setenv("NO_AT_BRIDGE", "1", 1);
    unsetenv("VESSA_SIM_CARDS");
    static const std::string module = KORVEX_BENCH_BINARY_DIR "/sim/libVessaP11.so";
    Korvex::PKCS11_LIB_NAME = module.c_str();

    std::printf("responsiveness with %s ms per module call and %s ms per APDU (demo set, 6 cards)\n", callMs,
                apduMs);
    wxApp::SetInstance(new BenchApp());
    const int status = wxEntry(argc, argv);
    std::system(("rm -rf '" + scratch + "'").c_str());
    return status;
}
