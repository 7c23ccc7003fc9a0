// Environment of the dialog tests; see SimEnvironment.h.
#include "tests/dialogs/SimEnvironment.h"

#include "sim/SimControl.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace DialogTests {

const Card kJohann{"1203000000001111", "Johann", "Österreicher", "1959-01-30", 0};
const Card kMaria{"1204000000004711", "Maria", "Musterfrau", "1975-04-12", 1};
const Card kErika{"3002000000004242", "Erika", "Beispiel", "1982-07-21", 2};
const Card kOtto{"1203000000002222", "Otto", "Ohnebindung", "1948-02-29", 3};
const Card kLena{"1205000000002323", "Lena", "Leerbox", "2001-10-10", 4};

namespace {

const char kCardSet[] = R"(<cardset>
  <reader name="Leser 0"><card id="johann" generation="ACOS-A03" serial="1203000000001111"
    given="Johann" family="Österreicher" birth="1959-01-30"/></reader>
  <reader name="Leser 1"><card id="maria" generation="ACOS-A04" serial="1204000000004711"
    given="Maria" family="Musterfrau" birth="1975-04-12"/></reader>
  <reader name="Leser 2"><card id="erika" generation="ECARD-G2" serial="3002000000004242"
    given="Erika" family="Beispiel" birth="1982-07-21"/></reader>
  <reader name="Leser 3"><card id="otto" generation="ACOS-A03" serial="1203000000002222"
    given="Otto" family="Ohnebindung" birth="1948-02-29" identitylink="false"/></reader>
  <reader name="Leser 4"><card id="lena" generation="ACOS-A05" serial="1205000000002323"
    given="Lena" family="Leerbox" birth="2001-10-10" identitylink="false"/></reader>
</cardset>
)";

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string g_scratch;

// Every test process makes its own folder; KORVEX_KEEP_SCRATCH keeps it for
// a look after a failure.
void RemoveScratch() {
    if (!g_scratch.empty() && Env("KORVEX_KEEP_SCRATCH").empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(g_scratch, ignored);
    }
}

std::string MakeScratch() {
    std::string base = Env("KORVEX_BINARY_DIR");
    base = base.empty() ? "/tmp" : base + "/test-scratch";
    mkdir(base.c_str(), 0700);
    std::string pattern = base + "/dialogs-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    g_scratch = pattern;
    std::atexit(RemoveScratch);
    return pattern;
}

void* Module() {
    // The module under test is already loaded by the token layer.
    void* handle = dlopen("libVessaP11.so", RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) handle = dlopen("libVessaP11.so", RTLD_NOW);
    return handle;
}

template <typename Fn> Fn Control(const char* name) {
    void* handle = Module();
    Fn fn = handle ? reinterpret_cast<Fn>(dlsym(handle, name)) : nullptr;
    if (fn == nullptr) throw std::runtime_error(std::string("simulator control missing: ") + name);
    return fn;
}

} // namespace

const std::string& ScratchDir() {
    static const std::string dir = MakeScratch();
    return dir;
}

std::string BinDir() { return ScratchDir() + "/bin"; }
std::string SourceDir() { return Env("KORVEX_SOURCE_DIR"); }
std::string BinaryDir() { return Env("KORVEX_BINARY_DIR"); }

void PrepareEnvironment() {
    static bool done = false;
    if (done) return;
    done = true;
    const std::string& scratch = ScratchDir();
    for (const char* sub : {"/state", "/etc", "/tmp", "/home", "/bin"})
        mkdir((scratch + sub).c_str(), 0700);
    WriteTextFile(scratch + "/cards.xml", kCardSet);

    setenv("VESSA_SIM_CARDS", (scratch + "/cards.xml").c_str(), 1);
    setenv("VESSA_SIM_STATE_DIR", (scratch + "/state").c_str(), 1);
    // Keys survive between runs: making RSA keys is slow.
    const std::string keys =
        (BinaryDir().empty() ? scratch : BinaryDir() + "/test-scratch") + "/dialogs-sim-keys";
    setenv("VESSA_SIM_KEY_DIR", keys.c_str(), 1);
    setenv("VESSA_SIM_PINENTRY", (SourceDir() + "/tests/support/fake-pinentry").c_str(), 1);
    setenv("FAKE_PINENTRY_SCRIPT", (scratch + "/pins").c_str(), 1);
    setenv("KORVEX_ALLUSERS_DIR", (scratch + "/etc/").c_str(), 1);
    setenv("HOME", (scratch + "/home").c_str(), 1);
    setenv("TMPDIR", (scratch + "/tmp/").c_str(), 1);
    setenv("PATH", (BinDir() + ":" + Env("PATH")).c_str(), 1);
    SetPinAnswers({});
}

void SetPinAnswers(std::initializer_list<std::string> answers) {
    const std::string script = ScratchDir() + "/pins";
    std::string text;
    for (const std::string& answer : answers) text += answer + "\n";
    WriteTextFile(script, text);
    std::remove((script + ".pos").c_str());
}

void ResetCards() {
    Control<void (*)()>("vsim_clear_faults")();
    Control<CK_RV (*)(const char*)>("vsim_reset_state")(nullptr);
}

void SetFault(const char* function, const char* serial, CK_RV rv, int times) {
    Control<CK_RV (*)(const char*, const char*, CK_RV, int)>("vsim_set_fault")(function, serial,
                                                                              rv, times);
}

std::string CertificateFile(const Card& card, bool signature) {
    return Env("VESSA_SIM_KEY_DIR") + "/" + card.serial + (signature ? "/sig.cert.der" : "/enc.cert.der");
}

std::vector<unsigned char> ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

void WriteTextFile(const std::string& path, const std::string& text, bool executable) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    if (executable) chmod(path.c_str(), 0755);
}

bool WaitForFile(const std::string& path, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    while (std::chrono::steady_clock::now() < deadline) {
        struct stat info;
        if (stat(path.c_str(), &info) == 0 && info.st_size > 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

std::string SpacedHex(const std::vector<unsigned char>& bytes) {
    std::string text;
    char pair[4];
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(pair, sizeof pair, i + 1 < bytes.size() ? "%02X " : "%02X", bytes[i]);
        text += pair;
    }
    return text;
}

} // namespace DialogTests
