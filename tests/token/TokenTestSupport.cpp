// Implementation of the shared token test pieces (see TokenTestSupport.h).
#include "tests/token/TokenTestSupport.h"

#include "base/Config.h"
#include "token/ClientVersion.h"
#include "token/LoadFreeLib.h"

#include <dlfcn.h>
#include <stdlib.h>

#include "tests/support/TestCommon.h"

namespace tokentest {

const TestCard kCards[7] = {
    {"1203000000000001", "ACOS-A03", Korvex::TOKEN_ACOS_A03, 1},
    {"1204000000000002", "ACOS-A04", Korvex::TOKEN_ACOS_A04, 5},
    {"1205000000000003", "ACOS-A05", Korvex::TOKEN_ACOS_A05, 6},
    {"3002000000000004", "ECARD-G2", Korvex::TOKEN_ECARD_G2, 4},
    {"3031000000000005", "ECARD-G3A", Korvex::TOKEN_ECARD_G3A, 3},
    {"3032000000000006", "ECARD-G3B", Korvex::TOKEN_ECARD_G3B, 7},
    {"3014000000000007", "ECARD-G4", Korvex::TOKEN_ECARD_G4, 8},
};
const char kBlankSerial[] = "0000000000000000";
const char kOddG3BSerial[] = "3032000000000008";
const char kOddG4Serial[] = "3014000000000009";

namespace {

std::string cardSetXml()
{
    std::ostringstream xml;
    xml << "<cardset>\n";
    // Holder of reader i: "Test Karte<i+1>".
    for (int reader = 0; reader < 7; ++reader)
        xml << "<reader name=\"Leser " << reader << "\"><card generation=\"" << kCards[reader].generation
            << "\" serial=\"" << kCards[reader].serial << "\" given=\"Test\" family=\"Karte"
            << reader + 1 << "\"/></reader>\n";
    xml << "<reader name=\"Leser 7\"><card generation=\"ACOS-A05\" serial=\"" << kBlankSerial
        << "\"/></reader>\n"
        << "<reader name=\"Leser 8\"><card generation=\"ECARD-G3B\" serial=\"" << kOddG3BSerial
        << "\" label=\"Sonderkarte\"/></reader>\n"
        << "<reader name=\"Leser 9\"><card generation=\"ECARD-G4\" serial=\"" << kOddG4Serial
        << "\" label=\"Fremdkarte\"/></reader>\n"
        << "<reader name=\"Leser 10\"/>\n"
        << "<reader name=\"Intern\" removable=\"false\"><card generation=\"INTERNAL\" "
           "serial=\"0000000000000001\"/></reader>\n"
        << "</cardset>\n";
    return xml.str();
}

// The card set and a private environment for the test process; the module
// stays mapped for the whole process: each test still finalises and closes
// it through the token layer, but the module's own caches are not unmapped
// under LeakSanitizer's feet (the simulator does not free them on unload).
class TokenEnvironment : public ::testing::Environment {
public:
    void SetUp() override
    {
        TestSupport::PrepareSimulator(cardSetXml());
        dlopen("libVessaP11.so", RTLD_LAZY);
    }
};

::testing::Environment* const g_environment =
    ::testing::AddGlobalTestEnvironment(new TokenEnvironment);

} // namespace

void setClientVersion(const std::string& text)
{
    Korvex::Config* config = Korvex::ClientVersionConfig();
    ASSERT_NE(config, nullptr);
    if (text.empty())
        config->RemoveKey(Korvex::kClientVersionEntry);
    else
        ASSERT_TRUE(config->SetString(Korvex::kClientVersionEntry, text));
}

void TokenTest::SetUp()
{
    p11 = std::make_unique<Token>();
    ASSERT_TRUE(Token::IsInitialized());
    Sim::ClearFaults();
    Sim::ResetState();
    SetPinAnswers({});
    Log::clear();
}

void TokenTest::TearDown()
{
    if (p11) {
        p11->CloseSession();
        p11->destroy();
        p11.reset();
    }
}

bool TokenTest::openCard(const char* serial, bool readWrite)
{
    std::vector<Korvex::SlotStruct*> slots;
    if (!p11->GetSlots(slots, true))
        return false;
    for (size_t i = 0; i < slots.size(); ++i)
        if (slots[i]->serial == serial)
            return p11->OpenSession(static_cast<int>(i), readWrite);
    return false;
}

ModuleOverride::ModuleOverride(const char* path) : m_previousName(Korvex::PKCS11_LIB_NAME)
{
    Korvex::PKCS11_LIB_NAME = path;
    Sim::ControlModule(path);
}

ModuleOverride::~ModuleOverride()
{
    Korvex::PKCS11_LIB_NAME = m_previousName;
    Sim::ControlModule("libVessaP11.so");
}

} // namespace tokentest
