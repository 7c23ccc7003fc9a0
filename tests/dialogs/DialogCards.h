// Card set of the dialog tests on the shared fixture library, and what the
// dialog and tool tests need beyond it.
#pragma once

#include "tests/support/SimControls.h"
#include "tests/support/TestEnvironment.h"

#include <string>
#include <vector>

namespace DialogTests {

using namespace TestSupport;

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

// The card set and scratch environment, before anything loads the module.
// Safe to call more than once.
void PrepareEnvironment();
// Folder put first on PATH for stand-in programs.
std::string BinDir();
// Factory state of every card, no faults.
void ResetCards();
// Upper-case hex pairs separated by blanks.
std::string SpacedHex(const std::vector<unsigned char>& bytes);

} // namespace DialogTests
