// The window on modules other than the vendor's: a SoftHSM2 scratch token
// (RSA and EC key with certificates) listed and managed end to end with the
// stand-in pinentry, and OpenSC's module without a reader.
#include "tests/gui/WindowTestSupport.h"

#include "crypto/slCertificate.h"
#include "gui/CardList.h"
#include "token/LoadFreeLib.h"
#include "token/TokenProfile.h"
#include "token/acPKCS11.h"

#include <wx/menu.h>
#include <wx/stattext.h>

namespace WindowTests {
namespace {

const char kSoftHsm[] = "/usr/lib/softhsm/libsofthsm2.so";
const char kOpenSc[] = "/usr/lib/x86_64-linux-gnu/opensc-pkcs11.so";

class StandardTokenTest : public MainWindowTest {
protected:
    static void SetUpTestSuite()
    {
        const std::string dir = ScratchDir() + "/softhsm";
        int status = -1;
        RunCommand("sh " + SourceDir() + "/tests/support/make-softhsm-token.sh " + dir, status);
        ASSERT_EQ(status, 0) << "cannot make the SoftHSM2 token";
        setenv("SOFTHSM2_CONF", (dir + "/softhsm2.conf").c_str(), 1);
    }
    void SetUp() override
    {
        Korvex::SetModuleName(Module());
        MainWindowTest::SetUp();
    }
    void TearDown() override
    {
        MainWindowTest::TearDown();
        Korvex::SetModuleName("");
    }
    virtual const char* Module() const { return kSoftHsm; }
    CK_FLAGS TokenFlags()
    {
        CK_TOKEN_INFO info{};
        frame->GetP11()->GetStandardTokenInfo(frame->SelectedCardData()->slotId, info);
        return info.flags;
    }
};

TEST_F(StandardTokenTest, ListsTheTokenAndManagesItsPinEndToEnd)
{
    // SoftHSM2's slot is fixed; the free slot after it holds no token.
    ASSERT_EQ(RowNumbers().size(), 1u);
    SelectRow(0);
    const CardRow* row = frame->SelectedCardData();
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(RowText(0, 1), "Tessa Token rsa");  // the first certificate with its key
    EXPECT_EQ(RowText(0, 2), "SoftHSM project SoftHSM v2");
    EXPECT_NE(frame->GetCardList()->RowToolTip(0).Find("Modul: SoftHSM project"), wxNOT_FOUND);
    EXPECT_NE(RowText(0, 3), "");
    EXPECT_EQ(frame->GetPinStateText(Korvex::APPL_SIGNATURE)->GetLabel(), Utf8("PIN: in Ordnung"));
    EXPECT_EQ(frame->FindWindow(MainFrame::ID_SIG_CHANGE_PIN)->GetLabel(), Utf8("PIN \xC3\xA4ndern"));
    EXPECT_EQ(LayoutFaults(frame), std::vector<std::string>());
    const int vendorOnly[] = {MainFrame::ID_ENC_CHANGE_PIN, MainFrame::ID_ENC_PUK, MainFrame::ID_PERS_CHANGE,
                              MainFrame::ID_PERS_SHOW};
    for (int id : vendorOnly)
        EXPECT_FALSE(IsEnabled(id)) << id;

    // Change, a wrong PIN that costs one try, unblock with the SO PIN.
    // A new PIN shorter than the token's minimum (4) is asked for again.
    SetPinAnswers({"123456", "123", "123", "24680", "24680"});
    Click(MainFrame::ID_SIG_CHANGE_PIN);
    ExpectStatus("PIN \xC3\x84nderung erfolgreich!", false);
    SetPinAnswers({"123456", "11111", "11111"});
    Click(MainFrame::ID_SIG_CHANGE_PIN);
    ExpectStatus("Fehler beim PIN \xC3\x84ndern! PIN falsch!", true);
    EXPECT_TRUE(TokenFlags() & CKF_USER_PIN_COUNT_LOW);
    EXPECT_EQ(frame->GetPinStateText(Korvex::APPL_SIGNATURE)->GetLabel(), Utf8("PIN: schon falsch eingegeben"));
    SetPinAnswers({"87654321", "123456", "123456"});
    Click(MainFrame::ID_SIG_PUK);
    ExpectStatus("PIN Entsperren erfolgreich!", false);
    EXPECT_FALSE(TokenFlags() & CKF_USER_PIN_COUNT_LOW);

    // Both keys sign with every mechanism the token lists (RSA: PKCS#1
    // v1.5 and PSS; EC: ECDSA), each checked against its certificate.
    SetPinAnswers({"123456"});
    Click(MainFrame::ID_SIG_TEST);
    ExpectStatus("Signaturtest erfolgreich: 3 Signaturen gepr\xC3\xBC" "ft.", false);

    // The holder's certificate goes to the viewer, and the popup offers
    // each certificate by its label.
    const size_t viewedBefore = ViewedCertificates().size();
    Click(MainFrame::ID_SIG_SHOW_CERT);
    ASSERT_TRUE(WaitForFile(ScratchDir() + "/viewed-" + std::to_string(viewedBefore) + ".cer", 10));
    ChoosePopupItem(MainFrame::ID_POPUP_CERTIFICATE + 1);
    ASSERT_TRUE(WaitForFile(ScratchDir() + "/viewed-" + std::to_string(viewedBefore + 1) + ".cer", 10));
    std::unique_ptr<wxMenu> menu(frame->CreateStandardPopupMenu(*frame->SelectedCardData()));
    EXPECT_EQ(menu->GetLabelText(MainFrame::ID_POPUP_CERTIFICATE + 1), "ec certificate");
    const std::vector<std::string> viewed = ViewedCertificates();
    const char* subjects[] = {"Tessa Token rsa", "Tessa Token ec"};
    for (size_t i = 0; i < 2; ++i) {
        const Bytes shown = ReadBytes(viewed[viewedBefore + i]);
        Korvex::slCertificate certificate;
        ASSERT_TRUE(certificate.LoadFromBuffer(shown.data(), shown.size()));
        EXPECT_EQ(certificate.GetSubjectCN(), subjects[i]);
    }
}

TEST(TokenProfileTest, OffersFollowTheTokenKind)
{
    const struct {
        Korvex::TokenType type;
        bool extensions;
        CK_FLAGS flags;
        bool vendor, change, unblock, identityLinkPin, protectedPath;
    } rows[] = {
        {Korvex::TOKEN_ACOS_A03, true, CKF_LOGIN_REQUIRED, true, true, true, true, false},
        {Korvex::TOKEN_ECARD_G2, true, CKF_LOGIN_REQUIRED, true, true, false, false, false},
        {Korvex::TOKEN_ACOS_A04, false, CKF_LOGIN_REQUIRED, false, true, true, false, false},
        {Korvex::TOKEN_UNKNOWN, true, CKF_TOKEN_INITIALIZED, false, false, false, false, false},
        {Korvex::TOKEN_UNKNOWN, false, CKF_LOGIN_REQUIRED | CKF_PROTECTED_AUTHENTICATION_PATH, false, true, true,
         false, true},
    };
    for (const auto& row : rows) {
        CK_TOKEN_INFO info{};
        info.flags = row.flags;
        const Korvex::TokenProfile profile = Korvex::ProfileOf(row.type, row.extensions, info);
        SCOPED_TRACE(testing::Message() << row.type << "/" << row.flags);
        EXPECT_EQ(profile.vendor, row.vendor);
        EXPECT_EQ(profile.change[Korvex::APPL_SIGNATURE], row.change);
        EXPECT_EQ(profile.unblock[Korvex::APPL_SIGNATURE], row.unblock);
        EXPECT_EQ(profile.change[Korvex::APPL_IDENTITY_LINK], row.identityLinkPin);
        EXPECT_EQ(profile.protectedPath, row.protectedPath);
    }
}

class NoReaderTest : public StandardTokenTest {
protected:
    const char* Module() const override { return kOpenSc; }
};

TEST_F(NoReaderTest, EmptyListSaysWhyAndOffersNothing)
{
    EXPECT_TRUE(RowNumbers().empty());
    ExpectStatus("Kein Kartenleser gefunden. Bitte schlie\xC3\x9F" "en Sie einen Kartenleser an.", true);
    for (int id : {MainFrame::ID_SIG_CHANGE_PIN, MainFrame::ID_SIG_SHOW_CERT, MainFrame::ID_PERS_SHOW})
        EXPECT_FALSE(IsEnabled(id)) << id;
}

} // namespace
} // namespace WindowTests
