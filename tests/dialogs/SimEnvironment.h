// Test environment of the dialog tests: a private card set on the simulated
// module, private state, configuration and temporary folders, a scripted PIN
// dialogue, and access to the module's control functions.
#pragma once

#include <p11-kit/pkcs11.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace DialogTests {

// Cards of the private card set, in reader order (= slot position).
struct Card {
    const char* serial;
    const char* given;
    const char* family;
    const char* birth;
    int position;
};
extern const Card kJohann;   // ACOS-A03: three fixed objects, identity link, EC P-192 encryption key
extern const Card kMaria;    // ACOS-A04: infobox file with entries 1 to 3
extern const Card kErika;    // ECARD-G2: EC P-192 signature key
extern const Card kOtto;     // ACOS-A03 without identity link
extern const Card kLena;     // ACOS-A05 (infobox file) without identity link

// Sets the environment before anything loads the module: card set, state,
// key cache, all-users and temporary folders, PIN dialogue program, a bin
// folder first on PATH. Safe to call more than once.
void PrepareEnvironment();

// Private scratch folder of this test process.
const std::string& ScratchDir();
// Folder put first on PATH for stand-in programs.
std::string BinDir();
std::string SourceDir();
std::string BinaryDir();

// Answers of the scripted PIN dialogue, consumed in order ("CANCEL" cancels).
void SetPinAnswers(std::initializer_list<std::string> answers);

// Factory state of every card, no faults.
void ResetCards();
// Makes `function` fail with `rv` for the card `serial`, `times` times.
void SetFault(const char* function, const char* serial, CK_RV rv, int times);

// Files of the simulator for one card.
std::string CertificateFile(const Card& card, bool signature);

std::vector<unsigned char> ReadFileBytes(const std::string& path);
void WriteTextFile(const std::string& path, const std::string& text, bool executable = false);
// Waits up to `seconds` for a file to exist and be non-empty.
bool WaitForFile(const std::string& path, double seconds);

// Upper-case hex pairs separated by blanks.
std::string SpacedHex(const std::vector<unsigned char>& bytes);

} // namespace DialogTests
