// The window's pictures at the display's scale. At scale 1 they are the
// compiled-in XPM pictures, as fast as ever; on a high-density screen
// (GDK_SCALE=2) they are drawn at that scale from the same drawing code, so
// they are sharp rather than enlarged.
#pragma once

#include <wx/bitmap.h>
#include <wx/bmpbndl.h>
#include <wx/iconbndl.h>

enum ArtPicture { ART_BANNER, ART_RELOAD, ART_OK, ART_CANCEL, ART_CHIP, ART_CHIP_WARNING, ART_ICON };

// The picture for a window whose content scale is `scale`.
wxBitmapBundle ArtBundle(ArtPicture picture, double scale);
// The same as one bitmap of the picture's logical size at `scale`.
wxBitmap ArtBitmap(ArtPicture picture, double scale);
// An image of `scale` times the logical size as a bitmap of the logical size.
wxBitmap ScaledBitmap(const wxImage& image, double scale);
// The program icon: 32 pixels, and 64 on a high-density screen.
wxIconBundle ProgramIcons(double scale);
