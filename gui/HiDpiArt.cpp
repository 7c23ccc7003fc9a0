// Pictures at the display's scale; see HiDpiArt.h.
#include "gui/HiDpiArt.h"

#include "gui/ArtworkDrawing.h"
#include "gui/Images.h"
#include "gui/LocalizedBanner.h"
#include "gui/XpmImage.h"

#include <wx/dcmemory.h>
#include <wx/icon.h>

namespace {

// The chip with a red mark, drawn on the compiled-in chip pixel by pixel as
// it always was at scale 1.
wxImage WarningChip()
{
    wxBitmap bitmap(XpmToImage(chip_small_xpm));
    wxMemoryDC dc(bitmap);
    dc.SetPen(wxPen(wxColour(140, 0, 0)));
    dc.SetBrush(wxBrush(wxColour(220, 30, 30)));
    dc.DrawCircle(24, 15, 6);
    dc.SetPen(wxPen(*wxWHITE, 2));
    dc.DrawLine(24, 11, 24, 16);
    dc.DrawPoint(24, 18);
    dc.SelectObject(wxNullBitmap);
    return bitmap.ConvertToImage();
}

wxImage XpmPicture(ArtPicture picture)
{
    switch (picture) {
    case ART_BANNER: return LocalizedBanner();
    case ART_RELOAD: return XpmToImage(ButtonReload);
    case ART_OK: return XpmToImage(ButtonOk);
    case ART_CANCEL: return XpmToImage(ButtonCancel);
    case ART_CHIP: return XpmToImage(chip_small_xpm);
    case ART_CHIP_WARNING: return WarningChip();
    case ART_ICON: return XpmToImage(IconXpm);
    }
    return wxImage();
}

wxImage DrawnPicture(ArtPicture picture, double scale)
{
    switch (picture) {
    case ART_BANNER: return LocalizedBanner(scale);
    case ART_RELOAD: return DrawReload(scale);
    case ART_OK: return DrawOkIcon(scale);
    case ART_CANCEL: return DrawCancelIcon(scale);
    case ART_CHIP: return DrawChipSmall(scale);
    case ART_CHIP_WARNING: return DrawWarningChip(scale);
    case ART_ICON: return DrawIcon(scale);
    }
    return wxImage();
}

bool HighDensity(double scale)
{
    return scale > 1.01;
}

} // namespace

wxBitmap ScaledBitmap(const wxImage& image, double scale)
{
    return HighDensity(scale) ? wxBitmap(image, -1, scale) : wxBitmap(image);
}

wxBitmap ArtBitmap(ArtPicture picture, double scale)
{
    return HighDensity(scale) ? ScaledBitmap(DrawnPicture(picture, scale), scale) : wxBitmap(XpmPicture(picture));
}

wxBitmapBundle ArtBundle(ArtPicture picture, double scale)
{
    const wxBitmap normal(XpmPicture(picture));
    if (!HighDensity(scale))
        return wxBitmapBundle::FromBitmap(normal);
    return wxBitmapBundle::FromBitmaps(normal, ScaledBitmap(DrawnPicture(picture, scale), scale));
}

wxIconBundle ProgramIcons(double scale)
{
    wxIconBundle icons;
    wxIcon icon;
    icon.CopyFromBitmap(wxBitmap(XpmToImage(IconXpm)));
    icons.AddIcon(icon);
    if (HighDensity(scale)) {
        wxIcon large;
        large.CopyFromBitmap(wxBitmap(DrawIcon(scale)));
        icons.AddIcon(large);
    }
    return icons;
}
