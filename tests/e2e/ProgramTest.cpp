// The built program as a user starts it: one copy per user, no arguments,
// the message when the card module is missing, and the log it writes.
#include "tests/e2e/ProgramRunner.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace EndToEnd {
namespace {

const char kMainTitle[] = "Kartenverwaltung (x64)";

class ProgramTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!HaveDisplay())
            GTEST_SKIP() << "needs an X display (run under xvfb-run)";
    }
    Sandbox sandbox;
};

TEST_F(ProgramTest, SecondCopyForTheSameUserEndsAtOnceAndTheFirstKeepsRunning)
{
    ProgramRunner first(sandbox);
    ASSERT_TRUE(first.Start());
    unsigned long window = 0;
    ASSERT_TRUE(WaitForWindow(first.Pid(), kMainTitle, 60, &window)) << first.StandardError();

    ProgramRunner second(sandbox);
    ASSERT_TRUE(second.Start());
    ASSERT_TRUE(second.WaitForExit(30)) << "the second copy did not end";
    EXPECT_NE(second.ExitStatus(), 0);
    EXPECT_NE(second.ExitStatus(), -1) << "the second copy crashed";
    // It ends silently: no window, nothing on standard error.
    EXPECT_TRUE(WindowsOf(second.Pid()).empty());
    EXPECT_EQ(second.StandardError(), "");

    EXPECT_TRUE(first.Running());
    EXPECT_TRUE(WaitForWindow(first.Pid(), kMainTitle, 1));

    // Closing the window ends the first copy normally.
    ASSERT_TRUE(CloseWindow(window));
    ASSERT_TRUE(first.WaitForExit(30));
    EXPECT_EQ(first.ExitStatus(), 0);
}

TEST_F(ProgramTest, TheDesktopLanguageChoosesTheTexts)
{
    const struct {
        const char* lang;
        const char* title;
    } cases[] = {{"en_US.UTF-8", "Card Manager (x64)"}, {"de_AT.UTF-8", kMainTitle}, {"C.UTF-8", kMainTitle}};
    for (const auto& language : cases) {
        ProgramRunner program(sandbox);
        program.SetEnv("LANG", language.lang);
        program.SetEnv("VESSACARDS_EXIT_AFTER_REFRESH", "1");
        ASSERT_TRUE(program.Start());
        ASSERT_TRUE(program.WaitForExit(60));
        EXPECT_NE(program.StandardError().find(std::string("title=") + language.title), std::string::npos)
            << language.lang << ": " << program.StandardError();
    }
}

TEST_F(ProgramTest, AnyArgumentIsRejected)
{
    for (const char* argument : {"foo", "--help", "-h", "-v"}) {
        SCOPED_TRACE(argument);
        ProgramRunner program(sandbox, {argument});
        ASSERT_TRUE(program.Start());
        ASSERT_TRUE(program.WaitForExit(30));
        EXPECT_NE(program.ExitStatus(), 0);
        EXPECT_NE(program.ExitStatus(), -1);
        EXPECT_NE(program.StandardError().find("Usage: VessaCards"), std::string::npos)
            << program.StandardError();
    }
}

// Each way the card module can fail to start: the message keeps its first
// line, names the reason in German on the second, and the log gives it in
// English as a message beside the failure's one error line; closing the
// message ends the program with status 0.
TEST_F(ProgramTest, EveryModuleFailureIsReportedWithItsReason)
{
    const std::string modules = sandbox.Root() + "/modules";
    const std::string logs = sandbox.Root() + "/logs";
    for (const std::string& folder : {modules + "/noinit", logs})
        std::filesystem::create_directories(folder);
    std::filesystem::copy_file(NO_ENTRY_MODULE_PATH, modules + "/noinit/libVessaP11.so");
    TestSupport::WriteText(modules + "/cards.xml", "<cardset><reader name=\"X\"><card generation=\"ACOS-A09\"/>");
    sandbox.WriteSettings("<vessa_Client><Trace><LogLevel>3</LogLevel><Filename>" + logs +
                          "/trace.log</Filename></Trace></vessa_Client>");
    const struct {
        const char* name;
        std::string libraryPath, cards;
        std::string reason; // second line of the message
        std::string errorLine, logLine;
    } cases[] = {
        {"not found", sandbox.Root(), "",
         "Die Moduldatei libVessaP11.so wurde im Bibliothekspfad nicht gefunden (LD_LIBRARY_PATH: " +
             sandbox.Root() + ").",
         "PKCS11 LoadLibrary ERROR", "module not found on the library path: libVessaP11.so, LD_LIBRARY_PATH=" + sandbox.Root()},
        {"entry missing", modules + "/noinit", "",
         "Dem Modul " + modules + "/noinit/libVessaP11.so fehlt der Einsprungpunkt C_Initialize.",
         "PKCS11 Proc_C_Initialize ERROR", "entry point C_Initialize missing in " + modules + "/noinit/libVessaP11.so"},
        {"initialize failed", SIM_MODULE_DIR, modules + "/cards.xml",
         "C_Initialize des Moduls " SIM_MODULE_DIR "/libVessaP11.so ist fehlgeschlagen: CKR_GENERAL_ERROR",
         "PKCS11 Aufruf Proc_C_Initialize() ERROR0x5", "C_Initialize of " SIM_MODULE_DIR "/libVessaP11.so failed: CKR_GENERAL_ERROR"},
    };
    for (const auto& failure : cases) {
        SCOPED_TRACE(failure.name);
        for (const std::string& file : TestSupport::FileNames(logs))
            std::filesystem::remove(logs + "/" + file);
        ProgramRunner program(sandbox);
        program.SetEnv("LD_LIBRARY_PATH", failure.libraryPath);
        if (!failure.cards.empty())
            program.SetEnv("VESSA_SIM_CARDS", failure.cards);
        ASSERT_TRUE(program.Start());
        unsigned long box = 0;
        ASSERT_TRUE(WaitForWindow(program.Pid(), "Error", 60, &box))
            << (program.Running() ? "still running" : "ended") << ", standard error: " << program.StandardError();
        // Only the message box: the main window is never shown.
        for (const WindowInfo& window : WindowsOf(program.Pid()))
            EXPECT_NE(window.title, kMainTitle);
        ASSERT_TRUE(CloseWindow(box));
        ASSERT_TRUE(program.WaitForExit(30));
        EXPECT_EQ(program.ExitStatus(), 0) << program.StandardError();
        const std::string shown = "Error loading PKCS#11 library\n" + failure.reason;
        EXPECT_NE(program.StandardError().find(shown), std::string::npos) << program.StandardError();

        const std::vector<std::string> files = TestSupport::FileNames(logs);
        ASSERT_EQ(files.size(), 1u);
        const std::string log = TestSupport::ReadText(logs + "/" + files[0]);
        EXPECT_NE(log.find(") " + failure.logLine), std::string::npos) << log;
        // Every error line is the failure's one line (the window tries twice).
        std::size_t errors = 0;
        for (const std::string& line : TestSupport::SplitLines(log)) {
            if (line.find("        ERROR (") == std::string::npos)
                continue;
            ++errors;
            EXPECT_EQ(line.substr(line.find(") ") + 2), failure.errorLine) << log;
        }
        EXPECT_GE(errors, 1u) << log;
    }
}

} // namespace
} // namespace EndToEnd

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
