// Responsiveness benchmark: the real main window on simulated cards with a
// real reader's latency (30 ms per module call and per APDU unless given),
// driven through start-up, a reload, a PIN change with the module's PIN
// dialogue (a scripted pinentry that takes 0.3 s per field), a certificate
// display, a signature test and the infobox viewer. A 5 ms timer on the GUI
// thread records the longest gap between two of its ticks in each phase: the
// longest time the window could not repaint or answer. Also the time from
// the click to the module's PIN dialogue (the pinentry's first line), for a
// PIN change and for a signature, each against the bare path: the fewest
// module calls that reach the same dialogue (a session, the key's search,
// C_SetAttributeValue or C_SignInit + C_Sign), made directly on the module
// from a thread of this process, cancelled in the dialogue. Window and bare
// paths alternate, three times each; the best of each is compared. Needs an
// X display (xvfb-run). Prints figures; asserts nothing.
//
//   bench_responsiveness [call_ms [apdu_ms]]
#include "gui/CardList.h"
#include "gui/InfoboxBereich.h"
#include "gui/MainFrame.h"
#include "gui/TestDialog.h"
#include "token/LoadFreeLib.h"
#include "token/acPKCS11.h"

#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/listbox.h>
#include <wx/timer.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

off_t FileSize(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_size : 0;
}

// Notes the moment the pinentry writes its first line after being armed;
// polls the log every 0.2 ms on its own thread, so the GUI thread's timer
// granularity does not enter the figure.
class DialogueWatch {
public:
    explicit DialogueWatch(std::string log) : m_log(std::move(log)), m_thread([this] { Run(); }) {}
    ~DialogueWatch()
    {
        m_stop = true;
        m_thread.join();
    }
    void Arm()
    {
        m_seenMs = -1;
        m_size = FileSize(m_log);
        m_start = Clock::now();
        m_armed = true;
    }
    // Milliseconds from Arm() to the dialogue, -1 while not seen.
    double SeenMs() const { return m_seenMs; }

private:
    void Run()
    {
        while (!m_stop) {
            if (m_armed && FileSize(m_log) > m_size) {
                m_seenMs = MillisecondsSince(m_start);
                m_armed = false;
            }
            usleep(200);
        }
    }
    std::string m_log;
    std::atomic<bool> m_stop{false}, m_armed{false};
    std::atomic<double> m_seenMs{-1};
    off_t m_size = 0;
    Clock::time_point m_start;
    std::thread m_thread;
};

// The bare path to the module's PIN dialogue on the card in `slot`: a
// session, the encryption key found by label, then the PIN change
// (C_SetAttributeValue) or the signature (C_SignInit, C_Sign into a buffer
// large enough, no size query).
void BarePath(CK_SLOT_ID slot, bool signature)
{
    void* module = dlopen(Korvex::PKCS11_LIB_NAME, RTLD_LAZY | RTLD_NOLOAD);
    auto getList = module != nullptr ? reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"))
                                     : nullptr;
    CK_FUNCTION_LIST_PTR f = nullptr;
    if (getList == nullptr || getList(&f) != CKR_OK) {
        if (module != nullptr)
            dlclose(module);
        return;
    }
    CK_SESSION_HANDLE session = 0;
    if (f->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session) == CKR_OK) {
        CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
        char label[] = "SK.CH.EKEY";
        CK_ATTRIBUTE search[] = {{CKA_CLASS, &keyClass, sizeof(keyClass)}, {CKA_LABEL, label, sizeof(label) - 1}};
        CK_OBJECT_HANDLE key = 0;
        CK_ULONG found = 0;
        if (f->C_FindObjectsInit(session, search, 2) == CKR_OK) {
            f->C_FindObjects(session, &key, 1, &found);
            f->C_FindObjectsFinal(session);
        }
        if (found == 1 && !signature) {
            CK_BYTE zero = 0;
            CK_ATTRIBUTE change = {0x200, &zero, 1};
            f->C_SetAttributeValue(session, key, &change, 1);
        } else if (found == 1) {
            CK_KEY_TYPE type = CKK_RSA;
            CK_ATTRIBUTE typeAttribute = {CKA_KEY_TYPE, &type, sizeof(type)};
            f->C_GetAttributeValue(session, key, &typeAttribute, 1);
            CK_MECHANISM mechanism = {type == CKK_EC ? CKM_ECDSA : CKM_RSA_PKCS, nullptr, 0};
            unsigned char digest[32] = {1, 2, 3}, out[1024];
            CK_ULONG outLength = sizeof(out);
            if (f->C_SignInit(session, &mechanism, key) == CKR_OK)
                f->C_Sign(session, digest, sizeof(digest), out, &outLength);
        }
        f->C_CloseSession(session);
    }
    dlclose(module);
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
        // The window's PIN change and signature, then every later dialogue
        // (window and bare, three rounds) is cancelled.
        std::ofstream(scratch + "/pins") << "1234\n5678\n5678\n5678\n"
                                          << "CANCEL\nCANCEL\nCANCEL\nCANCEL\nCANCEL\nCANCEL\n"
                                          << "CANCEL\nCANCEL\nCANCEL\nCANCEL\nCANCEL\nCANCEL\n";
        m_watch.reset(new DialogueWatch(m_pinLog));
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
                 m_watch->Arm();
                 Press(MainFrame::ID_ENC_CHANGE_PIN);
             },
             [this] {
                 if (m_clickToDialogueMs < 0)
                     m_clickToDialogueMs = m_watch->SeenMs();
                 return Idle();
             }},
            {"certificate display", [this] { Press(MainFrame::ID_ENC_SHOW); }, [this] { return Idle(); }},
            {"signature test (with PIN dialogue)", [this] { Press(MainFrame::ID_ENC_TEST); },
             [this] { return DriveSignatureTest(); }},
            {"infobox viewer (open and list)", [this] { Press(MainFrame::ID_PERS_SHOW); },
             [this] { return DriveInfobox(); }},
        };
        for (int round = 0; round < 3; ++round) {
            m_phases.push_back({"PIN change, window (cancelled)",
                                [this] {
                                    SelectJohann();
                                    m_watch->Arm();
                                    Press(MainFrame::ID_ENC_CHANGE_PIN);
                                },
                                [this] { return Idle() && Note(m_windowPinMs); }});
            m_phases.push_back({"PIN change, bare (cancelled)", [this] { StartBare(false); },
                                [this] { return BareDone() && Note(m_barePinMs); }});
            m_phases.push_back({"signature, window (cancelled)",
                                [this] {
                                    m_signed = false;
                                    Press(MainFrame::ID_ENC_TEST);
                                },
                                [this] { return DriveSignatureTest() && Note(m_windowSignMs); }});
            m_phases.push_back({"signature, bare (cancelled)", [this] { StartBare(true); },
                                [this] { return BareDone() && Note(m_bareSignMs); }});
        }
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
            if (!m_signed) {
                m_watch->Arm();
                dialog->evt_sign(click);
            }
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
    // Takes the last dialogue time into the best of `best`; true.
    bool Note(double& best)
    {
        const double seen = m_watch->SeenMs();
        if (seen >= 0 && (best < 0 || seen < best))
            best = seen;
        return true;
    }
    void StartBare(bool signature)
    {
        std::string number;
        Korvex::TokenType type;
        CK_SLOT_ID slot = 0;
        SelectJohann();
        m_frame->SelectedCardReader(number, type, slot);
        m_bareDone = false;
        m_watch->Arm();
        m_bare = std::thread([this, slot, signature] {
            BarePath(slot, signature);
            m_bareDone = true;
        });
    }
    bool BareDone()
    {
        if (!m_bareDone)
            return false;
        m_bare.join();
        return true;
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
            std::printf("click to PIN dialogue, best of 3: PIN change %.1f ms, bare %.1f ms, ratio %.3f; "
                        "signature %.1f ms, bare %.1f ms, ratio %.3f (target <= 1.15)\n",
                        m_windowPinMs, m_barePinMs, m_windowPinMs / m_barePinMs, m_windowSignMs, m_bareSignMs,
                        m_windowSignMs / m_bareSignMs);
            m_ticker.Stop();
            m_frame->Close(true);
        }
    }

    MainFrame* m_frame = nullptr;
    wxTimer m_ticker;
    std::vector<Phase> m_phases;
    size_t m_phase = 0;
    bool m_started = true;  // start-up begins with the window
    Clock::time_point m_phaseStart, m_lastTick;
    double m_longestGapMs = 0;
    double m_clickToDialogueMs = -1;
    bool m_signed = false;
    bool m_infoboxShown = false;
    bool m_startPending = false;  // a phase's start() is queued, not yet run
    std::string m_pinLog;
    std::unique_ptr<DialogueWatch> m_watch;
    std::thread m_bare;
    std::atomic<bool> m_bareDone{false};
    double m_windowPinMs = -1, m_barePinMs = -1, m_windowSignMs = -1, m_bareSignMs = -1;
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
