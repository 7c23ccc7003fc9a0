// Localisation: owns the toolkit locale, selects the configured language and
// loads the program's message catalogue. The German texts in the code are the
// catalogue keys, so without a catalogue they are shown as they are.
#pragma once

#include <string>

class wxLocale;

// Base name of the message catalogue.
extern const char* const CATALOG_NAME;

class I18N {
public:
    enum Result { I18N_OK = 0, I18N_NO_CATALOG = 1, I18N_LANGUAGE_UNAVAILABLE = 2 };

    // Created on first call; first used on the GUI thread during start-up.
    static I18N* GetHandle();
    // Frees the locale and the singleton.
    static void Destroy();

    // language: a toolkit language number (0 default, 1 unknown = default).
    // 0 on success, 2 when the language is not available (default used),
    // 1 when no catalogue could be loaded.
    int Initialize(long language);
    int Initialize();
    void FreeLocale();

    wxLocale* GetLocale() const { return m_Locale; }
    // A catalogue file for the chosen language that is there but could not be
    // loaded (empty when none): the user asked for a language and should
    // learn from the log why the texts stay German.
    const std::string& UnusableCatalog() const { return m_unusableCatalog; }

private:
    I18N() = default;
    ~I18N();
    // Creates the locale for `language` without reporting toolkit errors.
    void CreateLocale(int language);

    wxLocale* m_Locale = nullptr;
    std::string m_unusableCatalog;
    static I18N* m_Handle;
};
