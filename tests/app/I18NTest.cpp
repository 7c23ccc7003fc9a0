// Language selection and catalogue loading, with catalogues written by the
// test into a private data directory.
#include "app/I18N.h"
#include "tests/app/AppTestSupport.h"

#include <wx/app.h>
#include <wx/intl.h>
#include <wx/stdpaths.h>

#include "tests/support/TestCommon.h"

#include <cstdint>
#include <map>

namespace {

// Writes a GNU message catalogue (.mo) holding `texts` (UTF-8).
void WriteMoFile(const std::string& path, std::map<std::string, std::string> texts)
{
    texts[""] = "Content-Type: text/plain; charset=UTF-8\n";
    const uint32_t count = static_cast<uint32_t>(texts.size());
    const uint32_t originals = 28, translations = originals + 8 * count;
    uint32_t offset = translations + 8 * count;

    std::vector<uint32_t> header = {0x950412de, 0, count, originals, translations, 0, offset};
    std::vector<uint32_t> originalTable, translationTable;
    std::string strings;
    for (const auto& text : texts) {
        originalTable.push_back(static_cast<uint32_t>(text.first.size()));
        originalTable.push_back(offset + static_cast<uint32_t>(strings.size()));
        strings += text.first + '\0';
    }
    for (const auto& text : texts) {
        translationTable.push_back(static_cast<uint32_t>(text.second.size()));
        translationTable.push_back(offset + static_cast<uint32_t>(strings.size()));
        strings += text.second + '\0';
    }
    std::ofstream out(path, std::ios::binary);
    for (const std::vector<uint32_t>* table : {&header, &originalTable, &translationTable})
        out.write(reinterpret_cast<const char*>(table->data()), table->size() * 4);
    out << strings;
}

class I18NTest : public testing::Test {
protected:
    void SetUp() override
    {
        m_prefix = m_dir.path();
        wxStandardPaths::Get().SetInstallPrefix(m_prefix);
        wxAppConsole::GetInstance()->SetAppName("vessatest");
        m_catalogFolder = m_prefix + "/share/vessatest/vessaclient/I18N";
        std::system(("mkdir -p '" + m_catalogFolder + "'").c_str());
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

    // Puts the catalogue into every folder name the default language may be
    // looked up under.
    void InstallCatalogForDefaultLanguage()
    {
        for (const char* folder : {"en", "en_US", "C", "POSIX"}) {
            const std::string dir = m_catalogFolder + "/" + folder;
            std::system(("mkdir -p '" + dir + "'").c_str());
            WriteMoFile(dir + "/VessaClient.mo", {{"Kartenverwaltung", "Card Manager"},
                                                  {"Infobox anzeigen", "Show infobox"}});
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
    EXPECT_EQ(wxGetTranslation(wxString::FromUTF8("Ausgestellt für")), wxString::FromUTF8("Ausgestellt für"));
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
