// Programs and helpers around the dialogs, outside the toolkit: the viewer
// start without a viewer, the identity-link builder and the VessaPlus
// companion on simulated cards.
#include "base/ShowCertificate.h"
#include "tests/dialogs/DialogCards.h"
#include "token/acPKCS11.h"
#include "tools/IdentityLinkBuilder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

using namespace DialogTests;

namespace {

using ByteVector = std::vector<unsigned char>;

// Output (standard error joined) and exit status of a shell command line.
std::pair<int, std::string> Shell(const std::string& command) {
    int status = -1;
    std::string output = RunCommand(command + " 2>&1", status);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(ShowCertificate, ReportsAMissingViewer) {
    PrepareEnvironment();
    std::remove((BinDir() + "/certViewerApp").c_str());
    EnvGuard path("PATH", BinDir());
    const std::string errors = ScratchDir() + "/viewer-stderr";
    const int savedErr = dup(STDERR_FILENO);
    const int file = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDERR_FILENO);
    const std::string handedOver = ScratchDir() + "/x.cer";
    WriteText(handedOver, "certificate");
    const bool started = Korvex::HandCertificateToViewer(handedOver);
    dup2(savedErr, STDERR_FILENO);
    close(savedErr);
    close(file);
    EXPECT_TRUE(started);
    ASSERT_TRUE(WaitForFile(errors, 10));
    EXPECT_EQ(ReadText(errors), "ERROR: can not execute certViewerApp: No such file or directory\n");
    EXPECT_NE(access(handedOver.c_str(), F_OK), 0) << "nobody else would remove it";
}

VessaPlus::IdentityLinkFields SampleFields() {
    VessaPlus::IdentityLinkFields fields;
    fields.issuerTemplate = "urn:test:template";
    fields.assertionId = "assertion-1";
    fields.issueInstant = "2024-05-06T07:08:09Z";
    fields.baseId = "123456789012";
    fields.givenName = "Jürgen";
    fields.familyName = "Öttl";
    fields.dateOfBirth = "1980-02-03";
    fields.signatureValue.assign(64, 0xA5);
    return fields;
}

TEST(IdentityLinkBuilder, DerLengthFormsAndWhatDoesNotFitTheLayout) {
    EXPECT_EQ(VessaPlus::DerElement(0x04, ByteVector(127)).size(), 2u + 127);
    const ByteVector medium = VessaPlus::DerElement(0x04, ByteVector(128));
    EXPECT_EQ(ByteVector(medium.begin(), medium.begin() + 3), (ByteVector{0x04, 0x81, 0x80}));
    const ByteVector large = VessaPlus::DerElement(0x04, ByteVector(300));
    EXPECT_EQ(ByteVector(large.begin(), large.begin() + 4), (ByteVector{0x04, 0x82, 0x01, 0x2C}));

    ByteVector der{1};
    std::string error;
    VessaPlus::IdentityLinkFields fields = SampleFields();
    fields.familyName.assign(100, 'x');  // person data needs the short length form
    EXPECT_FALSE(VessaPlus::BuildIdentityLink(fields, der, error));
    EXPECT_TRUE(der.empty());
    EXPECT_FALSE(error.empty());
    fields = SampleFields();
    fields.signatureValue.assign(900, 0x11);
    EXPECT_FALSE(VessaPlus::BuildIdentityLink(fields, der, error));
}

class VessaPlusProgram : public testing::Test {
protected:
    void SetUp() override {
        PrepareEnvironment();
        program = "'" + BinaryDir() + "/tools/VessaPlus'";
        Token();
        ResetCards();
        SetPinAnswers({});
    }
    void TearDown() override { ResetCards(); }

    // One token object for the whole process keeps the module loaded, which
    // the simulator's control functions need.
    static Korvex::acPKCS11& Token() {
        static Korvex::acPKCS11 p11;
        return p11;
    }

    // The identity link as stored, read after a module restart (the
    // companion wrote it from another process).
    ByteVector IdentityLink(const Card& card) {
        std::vector<Korvex::SlotStruct*> slots;
        ByteVector value;
        Korvex::acPKCS11& p11 = Token();
        p11.destroy();
        p11.init();
        if (p11.GetSlots(slots) && p11.OpenSession(card.position, false)) {
            p11.ReadDataObject("PERSONENBINDUNG", value);
            p11.CloseSession();
        }
        return value;
    }
    static bool Empty(const ByteVector& value) {
        return std::all_of(value.begin(), value.end(), [](unsigned char b) { return b == 0; });
    }

    std::string program;
};

TEST_F(VessaPlusProgram, RefusesACardThatHasOneAndReportsACancelledPin) {
    const ByteVector before = IdentityLink(kJohann);
    auto [status, output] = Shell(program + " -z " + kJohann.serial);
    EXPECT_EQ(status, 1);
    EXPECT_NE(output.find("bereits eine Personenbindung"), std::string::npos) << output;
    EXPECT_EQ(IdentityLink(kJohann), before);

    SetPinAnswers({"CANCEL"});
    std::tie(status, output) = Shell(program + " -z " + kOtto.serial);
    EXPECT_EQ(status, 1);
    EXPECT_NE(output.find("Fehler beim Initialisieren des Kartenobjektes. (CLogin)"), std::string::npos) << output;
    EXPECT_TRUE(Empty(IdentityLink(kOtto)));
    for (const char* call : {"", " -z --birth-date 2001-02-29", " -z --birth-date 12.03.1990"})
        EXPECT_EQ(Shell(program + call).first, 2) << call;
}

} // namespace
