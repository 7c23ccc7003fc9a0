// Programs and helpers around the dialogs, outside the toolkit: the private
// certificate file, the detached viewer start, the certViewerApp launcher,
// the identity-link builder and the VessaPlus companion on simulated cards.
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

using namespace DialogTests;

namespace {

using ByteVector = std::vector<unsigned char>;

// Output (standard error joined) and exit status of a shell command line.
std::pair<int, std::string> Shell(const std::string& command) {
    int status = -1;
    std::string output = RunCommand(command + " 2>&1", status);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

bool IsPrivateRegularFile(const std::string& path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & 07777) == 0600;
}

TEST(WritePrivateFile, WritesAnOwnerOnlyFileAndNeverThroughALink) {
    PrepareEnvironment();
    const std::string path = ScratchDir() + "/private.cer";
    const unsigned char data[] = {0x30, 0x03, 0x02, 0x01, 0x00};
    umask(0);  // a permissive mask must not widen the mode
    ASSERT_TRUE(Korvex::WritePrivateFile(path, data, sizeof data));
    umask(022);
    EXPECT_TRUE(IsPrivateRegularFile(path));
    EXPECT_EQ(ReadBytes(path), ByteVector(data, data + sizeof data));
    ASSERT_TRUE(Korvex::WritePrivateFile(path, data, 2));  // replaced, not partly overwritten
    EXPECT_EQ(ReadBytes(path), ByteVector(data, data + 2));

    // A link is replaced; a dangling one would otherwise create its target.
    const std::string victim = ScratchDir() + "/victim-file", target = ScratchDir() + "/created-by-link";
    WriteText(victim, "keep");
    for (const std::string& pointee : {victim, target}) {
        const std::string link = ScratchDir() + "/link.cer";
        std::remove(link.c_str());
        ASSERT_EQ(symlink(pointee.c_str(), link.c_str()), 0);
        ASSERT_TRUE(Korvex::WritePrivateFile(link, data, sizeof data));
        EXPECT_TRUE(IsPrivateRegularFile(link));
    }
    EXPECT_EQ(ReadText(victim), "keep");
    EXPECT_NE(access(target.c_str(), F_OK), 0);

    mkdir((ScratchDir() + "/a-directory").c_str(), 0700);
    EXPECT_FALSE(Korvex::WritePrivateFile(ScratchDir() + "/a-directory", data, sizeof data));
    EXPECT_FALSE(Korvex::WritePrivateFile(ScratchDir() + "/missing/x.cer", data, sizeof data));
}

TEST(ShowCertificate, StartsTheViewerDetachedOrReportsItMissing) {
    PrepareEnvironment();
    const std::string record = ScratchDir() + "/show-args";
    WriteText(BinDir() + "/certViewerApp", "#!/bin/sh\nprintf '%s|' \"$#\" \"$@\" > '" + record + "'\n", true);
    ASSERT_TRUE(Korvex::ShowCertificate("/some where/vessacards_cert.cer"));
    ASSERT_TRUE(WaitForFile(record, 10));
    EXPECT_EQ(ReadText(record), "1|/some where/vessacards_cert.cer|");
    int status = 0;
    EXPECT_EQ(waitpid(-1, &status, WNOHANG), -1) << "the intermediate child is reaped, the viewer is init's";

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

TEST(CertViewerApp, DumpsTextWithoutDisplayAndHandsOverWithOne) {
    PrepareEnvironment();
    const std::string launcher = BinaryDir() + "/tools/certViewerApp";
    const std::string cert = SourceDir() + "/tests/fixtures/certs/ee-rsa.der";
    auto [status, output] = Shell("env -u DISPLAY -u WAYLAND_DISPLAY '" + launcher + "' '" + cert + "'");
    EXPECT_EQ(status, 0);
    EXPECT_NE(output.find("Certificate:"), std::string::npos) << output;
    EXPECT_NE(output.find("CN=Holder Mustermann"), std::string::npos) << output;
    // A hand-off file is shown from a private copy and gone at once.
    const std::string handOff = ScratchDir() + "/vessacards_cert.cer";
    WriteText(handOff, ReadText(cert));
    auto [handOffStatus, handOffOutput] = Shell("env -u DISPLAY -u WAYLAND_DISPLAY VESSACARDS_CERT_HANDOFF='" +
                                                handOff + "' '" + launcher + "' '" + handOff + "'");
    EXPECT_EQ(handOffStatus, 0);
    EXPECT_NE(handOffOutput.find("CN=Holder Mustermann"), std::string::npos) << handOffOutput;
    EXPECT_NE(access(handOff.c_str(), F_OK), 0);

    const std::string fakeBin = ScratchDir() + "/fake-desktop", record = ScratchDir() + "/gcr-args";
    mkdir(fakeBin.c_str(), 0700);
    WriteText(fakeBin + "/gcr-viewer", "#!/bin/sh\nprintf '%s' \"$1\" > '" + record + "'\n", true);
    EXPECT_EQ(Shell("DISPLAY=:99 PATH='" + fakeBin + ":/usr/bin:/bin' '" + launcher + "' '" + cert + "'").first, 0);
    EXPECT_EQ(ReadText(record), cert);

    EXPECT_EQ(Shell("'" + launcher + "'").first, 2);
    EXPECT_EQ(Shell("'" + launcher + "' '" + ScratchDir() + "/none.cer'").first, 1);
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

TEST(IdentityLinkBuilder, RecordParsesBackIntoItsFieldsWithAnExactOuterLength) {
    ByteVector der;
    std::string error;
    ASSERT_TRUE(VessaPlus::BuildIdentityLink(SampleFields(), der, error)) << error;
    ASSERT_GE(der.size(), VessaPlus::kMinIdentityLinkSize);
    EXPECT_LE(der.size(), VessaPlus::kMaxIdentityLinkSize);
    ASSERT_EQ(der[0], 0x30);
    const std::size_t header = der[1] == 0x82 ? 4 : der[1] == 0x81 ? 3 : 2;
    const std::size_t length = der[1] == 0x82 ? (std::size_t(der[2]) << 8 | der[3]) : der[header - 1];
    EXPECT_EQ(header + length, der.size());

    Korvex::Personenbindung link;
    ASSERT_EQ(link.parse(der.data(), static_cast<int>(der.size())), 1);
    EXPECT_EQ(link.getVersion(), 1);
    EXPECT_EQ(link.getIssuerTemplate(), "urn:test:template");
    EXPECT_EQ(link.getAssertionID(), "assertion-1");
    EXPECT_EQ(link.getIssueInstant(), "2024-05-06T07:08:09Z");
    EXPECT_EQ(link.getBaseId(), "123456789012");
    EXPECT_EQ(link.getGivenName(), "Jürgen");
    EXPECT_EQ(link.getFamilyName(), "Öttl");
    EXPECT_EQ(link.getDateOfBirth(), "1980-02-03");
    unsigned char signature[Korvex::Personenbindung::kSignatureValueSize];
    int size = 0;
    link.getSignatureValue(signature, size);
    EXPECT_EQ(size, 64);
    unsigned char digest[Korvex::Personenbindung::kDigestSize];
    link.getReferenceDigest(digest, size);
    EXPECT_EQ(size, 32);
    link.getManifestReferenceDigest(digest, size);
    EXPECT_EQ(size, 32);
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
    auto [status, output] = Shell(program + " -z " + kLena.serial + " --birth-date " + kLena.birth);
    ASSERT_EQ(status, 0) << output;
    EXPECT_EQ(output, std::string("Personenbindung für Lena Leerbox (geboren ") + kLena.birth + ") auf Karte " +
                          kLena.serial + " geschrieben.\n");
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
    link = IdentityLink(kOtto);
    ASSERT_EQ(parsed.parse(link.data(), static_cast<int>(link.size())), 1);
    EXPECT_EQ(parsed.getDateOfBirth(), kOtto.birth) << "the simulator's holder";
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
    for (const char* call : {"", " -z --birth-date 2001-02-29", " -z --birth-date 12.03.1990"})
        EXPECT_EQ(Shell(program + call).first, 2) << call;
}

} // namespace
