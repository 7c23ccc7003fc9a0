// Missing-identity-link dialog: its texts, the start of the writer program
// (from setting 26 or the search path), and the whole path from a card
// without identity link to one that shows it after the companion wrote it.
#include "gui/NoPersB.h"

#include "app/ProgramConfig.h"
#include "base/Config.h"
#include "formats/Personenbindung.h"
#include "gui/InfoboxBereich.h"
#include "gui/MainFrame.h"
#include "tests/dialogs/GuiSupport.h"

#include <wx/button.h>
#include <wx/listbox.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

using namespace DialogTests;

namespace {

std::vector<wxString> StaticTexts(wxWindow* window) {
    std::vector<wxString> texts;
    for (wxWindow* child : window->GetChildren())
        if (auto* text = dynamic_cast<wxStaticText*>(child)) texts.push_back(text->GetLabel());
    return texts;
}

wxString ButtonLabel(wxWindow* window, int id) {
    auto* button = dynamic_cast<wxButton*>(window->FindWindow(id));
    return button ? button->GetLabel() : wxString();
}

// A stand-in for the writer program that records its arguments.
std::string PlantRecordingWriter(const std::string& dir) {
    const std::string record = ScratchDir() + "/writer-args";
    std::remove(record.c_str());
    WriteText(dir + "/VessaPlus", "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" > '" + record + "'\n",
                  true);
    return record;
}

Korvex::Config* Settings() {
    Korvex::Config* config = Korvex::Config::GetHandle(0);
    if (!config->IsInitialized()) GenerateConfig();
    return config;
}

void SetWriterDirectory(const std::string& dir) {
    ASSERT_TRUE(Settings()->SetString(VessaCards::CFG_ORBELIA_INSTALLDIR, dir));
}

void ForgetWriterDirectory() { Settings()->RemoveKey(VessaCards::CFG_ORBELIA_INSTALLDIR); }

class NoPersBTest : public CardDialogTest {
protected:
    void TearDown() override {
        ForgetWriterDirectory();
        CardDialogTest::TearDown();
    }
};

TEST_F(NoPersBTest, ShowsItsTextsExactly) {
    NoPersB* dialog = new NoPersB(Frame(), wxID_ANY);
    EXPECT_EQ(dialog->GetTitle(), "Keine Personenbindung");
    EXPECT_EQ(StaticTexts(dialog),
              (std::vector<wxString>{
                  "Sie haben noch keine \nZMR Stammzahl (Personenbindung)\nauf Ihrer Karte.",
                  Utf8("Die Personenbindung stellt eine Verbindung zwischen Ihrem \nqualifizierten "
                       "Zertifikat und Ihrer Stammzahl her.\nDa Sie im Zertifikat nur durch Ihren "
                       "Namen identifiziert sind, \nwären sonst Verwechslungen zwischen mehreren "
                       "Personen möglich."),
                  "Zum Aufbringen der Personenbindung auf Ihre Karte muss ein \nexternes Program gestartet werden."}));
    EXPECT_EQ(ButtonLabel(dialog, 5465), "Personenbindung aufbringen");
    EXPECT_EQ(ButtonLabel(dialog, 5466), Utf8("Schließen"));
    dialog->Show();
    EXPECT_EQ(TestSupport::LayoutFaults(dialog), std::vector<std::string>{});
    dialog->Destroy();
}

TEST_F(NoPersBTest, StartsTheWriterFromTheConfiguredDirectoryOrThePath) {
    const std::string configured = ScratchDir() + "/writer dir";
    mkdir(configured.c_str(), 0700);
    for (const std::string& dir : {configured, std::string()}) {
        SCOPED_TRACE(dir);
        const std::string record = PlantRecordingWriter(dir.empty() ? BinDir() : dir);
        if (dir.empty()) {
            ForgetWriterDirectory();
            EXPECT_EQ(NoPersB::WriterCommandLine(), "\"VessaPlus\" -z");
        } else {
            SetWriterDirectory(dir);
            EXPECT_EQ(NoPersB::WriterCommandLine(), wxString::FromUTF8(("\"" + dir + "/VessaPlus\" -z").c_str()));
        }
        NoPersB dialog(Frame(), wxID_ANY);
        wxCommandEvent event(wxEVT_BUTTON, NoPersB::ID_WRITE_PERSB);
        dialog.evt_write_persb(event);
        ASSERT_TRUE(WaitForFile(record, 10));
        Pump(300);  // lets the toolkit notice the writer's end and release its record
        const std::string args = ReadText(record);
        EXPECT_NE(args.find((dir.empty() ? "" : dir + "/") + "VessaPlus\n-z\n"), std::string::npos) << args;
    }
    std::remove((BinDir() + "/VessaPlus").c_str());
}

TEST_F(NoPersBTest, CompanionWritesTheIdentityLinkThatTheViewerThenShows) {
    // The real companion, started the way the dialog starts it.
    SetWriterDirectory(BinaryDir() + "/tools");
    SetPinAnswers({"4321"});
    // The viewer on Otto's card (the first without identity link in reader
    // order) offers the writer; the user starts it.
    TestSupport::ModalRecorder recorder;
    recorder.inspect = [](wxDialog* shown) {
        wxCommandEvent event(wxEVT_BUTTON, NoPersB::ID_WRITE_PERSB);
        if (auto* offer = dynamic_cast<NoPersB*>(shown)) offer->evt_write_persb(event);
    };
    InfoboxBereich* viewer = new InfoboxBereich(Frame(), Korvex::TOKEN_ACOS_A03);
    viewer->SetP11(Token(), kOtto.position);
    viewer->Show();
    wxTimer timer;
    wxTimerEvent start(timer);
    viewer->evt_OnTimer(start);
    wxListBox* list = viewer->GetList();
    list->SetSelection(0);
    wxCommandEvent select(wxEVT_LISTBOX, InfoboxBereich::ID_LISTBOX);
    select.SetString(list->GetString(0));
    viewer->evt_listbox(select);
    // Back from the writer: its result on screen, the link read anew.
    ASSERT_EQ(recorder.seen.size(), 1u);
    EXPECT_TRUE(viewer->GetNotice()->GetLabel().StartsWith(
        Utf8("Die Personenbindung wurde auf die Karte geschrieben.")))
        << viewer->GetNotice()->GetLabel();
    const wxString text = viewer->GetTextPage()->GetValue();
    viewer->Destroy();
    EXPECT_TRUE(text.StartsWith("Vorname: Otto\r\nNachname: Ohnebindung\r\nGeburtsdatum: "))
        << text;
    EXPECT_NE(text.Find("IssueInstant: 20"), wxNOT_FOUND) << text;
}

} // namespace
