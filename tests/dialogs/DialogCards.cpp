// Card set of the dialog tests; see DialogCards.h.
#include "tests/dialogs/DialogCards.h"

#include <cstdio>
#include <cstdlib>

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


} // namespace

void PrepareEnvironment() {
    static bool done = false;
    if (done) return;
    done = true;
    PrepareSimulator(kCardSet);
}

std::string BinDir() { return ScratchDir() + "/bin"; }

void ResetCards() {
    Sim::ClearFaults();
    Sim::ResetState(nullptr);
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
