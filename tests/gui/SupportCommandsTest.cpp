// The commands a card holder uses for support: the diagnostics report against
// what pkcs11-tool reads from the same module, and the certificate export
// against the card's certificate and openssl.
#include "tests/gui/WindowTestSupport.h"

#include "gui/DiagnoseDialog.h"

#include <map>
#include <set>
#include <sstream>

namespace WindowTests {
namespace {

using Fields = std::map<std::string, std::string>;

// The "Name: value" lines of each block that a line starting with `block`
// opens; the block line's own value goes under `blockKey`.
std::vector<Fields> Blocks(const std::string& text, const std::string& block, const std::string& blockKey)
{
    std::vector<Fields> blocks;
    for (const std::string& line : SplitLines(text)) {
        const size_t colon = line.find(':');
        if (line.rfind(block, 0) == 0)
            blocks.push_back({{blockKey, colon == std::string::npos ? "" : line.substr(colon + 2)}});
        else if (!blocks.empty() && line.rfind("  ", 0) == 0 && colon != std::string::npos) {
            const size_t end = line.find_last_not_of(' ', colon - 1);
            blocks.back()[line.substr(2, end - 1)] = line.substr(colon + 2);
        }
    }
    return blocks;
}

std::set<std::string> FlagSet(const std::string& flags)
{
    std::set<std::string> names;
    std::stringstream in(flags);
    for (std::string name; std::getline(in >> std::ws, name, ',');)
        names.insert(name);
    return names;
}

class DemoSupportTest : public MainWindowTest {
protected:
    bool UsesTestCardSet() const override { return false; }
};

TEST_F(DemoSupportTest, DiagnosticsAgreeFieldByFieldWithPkcs11Tool)
{
    ModalRecorder recorder;
    std::string report;
    recorder.inspect = [&report](wxDialog* dialog) {
        if (auto* diagnose = dynamic_cast<DiagnoseDialog*>(dialog))
            report = diagnose->GetReport().ToStdString(wxConvUTF8);
    };
    ChoosePopupItem(MainFrame::ID_POPUP_DIAGNOSE);
    ASSERT_EQ(recorder.seen.size(), 1u);
    const std::string module = BinaryDir() + "/sim/libVessaP11.so";
    EXPECT_NE(report.find("Moduldatei: " + module + "\n"), std::string::npos) << report;

    int status = -1;
    std::string environment;
#ifdef VSIM_SANITIZER_PRELOAD
    environment = "LD_PRELOAD='" VSIM_SANITIZER_PRELOAD "' ASAN_OPTIONS=detect_leaks=0 ";
#endif
    const std::string listing = RunCommand(environment + "pkcs11-tool -L --module '" + module + "' 2>&1", status);
    ASSERT_EQ(status, 0) << listing;
    const std::vector<Fields> tool = Blocks(listing, "Slot ", "slot");
    std::vector<Fields> shown = Blocks(report, "Steckplatz ", "");
    const std::map<std::string, std::string> names = {
        {"slot", "Leser"}, {"token label", "Kartenbezeichnung"}, {"token manufacturer", "Kartenhersteller"},
        {"token model", "Modell"}, {"serial num", "Seriennummer"}, {"hardware version", "Hardwareversion"},
        {"firmware version", "Firmwareversion"}, {"token flags", "Karten-Flags"}, {"pin min/max", "PIN-L\xC3\xA4nge"}};
    ASSERT_EQ(shown.size(), tool.size()) << report << listing;
    size_t compared = 0;
    for (size_t slot = 0; slot < tool.size(); ++slot) {
        for (const auto& field : tool[slot]) {
            if (!names.count(field.first))
                continue;
            ++compared;
            std::string expected = field.second;
            if (field.first == "pin min/max")
                expected[expected.find('/')] = '-';
            const std::string got = shown[slot][names.at(field.first)];
            if (field.first == "token flags")
                EXPECT_EQ(FlagSet(got), FlagSet(expected)) << slot;
            else
                EXPECT_EQ(got, expected) << slot << " " << field.first;
        }
    }
    EXPECT_EQ(compared, 8 + 6 * 8u) << listing; // every reader; six cards of eight fields

    // The report goes out as it is shown.
    DiagnoseDialog dialog(frame, wxString::FromUTF8(report.c_str()));
    const std::string saved = ScratchDir() + "/diagnose.txt";
    ASSERT_TRUE(dialog.SaveTo(wxString::FromUTF8(saved.c_str())));
    EXPECT_EQ(ReadText(saved), report);
}

TEST_F(MainWindowTest, SavedCertificatesAreTheCardsInBothForms)
{
    SelectCard(kMaria);
    for (bool signature : {true, false}) {
        for (bool pem : {true, false}) {
            SCOPED_TRACE(std::string(signature ? "signature " : "encryption ") + (pem ? "PEM" : "DER"));
            const std::string path = ScratchDir() + "/exported" + (pem ? ".pem" : ".cer");
            frame->ExportCertificate(signature, wxString::FromUTF8(path.c_str()), pem);
            WaitForCardWork();
            EXPECT_FALSE(StatusText().Contains("nicht")) << StatusText();
            // openssl reads either form and gives the card's DER back.
            const std::string der = ScratchDir() + "/back.der";
            int status = -1;
            const std::string out = RunCommand("openssl x509 -inform " + std::string(pem ? "PEM" : "DER") + " -in '" +
                                                   path + "' -outform DER -out '" + der + "' 2>&1",
                                               status);
            ASSERT_EQ(status, 0) << out;
            EXPECT_EQ(ReadBytes(der), IssuedCertificate(kMaria.serial, signature));
            EXPECT_EQ(ReadBytes(path) == IssuedCertificate(kMaria.serial, signature), !pem);
        }
    }
}

} // namespace
} // namespace WindowTests
