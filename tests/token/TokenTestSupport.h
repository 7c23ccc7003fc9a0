// Shared pieces of the token tests on top of the shared fixture library:
// their card set, captured log lines, a fixture that loads the module per
// test, another module in its place, and signature checks with OpenSSL.
#pragma once

#include "tests/support/TestCommon.h"
#include "tests/support/SignatureCheck.h"
#include "tests/support/SimControls.h"
#include "token/acPKCS11.h"

namespace tokentest {

using Token = Korvex::acPKCS11;

// Cards of the test card set (reader = slot id = position in the card list).
struct TestCard {
    const char* serial;
    const char* generation;
    Korvex::TokenType type;   // from the token information
    int cardTypeCode;         // from the ATR
};
extern const TestCard kCards[7];   // readers 0..6: the seven generations
extern const char kBlankSerial[];  // reader 7: unpersonalised card
extern const char kOddG3BSerial[]; // reader 8: "Starcos SPK 3.4+" with a foreign label
extern const char kOddG4Serial[];  // reader 9: "ATOS 5.3" with a foreign label
constexpr size_t kListedCards = 10; // readers 0..9; 10 is empty, 11 is built in

using Lines = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

// Points the client version entry at text ("" removes it).
void setClientVersion(const std::string& text);

// Log lines of the token layer since the last clear, caught while a
// TokenLog lives.
using Log = TestSupport::LogCapture;
struct TokenLog : Log {
    TokenLog() : Log(Token::SetErrorLoggingFunc, Token::SetMessageLoggingFunc) {}
};

// The simulator's controls and the scripted PIN dialogue of the shared
// fixture library.
namespace Sim = TestSupport::Sim;
using TestSupport::SetPinAnswers;

// Loads the module (through the token object) for every test and unloads it
// afterwards, so each test starts from factory card state without faults.
class TokenTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Opens a session on the card with this serial; false when not listed.
    bool openCard(const char* serial, bool readWrite = false);

    TokenLog log;
    std::unique_ptr<Token> p11;
};

// The token layer loads another module file (path) for the lifetime of the
// object, instead of the simulator by its name; the simulator's controls
// reach that module meanwhile.
class ModuleOverride {
public:
    explicit ModuleOverride(const char* path);
    ~ModuleOverride();

private:
    const char* m_previousName;
};

using TestSupport::verifyWithCertificate;

} // namespace tokentest
