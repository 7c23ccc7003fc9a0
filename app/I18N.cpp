// Language selection and message catalogue loading.
#include "app/I18N.h"

#include <wx/filename.h>
#include <wx/intl.h>
#include <wx/log.h>
#include <wx/stdpaths.h>

#include <cstdlib>
#include <string>
#include <vector>

const char* const CATALOG_NAME = "VessaClient";

I18N* I18N::m_Handle = nullptr;

namespace {

// The catalogue file the toolkit would read for `canonical` (say en_US, then
// en) under one of `prefixes`, when one is there.
std::string CatalogFileUnder(const wxString& canonical, const std::vector<wxString>& prefixes)
{
    for (const wxString& prefix : prefixes) {
        for (const wxString& name : {canonical, canonical.BeforeFirst('_')}) {
            const wxFileName file(prefix + "/" + name + "/LC_MESSAGES/", wxString(CATALOG_NAME) + ".mo");
            if (file.FileExists())
                return file.GetFullPath().utf8_string();
        }
    }
    return {};
}

// The locale the desktop asks for, by the usual precedence ("" when none).
std::string DesktopLocale()
{
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0')
            return value;
    }
    return {};
}

// False for the C and POSIX locales, which name no language.
bool DesktopNamesALanguage()
{
    const std::string locale = DesktopLocale();
    return !(locale.empty() || locale == "C" || locale.rfind("C.", 0) == 0 || locale == "POSIX");
}

} // namespace

I18N* I18N::GetHandle()
{
    if (m_Handle == nullptr)
        m_Handle = new I18N();
    return m_Handle;
}

void I18N::Destroy()
{
    if (m_Handle == nullptr)
        return;
    m_Handle->FreeLocale();
    delete m_Handle;
    m_Handle = nullptr;
}

I18N::~I18N()
{
    FreeLocale();
}

void I18N::FreeLocale()
{
    delete m_Locale;
    m_Locale = nullptr;
}

void I18N::CreateLocale(int language)
{
    // An unsupported system locale is no reason to bother the user with the
    // toolkit's error box; the program just runs with the German texts.
    wxLogNull quiet;
    m_Locale = new wxLocale();
    // Catalogue texts are always converted to the program's encoding by this
    // toolkit version; the toolkit's own catalogue is not wanted.
    m_Locale->Init(language, wxLOCALE_DONT_LOAD_DEFAULT);
}

int I18N::Initialize(long language)
{
    m_unusableCatalog.clear();
    if (language == wxLANGUAGE_UNKNOWN)
        language = wxLANGUAGE_DEFAULT;

    // The system default needs no check (it is what a failed check falls
    // back to), and asking the toolkit costs a noticeable part of start-up.
    int result = I18N_OK;
    if (language != wxLANGUAGE_DEFAULT && !wxLocale::IsAvailable(static_cast<int>(language))) {
        language = wxLANGUAGE_DEFAULT;
        result = I18N_LANGUAGE_UNAVAILABLE;
    }

    FreeLocale();
    CreateLocale(static_cast<int>(language));
    // Without a language of the desktop the program keeps its own German
    // texts instead of the toolkit's guess of English.
    if (language == wxLANGUAGE_DEFAULT && !DesktopNamesALanguage())
        return I18N_NO_CATALOG;

    wxFileName folder(wxStandardPaths::Get().GetDataDir(), wxEmptyString);
    folder.AppendDir("vessaclient");
    folder.AppendDir("I18N");
    wxLocale::AddCatalogLookupPathPrefix(folder.GetPath());
    // The same layout beside the program's own folder: the build tree keeps
    // its catalogues there, and a copy installed under another prefix than
    // the toolkit was built for finds them too.
    wxFileName beside(wxStandardPaths::Get().GetExecutablePath());
    beside.RemoveLastDir();
    for (const char* dir : {"share", "VessaClient", "vessaclient", "I18N"})
        beside.AppendDir(dir);
    wxLocale::AddCatalogLookupPathPrefix(beside.GetPath());
    {
        wxLogNull quiet;
        m_Locale->AddCatalog(CATALOG_NAME);
    }

    if (!m_Locale->IsLoaded(CATALOG_NAME)) {
        // A locale made for the desktop's default has no name of its own, and
        // the desktop may name one the system has not generated.
        const wxString canonical = language == wxLANGUAGE_DEFAULT
                                       ? wxString(DesktopLocale()).BeforeFirst('.').BeforeFirst('@')
                                       : m_Locale->GetCanonicalName();
        m_unusableCatalog = CatalogFileUnder(canonical, {folder.GetPath(), beside.GetPath()});
        FreeLocale();
        CreateLocale(static_cast<int>(language));
        return I18N_NO_CATALOG;
    }
    return result;
}

int I18N::Initialize()
{
    return Initialize(wxLANGUAGE_UNKNOWN);
}
