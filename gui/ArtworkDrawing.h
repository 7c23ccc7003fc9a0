// The window's artwork as drawing code, at any scale: the artwork tool
// writes it at scale 1 as the compiled-in XPM pictures, and the window draws
// it at its display's scale where that is above 1 (a high-density screen),
// so icons, chip and banner stay sharp instead of being enlarged.
#pragma once

#include <wx/colour.h>
#include <wx/image.h>
#include <wx/string.h>

class wxGraphicsContext;

// Gold contact field of a smart card chip at (x, y) with size w x h.
void DrawChip(wxGraphicsContext* gc, double x, double y, double w, double h);
// A card seen from the front: rounded body, chip, and a few text lines.
void DrawCard(wxGraphicsContext* gc, double x, double y, double w, double h, bool detailed);

// Each picture at its logical size times `scale`, with an alpha channel.
wxImage DrawChipSmall(double scale);                                                    // 31 x 22
// The small chip with a red mark: a PIN of that card needs attention.
wxImage DrawWarningChip(double scale);                                                  // 31 x 22
wxImage DrawRoundIcon(const wxColour& light, const wxColour& dark, bool check, double scale); // 32 x 32
wxImage DrawOkIcon(double scale);                                                       // 32 x 32
wxImage DrawCancelIcon(double scale);                                                   // 32 x 32
wxImage DrawReload(double scale);                                                       // 32 x 32
wxImage DrawIcon(double scale);                                                         // 32 x 32
wxImage DrawBanner(const wxString& title, const wxString& subtitle, double scale);      // 769 x 170
