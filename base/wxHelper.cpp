// Toolkit-string conversions and command-event posting.
#include "base/wxHelper.h"

namespace Korvex {

std::string WxStr2MB(const wxString& text)
{
    const wxCharBuffer buffer = text.mb_str(wxConvLibc);
    if (!buffer.data())
        return std::string();
    return std::string(buffer.data());
}

std::string WxStr2Ascii(const wxString& text)
{
    const wxCharBuffer buffer = text.ToAscii();
    if (!buffer.data())
        return std::string();
    return std::string(buffer.data());
}

std::string WxStr2Locale(const wxString& text)
{
    const wxScopedCharBuffer buffer = text.mb_str(wxConvLocal);
    if (!buffer.data())
        return std::string();
    // Keep the converted length: the locale text may legitimately hold NULs.
    return std::string(buffer.data(), buffer.length());
}

void SendEvent(wxEvtHandler* handler, int id)
{
    if (!handler)
        return;
    wxCommandEvent event(wxEVT_COMMAND_MENU_SELECTED, id);
    handler->AddPendingEvent(event);
}

void ProcessEvent(wxEvtHandler* handler, int id)
{
    if (!handler)
        return;
    wxCommandEvent event(wxEVT_COMMAND_MENU_SELECTED, id);
    handler->ProcessEvent(event);
}

} // namespace Korvex
