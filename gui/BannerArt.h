// The banner's background and texts as drawn: shared by the artwork tool
// that makes KorvexBanner.xpm and by the window, which paints the texts
// again when they are translated.
#pragma once

#include <wx/string.h>

class wxGraphicsContext;

// Gradient, rings and the bottom line of the 769 x 170 banner.
void DrawBannerBackground(wxGraphicsContext* gc, double width, double height);
// Maker name, title and subtitle at their places on the banner.
void DrawBannerTexts(wxGraphicsContext* gc, const wxString& title, const wxString& subtitle);
