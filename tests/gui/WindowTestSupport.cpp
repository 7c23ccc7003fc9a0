// Environment, simulator control and event pumping for the main-window tests.
#include "tests/gui/WindowTestSupport.h"

#include "gui/Images.h"
#include "sim/SimControl.h"

#include <wx/app.h>
#include <wx/bitmap.h>
#include <wx/dialog.h>
#include <wx/evtloop.h>
#include <wx/image.h>
#include <wx/listctrl.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>
#include <wx/utils.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <typeinfo>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace WindowTests {

const TestCard kJohann = {"johann", "1203000000001111", "Johann \xC3\x96sterreicher", 0,
                          "vessa premium ACOS 03"};
const TestCard kMaria = {"maria", "1204000000004711", "Maria Musterfrau", 1, "vessa premium ACOS 04"};
const TestCard kErika = {"erika", "3002000000004242", "Erika Beispiel", 3, "vessa premium e-Card G2"};
const TestCard kBlank = {"blank", "0000000000000000", "", 2, "vessa premium ACOS 05"};
const TestCard kLukas = {"lukas", "3031000000003333", "Lukas Huber", 4, "vessa premium e-Card G3A"};
const TestCard kSophie = {"sophie", "3032000000003434", "Sophie Wagner", 5, "vessa premium e-Card G3B"};

namespace {

std::string g_scratch;

std::string Env(const char* name, const char* fallback)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream out(path);
    out << text;
}

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
    <card id="sophie" generation="ECARD-G3B" serial="3032000000003434"
          given="Sophie" family="Wagner" birth="1988-12-24"/>
  </spare>
</cardset>
)";

// Looks a control function up in the loaded module.
void* SimSymbol(const char* name)
{
    void* module = dlopen("libVessaP11.so", RTLD_LAZY | RTLD_NOLOAD);
    if (module == nullptr)
        return nullptr;
    void* symbol = dlsym(module, name);
    dlclose(module);
    return symbol;
}

template <typename F>
F SimFunction(const char* name)
{
    F function = reinterpret_cast<F>(SimSymbol(name));
    if (function == nullptr)
        ADD_FAILURE() << "simulator control function " << name << " not found";
    return function;
}

} // namespace

void PrepareProcess()
{
    if (!g_scratch.empty())
        return;
    std::string pattern = Env("TMPDIR", "/tmp/") + "/guitest-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) {
        std::perror("mkdtemp");
        std::exit(1);
    }
    g_scratch = buffer.data();

    // Private card state per process, so every test starts from factory
    // PINs; the generated keys are shared to save their generation time.
    setenv("VESSA_SIM_STATE_DIR", (g_scratch + "/sim-state").c_str(), 1);
    setenv("VESSA_SIM_KEY_DIR", (BinaryDir() + "/test-scratch/gui-sim-keys").c_str(), 1);
    setenv("VESSA_SIM_PINENTRY", (SourceDir() + "/tests/support/fake-pinentry").c_str(), 1);
    setenv("FAKE_PINENTRY_SCRIPT", (g_scratch + "/pin-answers").c_str(), 1);
    setenv("FAKE_PINENTRY_LOG", (g_scratch + "/pin-dialog.log").c_str(), 1);
    setenv("KORVEX_ALLUSERS_DIR", (g_scratch + "/etc/").c_str(), 1);
    setenv("TMPDIR", (g_scratch + "/tmp/").c_str(), 1);
    std::system(("mkdir -p '" + g_scratch + "/tmp' '" + g_scratch + "/etc' '" + g_scratch + "/bin'").c_str());
    WriteFile(g_scratch + "/cardset.xml", kCardSet);

    // Stand-in certificate viewer: keeps a copy of every file it is given.
    const std::string viewer = g_scratch + "/bin/certViewerApp";
    WriteFile(viewer, "#!/bin/sh\nn=$(ls '" + g_scratch + "'/viewed-*.cer 2>/dev/null | wc -l)\n"
                      "cp \"$1\" '" + g_scratch + "'/viewed-$n.cer.part && mv '" + g_scratch +
                      "'/viewed-$n.cer.part '" + g_scratch + "'/viewed-$n.cer\n");
    chmod(viewer.c_str(), 0755);
    setenv("PATH", (g_scratch + "/bin:" + Env("PATH", "/usr/bin:/bin")).c_str(), 1);
    UseTestCardSet(true);
}

const std::string& ScratchDir()
{
    return g_scratch;
}

std::string SourceDir()
{
    return Env("KORVEX_SOURCE_DIR", ".");
}

std::string BinaryDir()
{
    return Env("KORVEX_BINARY_DIR", ".");
}

void UseTestCardSet(bool testSet)
{
    if (testSet)
        setenv("VESSA_SIM_CARDS", (g_scratch + "/cardset.xml").c_str(), 1);
    else
        unsetenv("VESSA_SIM_CARDS");
}

void SetPinAnswers(std::initializer_list<std::string> answers)
{
    const std::string script = g_scratch + "/pin-answers";
    std::string text;
    for (const std::string& answer : answers)
        text += answer + "\n";
    WriteFile(script, text);
    std::remove((script + ".pos").c_str());
    std::remove((g_scratch + "/pin-dialog.log").c_str());
}

std::vector<unsigned char> ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> ViewedCertificates()
{
    std::vector<std::string> files;
    for (int n = 0;; ++n) {
        const std::string path = g_scratch + "/viewed-" + std::to_string(n) + ".cer";
        if (access(path.c_str(), R_OK) != 0)
            return files;
        files.push_back(path);
    }
}

std::vector<unsigned char> IssuedCertificate(const TestCard& card, bool signature)
{
    return ReadBytes(Env("VESSA_SIM_KEY_DIR", "") + "/" + card.serial +
                     (signature ? "/sig.cert.der" : "/enc.cert.der"));
}

std::vector<std::string> PinDialogLog()
{
    std::ifstream in(g_scratch + "/pin-dialog.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

CK_RV SimInsertCard(CK_SLOT_ID slot, const char* card)
{
    auto insert = SimFunction<CK_RV (*)(CK_SLOT_ID, const char*)>("vsim_insert_card");
    return insert != nullptr ? insert(slot, card) : CKR_GENERAL_ERROR;
}

CK_RV SimRemoveCard(CK_SLOT_ID slot)
{
    auto remove = SimFunction<CK_RV (*)(CK_SLOT_ID)>("vsim_remove_card");
    return remove != nullptr ? remove(slot) : CKR_GENERAL_ERROR;
}

CK_RV SimSetFault(const char* function, const char* serial, CK_RV rv, int times)
{
    auto fault = SimFunction<CK_RV (*)(const char*, const char*, CK_RV, int)>("vsim_set_fault");
    return fault != nullptr ? fault(function, serial, rv, times) : CKR_GENERAL_ERROR;
}

void SimClearFaults()
{
    if (auto clear = SimFunction<void (*)()>("vsim_clear_faults"))
        clear();
}

CK_RV SimResetCard(const char* serial)
{
    auto reset = SimFunction<CK_RV (*)(const char*)>("vsim_reset_state");
    return reset != nullptr ? reset(serial) : CKR_GENERAL_ERROR;
}

void SimSetLatency(unsigned long callMs)
{
    if (auto latency = SimFunction<void (*)(unsigned long, unsigned long)>("vsim_set_latency"))
        latency(callMs, 0);
}

namespace {

bool SimTries(const char* serial, int pin, int& pinTries, int& pukTries)
{
    auto tries = SimFunction<CK_RV (*)(const char*, int, int*, int*)>("vsim_get_pin_tries");
    pinTries = pukTries = -100;
    return tries != nullptr && tries(serial, pin, &pinTries, &pukTries) == CKR_OK;
}

} // namespace

int SimPinTries(const char* serial, int pin)
{
    int pinTries, pukTries;
    SimTries(serial, pin, pinTries, pukTries);
    return pinTries;
}

int SimPukTries(const char* serial, int pin)
{
    int pinTries, pukTries;
    SimTries(serial, pin, pinTries, pukTries);
    return pukTries;
}

unsigned long SimPinDialogCount()
{
    auto count = SimFunction<unsigned long (*)()>("vsim_pin_dialog_count");
    return count != nullptr ? count() : 0;
}

void Pump(int ms)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    do {
        wxEventLoopBase* loop = wxEventLoopBase::GetActive();
        while (loop != nullptr && loop->Pending())
            loop->Dispatch();
        wxTheApp->ProcessPendingEvents();
        if (loop != nullptr)
            loop->ProcessIdle();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    } while (std::chrono::steady_clock::now() < end);
}

bool PumpUntil(const std::function<bool()>& done, double seconds)
{
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return done();
        Pump(5);
    }
    return true;
}

bool BitmapShowsPicture(const wxBitmap& bitmap, const char* const* xpm)
{
    if (!bitmap.IsOk())
        return false;
    wxImage shown = bitmap.ConvertToImage();
    wxImage expected = wxBitmap(xpm).ConvertToImage();
    if (shown.GetSize() != expected.GetSize())
        return false;
    if (!expected.HasAlpha())
        expected.InitAlpha();
    int compared = 0;
    for (int y = 0; y < expected.GetHeight(); ++y) {
        for (int x = 0; x < expected.GetWidth(); ++x) {
            if (expected.GetAlpha(x, y) == 0 || (shown.HasAlpha() && shown.GetAlpha(x, y) == 0))
                continue;
            // Faded pixels go through premultiplied alpha: allow rounding.
            if (std::abs(shown.GetRed(x, y) - expected.GetRed(x, y)) > 3 ||
                std::abs(shown.GetGreen(x, y) - expected.GetGreen(x, y)) > 3 ||
                std::abs(shown.GetBlue(x, y) - expected.GetBlue(x, y)) > 3)
                return false;
            ++compared;
        }
    }
    return compared > 0;
}

int ModalRecorder::Enter(wxDialog* dialog)
{
    seen.push_back({typeid(*dialog).name(), dialog->GetTitle()});
    if (inspect)
        inspect(dialog);
    return wxID_CANCEL;
}

void MainWindowTest::SetUp()
{
    UseTestCardSet(UsesTestCardSet());
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
    // The start timer begins the first refresh, the reload button the others.
    const int before = m_expectedRefreshes++;
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
    return frame->GetCardList()->GetItemText(row, column).ToStdString(wxConvUTF8);
}

long MainWindowTest::SelectedRow() const
{
    return frame->GetCardList()->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED);
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
    frame->GetCardList()->SetItemState(row, wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED,
                                       wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED);
    Pump(20);
}

bool MainWindowTest::IsEnabled(int id) const
{
    wxWindow* control = frame->FindWindow(id);
    return control != nullptr && control->IsEnabled();
}

void MainWindowTest::Click(int id)
{
    wxWindow* control = frame->FindWindow(id);
    ASSERT_NE(control, nullptr) << "no control " << id;
    wxCommandEvent click(wxEVT_BUTTON, id);
    click.SetEventObject(control);
    control->GetEventHandler()->ProcessEvent(click);
}

void MainWindowTest::ChoosePopupItem(int id)
{
    wxCommandEvent choice(wxEVT_MENU, id);
    frame->evt_OnPopupClick(choice);
}

wxString MainWindowTest::StatusText() const
{
    return frame->GetStatusText()->GetLabel();
}

bool MainWindowTest::StatusShown() const
{
    return frame->GetStatusText()->IsShown() && frame->GetStatusIcon()->IsShown();
}

bool MainWindowTest::StatusIconIsError() const
{
    return BitmapShowsPicture(frame->GetStatusIcon()->GetBitmap(), ButtonCancel);
}

bool MainWindowTest::StatusIconIsSuccess() const
{
    return BitmapShowsPicture(frame->GetStatusIcon()->GetBitmap(), ButtonOk);
}

} // namespace WindowTests
