// Programs around the dialogs, outside the toolkit: the identity-link
// builder and the VessaPlus companion on simulated cards.
#include "base/ShowCertificate.h"
#include "formats/Personenbindung.h"
#include "tests/dialogs/DialogCards.h"
#include "token/acPKCS11.h"
#include "tools/IdentityLinkBuilder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace DialogTests;

namespace {

using ByteVector = std::vector<unsigned char>;

// Output (standard error joined) and exit status of a shell command line.
std::pair<int, std::string> Shell(const std::string& command) {
    int status = -1;
    std::string output = RunCommand(command + " 2>&1", status);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
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

TEST_F(VessaPlusProgram, WritesTheNamedCardOrTheFirstWithoutIdentityLink) {
    ASSERT_TRUE(Empty(IdentityLink(kLena)));
    SetPinAnswers({"4321"});
    auto [status, output] = Shell(program + " -z " + kLena.serial + " --birth " + kLena.birth);
    ASSERT_EQ(status, 0) << output;
    ByteVector link = IdentityLink(kLena);
    Korvex::Personenbindung parsed;
    ASSERT_EQ(parsed.parse(link.data(), static_cast<int>(link.size())), 1);
    EXPECT_EQ(parsed.getGivenName(), kLena.given);
    EXPECT_EQ(parsed.getFamilyName(), kLena.family);
    EXPECT_EQ(parsed.getDateOfBirth(), kLena.birth);
    EXPECT_EQ(parsed.getBaseId().size(), 12u);
    EXPECT_TRUE(Empty(IdentityLink(kOtto))) << "the other card stays as it was";

    ResetCards();
    SetPinAnswers({"4321"});
    ASSERT_EQ(Shell(program + " -z").first, 0);
    EXPECT_FALSE(Empty(IdentityLink(kOtto)));
    EXPECT_TRUE(Empty(IdentityLink(kLena)));
}

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
    EXPECT_EQ(Shell(program).first, 2);
}

} // namespace
