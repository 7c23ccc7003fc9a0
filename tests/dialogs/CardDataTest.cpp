// Main-window commands that show card data: the certificate file handed to
// the external viewer (content, permissions, planted links), the viewer
// start and the infobox viewer command.
#include "gui/InfoboxBereich.h"
#include "gui/MainFrame.h"
#include "tests/dialogs/GuiSupport.h"

#include <wx/listbox.h>
#include <wx/stattext.h>
#include <wx/timer.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

using namespace DialogTests;

namespace {

std::string CertPath() { return std::string(std::getenv("TMPDIR")) + "vessacards_cert.cer"; }

class CardDataTest : public CardDialogTest {
protected:
    void SetUp() override {
        CardDialogTest::SetUp();
        record = ScratchDir() + "/viewer-args";
        std::remove(record.c_str());
        std::remove(CertPath().c_str());
        // The stand-in viewer records the path it was given, the file it may
        // remove, and a copy of the file as it found it.
        WriteText(BinDir() + "/certViewerApp",
                      "#!/bin/sh\ncp \"$1\" '" + record + ".cer'\nprintf '%s\\n' \"$@\" \"$VESSACARDS_CERT_HANDOFF\" > '" +
                          record + "'\n",
                      true);
    }
    void TearDown() override {
        std::remove((BinDir() + "/certViewerApp").c_str());
        CardDialogTest::TearDown();
    }

    // The card work of a command runs on its own thread: wait for its end.
    static void WaitForCardWork() {
        ASSERT_TRUE(TestSupport::PumpUntil([] { return !Frame()->IsCardWorkRunning(); }, 30.0));
    }

    std::string record;
};

TEST_F(CardDataTest, CertificatesGoToAPrivateFileAndTheViewer) {
    // A link planted where the file goes is replaced, never followed.
    const std::string victim = ScratchDir() + "/victim";
    WriteText(victim, "do not touch");
    ASSERT_EQ(symlink(victim.c_str(), CertPath().c_str()), 0);
    ASSERT_TRUE(SelectCard(kJohann));
    wxCommandEvent sigShow(wxEVT_BUTTON, MainFrame::ID_SIG_SHOW_CERT);
    Frame()->evt_sig_show_cert(sigShow);
    WaitForCardWork();
    EXPECT_EQ(ReadText(victim), "do not touch");

    const std::vector<unsigned char> expected = IssuedCertificate(kJohann.serial, true);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(ReadBytes(CertPath()), expected);
    struct stat info;
    ASSERT_EQ(lstat(CertPath().c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    ASSERT_TRUE(WaitForFile(record, 10));
    EXPECT_EQ(ReadText(record), CertPath() + "\n" + CertPath() + "\n");
    EXPECT_EQ(ReadBytes(record + ".cer"), expected);

    std::remove(record.c_str());
    ASSERT_TRUE(SelectCard(kMaria));
    wxCommandEvent encShow(wxEVT_BUTTON, MainFrame::ID_ENC_SHOW);
    Frame()->evt_enc_show(encShow);
    WaitForCardWork();
    EXPECT_EQ(ReadBytes(CertPath()), IssuedCertificate(kMaria.serial, false));
    ASSERT_TRUE(WaitForFile(record, 10));

    // A file that cannot be made is named as the reason, not the card.
    std::filesystem::remove(CertPath());
    std::filesystem::create_directories(CertPath() + "/in-the-way");
    Frame()->evt_enc_show(encShow);
    WaitForCardWork();
    std::filesystem::remove_all(CertPath());
    EXPECT_EQ(Frame()->GetStatusText()->GetLabel(),
              "Die Zertifikatsdatei " + CertPath() + " konnte nicht angelegt werden.");
}

TEST_F(CardDataTest, InfoboxCommandOpensTheViewerForTheSelectedCard) {
    ASSERT_TRUE(SelectCard(kMaria));
    std::vector<wxString> items;
    bool found = false;
    // The viewer runs modally; look at it from a timer and close it.
    wxTimer watcher;
    watcher.Bind(wxEVT_TIMER, [&](wxTimerEvent&) {
        for (wxWindow* window : wxTopLevelWindows) {
            auto* viewer = dynamic_cast<InfoboxBereich*>(window);
            if (viewer == nullptr || !viewer->IsModal()) continue;
            found = true;
            wxListBox* list = viewer->GetList();
            if (list->IsEmpty() || !list->IsEnabled()) return;  // still loading
            for (unsigned i = 0; i < list->GetCount(); ++i) items.push_back(list->GetString(i));
            watcher.Stop();
            viewer->EndModal(0);
        }
    });
    watcher.Start(50);
    wxCommandEvent event(wxEVT_BUTTON, MainFrame::ID_PERS_SHOW);
    Frame()->evt_pers_show(event);
    watcher.Stop();
    EXPECT_TRUE(found);
    EXPECT_EQ(items, (std::vector<wxString>{"01 PERSONENBINDUNG", "02 RFU1", "03 RFU2"}));
}

} // namespace
