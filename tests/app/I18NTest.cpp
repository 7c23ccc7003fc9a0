// Language selection and catalogue loading, with the program's English
// catalogue copied into a private data directory.
#include "app/I18N.h"
#include "tests/app/AppTestSupport.h"

#include <wx/app.h>
#include <wx/intl.h>
#include <wx/stdpaths.h>

#include "tests/support/TestCommon.h"

namespace {

class I18NTest : public testing::Test {
protected:
    void SetUp() override
    {
        m_prefix = m_dir.path();
        wxStandardPaths::Get().SetInstallPrefix(m_prefix);
        wxAppConsole::GetInstance()->SetAppName("vessatest");
        m_catalogFolder = m_prefix + "/share/vessatest/vessaclient/I18N";
    }
    void TearDown() override
    {
        I18N::Destroy();
        setenv("LANG", m_lang.c_str(), 1);
    }
    // The desktop's locale as the program reads it.
    void UseDesktopLocale(const char* locale)
    {
        unsetenv("LC_ALL");
        unsetenv("LC_MESSAGES");
        setenv("LANG", locale, 1);
    }

    // Puts the program's English catalogue into every folder name the
    // default language may be looked up under.
    void InstallCatalogForDefaultLanguage()
    {
        const std::string english = TestSupport::BinaryDir() + "/share/VessaClient/vessaclient/I18N/en/LC_MESSAGES";
        for (const char* folder : {"en", "en_US", "C", "POSIX"}) {
            const std::string dir = m_catalogFolder + "/" + folder;
            std::filesystem::create_directories(dir);
            std::filesystem::copy_file(english + "/VessaClient.mo", dir + "/VessaClient.mo");
        }
    }

    AppTests::ScratchDir m_dir;
    std::string m_prefix;
    std::string m_catalogFolder;
    const std::string m_lang = std::getenv("LANG") != nullptr ? std::getenv("LANG") : "";
};

TEST_F(I18NTest, CatalogueOfTheDesktopLanguageTranslatesAndTheCLocaleStaysGerman)
{
    InstallCatalogForDefaultLanguage();
    for (const char* locale : {"C.UTF-8", "POSIX", ""}) {
        UseDesktopLocale(locale);
        EXPECT_EQ(I18N::GetHandle()->Initialize(), I18N::I18N_NO_CATALOG) << locale;
        EXPECT_EQ(wxGetTranslation("Kartenverwaltung"), "Kartenverwaltung") << locale;
    }
    UseDesktopLocale("en_US.UTF-8");
    const int result = I18N::GetHandle()->Initialize();
    // The C locale of the test machine may count as "not available".
    EXPECT_TRUE(result == I18N::I18N_OK || result == I18N::I18N_LANGUAGE_UNAVAILABLE) << result;
    EXPECT_EQ(wxGetTranslation("Kartenverwaltung"), "Card Manager");
    EXPECT_EQ(wxGetTranslation(wxString::FromUTF8("Nicht übersetzt")), wxString::FromUTF8("Nicht übersetzt"));
}

TEST_F(I18NTest, UnavailableLanguageFallsBackToTheDefault)
{
    InstallCatalogForDefaultLanguage();
    UseDesktopLocale("en_US.UTF-8");
    // This machine has no locale but C; a language it cannot provide.
    if (wxLocale::IsAvailable(wxLANGUAGE_SWAHILI))
        GTEST_SKIP() << "Swahili locale installed";
    EXPECT_EQ(I18N::GetHandle()->Initialize(wxLANGUAGE_SWAHILI), I18N::I18N_LANGUAGE_UNAVAILABLE);
    EXPECT_EQ(wxGetTranslation("Infobox anzeigen"), "Show infobox");
}

} // namespace
