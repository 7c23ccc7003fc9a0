// Translation lookup for the window texts. The texts are written in UTF-8 in
// the sources, so they are converted explicitly rather than through the
// current C locale, which may not be able to represent the umlauts.
#pragma once

#include <wx/intl.h>
#include <wx/string.h>

inline wxString Tr(const char* utf8Text)
{
    return wxGetTranslation(wxString::FromUTF8(utf8Text));
}
