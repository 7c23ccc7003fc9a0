// Conversions from toolkit strings to narrow strings and posting of command
// events; the only place of the foundation library that sees the toolkit.
#pragma once

#include <wx/event.h>
#include <wx/string.h>

#include <string>

namespace Korvex {

// Multibyte text of the C library's current locale; "" when it fails.
std::string WxStr2MB(const wxString& text);
// Plain ASCII; "" when it fails.
std::string WxStr2Ascii(const wxString& text);
// Text in the locale encoding; "" when it fails.
std::string WxStr2Locale(const wxString& text);

// Queues a menu command event with `id` for `handler` (any thread); null does nothing.
void SendEvent(wxEvtHandler* handler, int id);
// Processes the same event at once.
void ProcessEvent(wxEvtHandler* handler, int id);

} // namespace Korvex
