// Pictures at the display's scale; see HiDpiArt.h.
#include "gui/HiDpiArt.h"

#include "gui/ArtworkDrawing.h"
#include "gui/Images.h"
#include "gui/LocalizedBanner.h"
#include "gui/XpmImage.h"

#include <wx/icon.h>

namespace {

wxImage XpmPicture(ArtPicture picture)
{
    switch (picture) {
    case ART_BANNER: return LocalizedBanner();
    case ART_RELOAD: return XpmToImage(ButtonReload);
    case ART_OK: return XpmToImage(ButtonOk);
    case ART_CANCEL: return XpmToImage(ButtonCancel);
    case ART_CHIP: return XpmToImage(chip_small_xpm);
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
