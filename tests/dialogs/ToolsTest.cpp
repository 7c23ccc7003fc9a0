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
#include <cstdlib>
#include <memory>

using namespace DialogTests;

namespace {

struct CommandResult {
    int status = -1;
    std::string output;
};

// Runs a shell command line, standard error joined to the output.
CommandResult RunCommand(const std::string& command) {
    CommandResult result;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return result;
    char buffer[512];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string ReadText(const std::string& path) {
    const std::vector<unsigned char> bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

// ---- private certificate file ----

TEST(WritePrivateFile, CreatesAnOwnerOnlyFileWithTheBytes) {
    PrepareEnvironment();
    const std::string path = ScratchDir() + "/private.cer";
    const unsigned char data[] = {0x30, 0x03, 0x02, 0x01, 0x00};
    umask(0);  // a permissive mask must not widen the mode
    ASSERT_TRUE(Korvex::WritePrivateFile(path, data, sizeof data));
    umask(022);
    struct stat info;
    ASSERT_EQ(lstat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    EXPECT_EQ(ReadBytes(path), std::vector<unsigned char>(data, data + sizeof data));

    // An existing, longer file is replaced, not partly overwritten.
    const unsigned char shorter[] = {0x05, 0x00};
    ASSERT_TRUE(Korvex::WritePrivateFile(path, shorter, sizeof shorter));
    EXPECT_EQ(ReadBytes(path), std::vector<unsigned char>(shorter, shorter + 2));
}

TEST(WritePrivateFile, NeverWritesThroughALinkOrIntoADirectory) {
    PrepareEnvironment();
    const std::string victim = ScratchDir() + "/victim-file";
    const std::string link = ScratchDir() + "/link.cer";
    WriteText(victim, "keep");
    std::remove(link.c_str());
    ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
    const unsigned char data[] = {1, 2, 3};
    ASSERT_TRUE(Korvex::WritePrivateFile(link, data, sizeof data));
    EXPECT_EQ(ReadText(victim), "keep");
    struct stat info;
    ASSERT_EQ(lstat(link.c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));

    // A dangling link would otherwise create the file where it points.
    const std::string dangling = ScratchDir() + "/dangling.cer";
    const std::string target = ScratchDir() + "/created-by-link";
    std::remove(dangling.c_str());
    std::remove(target.c_str());
    ASSERT_EQ(symlink(target.c_str(), dangling.c_str()), 0);
    ASSERT_TRUE(Korvex::WritePrivateFile(dangling, data, sizeof data));
    EXPECT_NE(access(target.c_str(), F_OK), 0);

    const std::string dir = ScratchDir() + "/a-directory";
    mkdir(dir.c_str(), 0700);
    EXPECT_FALSE(Korvex::WritePrivateFile(dir, data, sizeof data));
    EXPECT_FALSE(Korvex::WritePrivateFile(ScratchDir() + "/missing/x.cer", data, sizeof data));
}

// ---- viewer start ----

TEST(ShowCertificate, StartsTheViewerFromThePathWithTheFileAndReapsIt) {
    PrepareEnvironment();
    const std::string record = ScratchDir() + "/show-args";
    std::remove(record.c_str());
    WriteText(BinDir() + "/certViewerApp",
                  "#!/bin/sh\nprintf '%s|' \"$#\" \"$@\" > '" + record + "'\n", true);
    ASSERT_TRUE(Korvex::ShowCertificate("/some where/vessacards_cert.cer"));
    ASSERT_TRUE(WaitForFile(record, 10));
    EXPECT_EQ(ReadText(record), "1|/some where/vessacards_cert.cer|");
    // The intermediate child is already reaped; the viewer belongs to init.
    int status = 0;
    EXPECT_EQ(waitpid(-1, &status, WNOHANG), -1);
    std::remove((BinDir() + "/certViewerApp").c_str());
}

TEST(ShowCertificate, MissingViewerIsReportedOnStandardError) {
    PrepareEnvironment();
    std::remove((BinDir() + "/certViewerApp").c_str());
    const std::string saved = std::getenv("PATH");
    setenv("PATH", BinDir().c_str(), 1);
    const std::string errors = ScratchDir() + "/viewer-stderr";
    const int savedErr = dup(STDERR_FILENO);
    const int file = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDERR_FILENO);
    const bool started = Korvex::ShowCertificate("/tmp/x.cer");
    dup2(savedErr, STDERR_FILENO);
    close(savedErr);
    close(file);
    setenv("PATH", saved.c_str(), 1);
    EXPECT_TRUE(started);
    ASSERT_TRUE(WaitForFile(errors, 10));
    EXPECT_EQ(ReadText(errors),
              "ERROR: can not execute certViewerApp: No such file or directory\n");
}

// ---- certViewerApp launcher ----

class CertViewerApp : public testing::Test {
protected:
    void SetUp() override {
        PrepareEnvironment();
        launcher = BinaryDir() + "/tools/certViewerApp";
        ASSERT_EQ(access(launcher.c_str(), X_OK), 0) << launcher;
        cert = SourceDir() + "/tests/fixtures/certs/ee-rsa.der";
        fakeBin = ScratchDir() + "/fake-desktop";
        mkdir(fakeBin.c_str(), 0700);
    }
    std::string launcher, cert, fakeBin;
};

TEST_F(CertViewerApp, DumpsTheCertificateAsTextWithoutDisplay) {
    const CommandResult result =
        RunCommand("env -u DISPLAY -u WAYLAND_DISPLAY '" + launcher + "' '" + cert + "'");
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.output.find("Certificate:"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("CN=Holder Mustermann"), std::string::npos)
        << result.output;
}

TEST_F(CertViewerApp, HandsTheFileToTheDesktopViewerWhenADisplayIsThere) {
    const std::string record = ScratchDir() + "/gcr-args";
    WriteText(fakeBin + "/gcr-viewer", "#!/bin/sh\nprintf '%s' \"$1\" > '" + record + "'\n",
                  true);
    const CommandResult result = RunCommand("DISPLAY=:99 PATH='" + fakeBin + ":/usr/bin:/bin' '" +
                                     launcher + "' '" + cert + "'");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(ReadText(record), cert);
}

TEST_F(CertViewerApp, RefusesMissingFilesAndWrongUsage) {
    EXPECT_EQ(RunCommand("'" + launcher + "'").status, 2);
    EXPECT_EQ(RunCommand("'" + launcher + "' '" + ScratchDir() + "/none.cer'").status, 1);
}

// ---- identity-link builder ----

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

TEST(IdentityLinkBuilder, RecordParsesBackIntoItsFields) {
    std::vector<unsigned char> der;
    std::string error;
    ASSERT_TRUE(VessaPlus::BuildIdentityLink(SampleFields(), der, error)) << error;
    EXPECT_EQ(der[0], 0x30);
    EXPECT_GE(der.size(), VessaPlus::kMinIdentityLinkSize);
    EXPECT_LE(der.size(), VessaPlus::kMaxIdentityLinkSize);

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
    int length = 0;
    link.getSignatureValue(signature, length);
    EXPECT_EQ(length, 64);
    unsigned char digest[Korvex::Personenbindung::kDigestSize];
    link.getReferenceDigest(digest, length);
    EXPECT_EQ(length, 32);
    link.getManifestReferenceDigest(digest, length);
    EXPECT_EQ(length, 32);
}

TEST(IdentityLinkBuilder, OuterLengthCoversExactlyTheRecord) {
    std::vector<unsigned char> der;
    std::string error;
    ASSERT_TRUE(VessaPlus::BuildIdentityLink(SampleFields(), der, error));
    ASSERT_GE(der.size(), 4u);
    std::size_t header = 2, length = der[1];
    if (der[1] == 0x81) {
        header = 3;
        length = der[2];
    } else if (der[1] == 0x82) {
        header = 4;
        length = (std::size_t(der[2]) << 8) | der[3];
    }
    EXPECT_EQ(header + length, der.size());
}

TEST(IdentityLinkBuilder, RefusesWhatDoesNotFitTheLayout) {
    std::vector<unsigned char> der{1};
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

TEST(IdentityLinkBuilder, DerLengthForms) {
    EXPECT_EQ(VessaPlus::DerElement(0x04, std::vector<unsigned char>(127)).size(), 2u + 127);
    const auto medium = VessaPlus::DerElement(0x04, std::vector<unsigned char>(128));
    EXPECT_EQ(std::vector<unsigned char>(medium.begin(), medium.begin() + 3),
              (std::vector<unsigned char>{0x04, 0x81, 0x80}));
    const auto large = VessaPlus::DerElement(0x04, std::vector<unsigned char>(300));
    EXPECT_EQ(std::vector<unsigned char>(large.begin(), large.begin() + 4),
              (std::vector<unsigned char>{0x04, 0x82, 0x01, 0x2C}));
}

// ---- VessaPlus companion ----

class VessaPlusProgram : public testing::Test {
protected:
    void SetUp() override {
        PrepareEnvironment();
        program = BinaryDir() + "/tools/VessaPlus";
        ASSERT_EQ(access(program.c_str(), X_OK), 0) << program;
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

    // Reads the identity link through the token object of this process,
    // after restarting the module so that it reads the cards' stored state
    // afresh (the companion wrote it from another process).
    std::vector<unsigned char> IdentityLink(const Card& card) {
        std::vector<Korvex::SlotStruct*> slots;
        std::vector<unsigned char> value;
        Korvex::acPKCS11& p11 = Token();
        p11.destroy();
        p11.init();
        if (p11.GetSlots(slots) && p11.OpenSession(card.position, false)) {
            p11.ReadDataObject("PERSONENBINDUNG", value);
            p11.CloseSession();
        }
        return value;
    }
    static bool Empty(const std::vector<unsigned char>& value) {
        return std::all_of(value.begin(), value.end(), [](unsigned char b) { return b == 0; });
    }

    std::string program;
};

TEST_F(VessaPlusProgram, WritesTheNamedCardWithTheHoldersNames) {
    ASSERT_TRUE(Empty(IdentityLink(kLena)));
    SetPinAnswers({"4321"});
    const CommandResult result =
        RunCommand("'" + program + "' -z " + kLena.serial + " --birth " + kLena.birth);
    ASSERT_EQ(result.status, 0) << result.output;

    std::vector<unsigned char> link = IdentityLink(kLena);
    ASSERT_FALSE(Empty(link));
    Korvex::Personenbindung parsed;
    ASSERT_EQ(parsed.parse(link.data(), static_cast<int>(link.size())), 1);
    EXPECT_EQ(parsed.getGivenName(), kLena.given);
    EXPECT_EQ(parsed.getFamilyName(), kLena.family);
    EXPECT_EQ(parsed.getDateOfBirth(), kLena.birth);
    EXPECT_EQ(parsed.getBaseId().size(), 12u);
    // The other card without identity link stays as it was.
    EXPECT_TRUE(Empty(IdentityLink(kOtto)));
}

TEST_F(VessaPlusProgram, WithoutCinTakesTheFirstCardWithoutIdentityLink) {
    SetPinAnswers({"4321"});
    const CommandResult result = RunCommand("'" + program + "' -z");
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_FALSE(Empty(IdentityLink(kOtto)));
    EXPECT_TRUE(Empty(IdentityLink(kLena)));
}

TEST_F(VessaPlusProgram, RefusesACardThatHasOneAndReportsACancelledPin) {
    const std::vector<unsigned char> before = IdentityLink(kJohann);
    CommandResult result = RunCommand("'" + program + "' -z " + kJohann.serial);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("bereits eine Personenbindung"), std::string::npos);
    EXPECT_EQ(IdentityLink(kJohann), before);

    SetPinAnswers({"CANCEL"});
    result = RunCommand("'" + program + "' -z " + kOtto.serial);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("Fehler beim Initialisieren des Kartenobjektes. (CLogin)"),
              std::string::npos)
        << result.output;
    EXPECT_TRUE(Empty(IdentityLink(kOtto)));

    EXPECT_EQ(RunCommand("'" + program + "'").status, 2);
}

} // namespace
