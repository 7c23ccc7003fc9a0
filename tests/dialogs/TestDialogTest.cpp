// Signature test dialog on the simulated cards: hash choices by key size,
// signing with the PIN dialogue, verification by the card, every status text.
#include "gui/TestDialog.h"

#include "base/base64.h"
#include "gui/MainFrame.h"
#include "tests/dialogs/GuiSupport.h"
#include "token/acPKCS11.h"

#include <wx/combobox.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/timer.h>

#include <gtest/gtest.h>

#include <memory>

using namespace DialogTests;

namespace {

class TestDialogTest : public OpenDialogTest<TestDialog> {
protected:
    TestDialog* Open(const Card& card, Korvex::ApplType appl) {
        dialog = new TestDialog(Frame(), wxID_ANY, Utf8("Unterschriftentest"));
        dialog->SetP11(Token(), card.position, appl);
        dialog->Show();
        return dialog;
    }

    wxString Status() const { return dialog->GetStatusText()->GetLabel(); }
    bool StatusShown() const { return dialog->GetStatusText()->IsShown(); }

    // Clicks a button and waits for the card work it starts.
    void Press(int id) {
        wxCommandEvent event(wxEVT_BUTTON, id);
        id == TestDialog::ID_SIGN ? dialog->evt_sign(event) : dialog->evt_verify(event);
        ASSERT_TRUE(TestSupport::PumpUntil([this] { return !dialog->IsCardWorkRunning(); }, 30.0));
    }
    void Sign() { Press(TestDialog::ID_SIGN); }
    void Verify() { Press(TestDialog::ID_VERIFY); }
    // Signs on the card and has the card verify the signature; both succeed.
    void SignAndVerify() {
        Sign();
        ASSERT_EQ(Status(), "Signatur erfolgreich!");
        Verify();
        EXPECT_EQ(Status(), Utf8("Signaturprüfung erfolgreich!"));
    }
    void SelectHash(const char* name) {
        wxComboBox* hash = dialog->GetHashChoice();
        hash->SetSelection(hash->FindString(name));
    }
    std::vector<wxString> HashEntries() const {
        std::vector<wxString> entries;
        for (unsigned i = 0; i < dialog->GetHashChoice()->GetCount(); ++i)
            entries.push_back(dialog->GetHashChoice()->GetString(i));
        return entries;
    }
};

TEST_F(TestDialogTest, OffersHashesByKeySizeWithThePresetText) {
    const struct {
        const Card& card;
        Korvex::ApplType appl;
        const char* algorithm;
        std::vector<wxString> hashes;
        const char* preselected;
    } cases[] = {
        {kJohann, Korvex::APPL_SIGNATURE, "RSA", {"SHA-1", "RIPEMD-160", "SHA-256"}, "SHA-256"},  // RSA 1536
        {kJohann, Korvex::APPL_ENCRYPTION, "ECC", {"SHA-1", "RIPEMD-160"}, "RIPEMD-160"},         // P-192
        {kMaria, Korvex::APPL_ENCRYPTION, "ECC", {"SHA-1", "RIPEMD-160", "SHA-256"}, "SHA-256"},  // P-256
    };
    for (const auto& c : cases) {
        Open(c.card, c.appl);
        EXPECT_EQ(dialog->GetKeyAlgorithmField()->GetValue(), c.algorithm);
        EXPECT_EQ(HashEntries(), c.hashes);
        EXPECT_EQ(dialog->GetHashChoice()->GetStringSelection(), c.preselected);
        EXPECT_EQ(dialog->GetTextField()->GetValue(),
                  "Das ist ein Test!\n\nDie Signatur dieses Textes wird nur virtuell erstellt und "
                  "nicht abgespeichert.");
        EXPECT_TRUE(dialog->GetSignatureField()->GetValue().empty());
        EXPECT_FALSE(StatusShown());
        EXPECT_EQ(TestSupport::LayoutFaults(dialog), std::vector<std::string>{});
        dialog->Destroy();
    }
    Open(kJohann, Korvex::APPL_IDENTITY_LINK);  // no key
    EXPECT_EQ(Status(), Utf8("Ungültige Karte"));
    EXPECT_TRUE(HashEntries().empty());
}

TEST_F(TestDialogTest, SignsOnTheCardAndTheCardVerifiesWhatWasSigned) {
    Open(kJohann, Korvex::APPL_SIGNATURE);
    SetPinAnswers({"123456", "123456"});
    SignAndVerify();
    EXPECT_TRUE(dialog->GetStatusIcon()->IsShown());
    // RSA 1536: 192 signature bytes, shown in Base64.
    EXPECT_EQ(Korvex::b64Decode(dialog->GetSignatureField()->GetValue().ToStdString()).size(), 192u);

    const wxString original = dialog->GetTextField()->GetValue();
    dialog->GetTextField()->SetValue(original + "!");
    Verify();
    EXPECT_EQ(Status(), "Fehler beim Verifizieren der Signatur");
    dialog->GetTextField()->SetValue(original);
    SelectHash("SHA-1");
    Verify();
    EXPECT_EQ(Status(), "Fehler beim Verifizieren der Signatur");
    SignAndVerify();  // signed again with the newly chosen hash
    dialog->Destroy();

    Open(kErika, Korvex::APPL_SIGNATURE);  // EC P-192 signature key
    SetPinAnswers({"123456"});
    SignAndVerify();
    dialog->Destroy();
    Open(kMaria, Korvex::APPL_ENCRYPTION);  // the encryption key asks its own PIN
    SetPinAnswers({"1234"});
    SignAndVerify();
}

TEST_F(TestDialogTest, TheDialogAnswersWhileTheCardSignsAndStaysUntilItIsDone) {
    Open(kMaria, Korvex::APPL_SIGNATURE);
    setenv("FAKE_PINENTRY_DELAY", "0.6", 1);  // the user takes a moment over the PIN
    SetPinAnswers({"123456"});
    const unsigned long dialogs = TestSupport::Sim::PinDialogCount();
    int ticks = 0;
    wxTimer timer;
    timer.Bind(wxEVT_TIMER, [&ticks](wxTimerEvent&) { ++ticks; });
    timer.Start(20);
    wxCommandEvent click(wxEVT_BUTTON, TestDialog::ID_SIGN);
    dialog->evt_sign(click);
    EXPECT_TRUE(dialog->IsCardWorkRunning());
    dialog->evt_sign(click);  // a second click while the card works is refused
    EXPECT_FALSE(dialog->Close()) << "closing waits for the card";
    ASSERT_TRUE(TestSupport::PumpUntil([this] { return !dialog->IsCardWorkRunning(); }, 30.0));
    timer.Stop();
    unsetenv("FAKE_PINENTRY_DELAY");
    EXPECT_GT(ticks, 10) << "the event loop stood still during the signature";
    EXPECT_EQ(Status(), "Signatur erfolgreich!");
    EXPECT_EQ(TestSupport::Sim::PinDialogCount(), dialogs + 1);
}

TEST_F(TestDialogTest, BoundToTheCardItFollowsItIntoAnotherReader) {
    Korvex::TokenInfoStruct2 info;
    ASSERT_TRUE(Token()->GetTokenInfoForSlot(kMaria.position, info));
    dialog = new TestDialog(Frame(), wxID_ANY, Utf8("Unterschriftentest"));
    // The refresh saw the card in the reader that holds Erika's now.
    dialog->SetCard(Token(), kErika.position, kMaria.serial, Korvex::APPL_SIGNATURE, info);
    EXPECT_EQ(dialog->GetKeyAlgorithmField()->GetValue(), "RSA");
    dialog->Show();
    SetPinAnswers({"123456"});
    SignAndVerify();
    // An RSA signature: Maria's card signed, not Erika's EC card.
    EXPECT_GE(Korvex::b64Decode(dialog->GetSignatureField()->GetValue().ToStdString()).size(), 192u);
}

TEST_F(TestDialogTest, EveryFailureHasItsText) {
    Open(kJohann, Korvex::APPL_SIGNATURE);
    SetPinAnswers({"CANCEL", "000000"});
    Sign();
    EXPECT_EQ(Status(), "Fehler beim Signieren");
    EXPECT_TRUE(dialog->GetSignatureField()->GetValue().empty());
    Sign();
    EXPECT_EQ(Status(), "Fehler beim Signieren");

    Sim::SetFault("C_OpenSession", kJohann.serial, CKR_DEVICE_ERROR, 2);
    Sign();
    EXPECT_EQ(Status(), "Fehler beim Aufbau der Verbindung zur Karte");
    Verify();
    EXPECT_EQ(Status(), "Fehler beim Aufbau der Verbindung zur Karte");

    const wxString original = dialog->GetTextField()->GetValue();
    dialog->GetTextField()->Clear();
    Sign();
    EXPECT_EQ(Status(), "Fehler beim Hashen des Textes");
    Verify();
    EXPECT_EQ(Status(), "Fehler beim Hashen des Textes");
    dialog->GetTextField()->SetValue(original);

    dialog->GetHashChoice()->Append("MD5");
    SelectHash("MD5");
    Korvex::HashAlgorithm algorithm = Korvex::HashSha256;
    EXPECT_FALSE(dialog->GetHashAlgorithm(algorithm));
    EXPECT_EQ(algorithm, Korvex::HashSha1);
    EXPECT_EQ(Status(), Utf8("Ungültiger Hashwert"));
    SelectHash("RIPEMD-160");
    EXPECT_TRUE(dialog->GetHashAlgorithm(algorithm));
    EXPECT_EQ(algorithm, Korvex::HashRipemd160);
    dialog->Destroy();

    // Without token information the key size is unknown: no hash is offered.
    Sim::SetFault("C_GetTokenInfo", "*", CKR_DEVICE_ERROR, 1);
    Open(kJohann, Korvex::APPL_SIGNATURE);
    EXPECT_TRUE(HashEntries().empty());
    Sign();
    EXPECT_EQ(Status(), Utf8("Ungültiger Hashwert ausgewählt"));
}

} // namespace
