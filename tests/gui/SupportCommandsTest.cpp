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

// "Slot 3 (0x3): Vessa Reader 3" blocks of `pkcs11-tool -L`, by the report's
// field names; each slot's reader under "Leser".
std::vector<Fields> ToolSlots(const std::string& listing)
{
    const std::map<std::string, std::string> names = {
        {"token label", "Kartenbezeichnung"}, {"token manufacturer", "Kartenhersteller"},
        {"token model", "Modell"},            {"serial num", "Seriennummer"},
        {"hardware version", "Hardwareversion"}, {"firmware version", "Firmwareversion"},
        {"token flags", "Karten-Flags"},      {"pin min/max", "PIN-L\xC3\xA4nge"}};
    std::vector<Fields> slots;
    for (const std::string& line : SplitLines(listing)) {
        const size_t colon = line.find(':');
        if (line.rfind("Slot ", 0) == 0 && colon != std::string::npos)
            slots.push_back({{"Leser", line.substr(colon + 2)}});
        else if (!slots.empty() && colon != std::string::npos && line.rfind("  ", 0) == 0) {
            std::string key = line.substr(2, colon - 2);
            key.erase(key.find_last_not_of(' ') + 1);
            std::string value = line.substr(colon + 2);
            if (key == "pin min/max")
                value[value.find('/')] = '-';
            if (names.count(key))
                slots.back()[names.at(key)] = value;
        }
    }
    return slots;
}

std::vector<Fields> ReportSlots(const std::string& report)
{
    std::vector<Fields> slots;
    for (const std::string& line : SplitLines(report)) {
        const size_t colon = line.find(": ");
        if (line.rfind("Steckplatz ", 0) == 0)
            slots.emplace_back();
        else if (!slots.empty() && line.rfind("  ", 0) == 0 && colon != std::string::npos)
            slots.back()[line.substr(2, colon - 2)] = line.substr(colon + 2);
    }
    return slots;
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
    EXPECT_NE(report.find("Moduldatei: " + BinaryDir() + "/sim/libVessaP11.so\n"), std::string::npos) << report;

    int status = -1;
    const std::string listing = RunCommand("pkcs11-tool -L --module '" + BinaryDir() + "/sim/libVessaP11.so' 2>&1", status);
    ASSERT_EQ(status, 0) << listing;
    const std::vector<Fields> tool = ToolSlots(listing), shown = ReportSlots(report);
    ASSERT_EQ(shown.size(), tool.size()) << report << listing;
    size_t compared = 0;
    for (size_t slot = 0; slot < tool.size(); ++slot) {
        for (const auto& field : tool[slot]) {
            ++compared;
            const auto found = shown[slot].find(field.first);
            ASSERT_NE(found, shown[slot].end()) << slot << " " << field.first << "\n" << report;
            if (field.first == "Karten-Flags")
                EXPECT_EQ(FlagSet(found->second), FlagSet(field.second)) << slot;
            else
                EXPECT_EQ(found->second, field.second) << slot << " " << field.first;
        }
    }
    EXPECT_EQ(compared, 8 + 6 * 8u) << listing; // every reader; six cards of eight fields
    // The report goes out as it is shown.
    DiagnoseDialog dialog(frame, wxString::FromUTF8(report.c_str()));
    const std::string saved = ScratchDir() + "/diagnose.txt";
    ASSERT_TRUE(dialog.SaveTo(wxString::FromUTF8(saved.c_str())));
    EXPECT_EQ(ReadText(saved), report);
}

class CertificateExportTest : public MainWindowTest {};

TEST_F(CertificateExportTest, SavedCertificatesAreTheCardsInBothForms)
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
            if (!pem) {
                EXPECT_EQ(ReadBytes(path), IssuedCertificate(kMaria.serial, signature));
            }
        }
    }
}

} // namespace
} // namespace WindowTests
