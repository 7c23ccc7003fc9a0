// Repaints the banner's text area with the translated title and subtitle.
#include "gui/LocalizedBanner.h"

#include "gui/ArtworkDrawing.h"
#include "gui/BannerArt.h"
#include "gui/Images.h"
#include "gui/Translate.h"
#include "gui/XpmImage.h"

#include <wx/graphics.h>

namespace {

// The texts drawn into the artwork, marked for the catalogue.
const char* const kTitle = wxTRANSLATE("Kartenverwaltung");
const char* const kSubtitle = wxTRANSLATE("vessa premium · Signaturkarten und e-Cards");

// Left of the card illustration: the part of the artwork that holds text.
const double kTextAreaWidth = 505;

} // namespace

wxImage LocalizedBanner(double scale)
{
    return DrawBanner(Tr(kTitle), Tr(kSubtitle), scale);
}

wxImage LocalizedBanner()
{
    wxImage banner = XpmToImage(KorvexBanner);
    const wxString title = Tr(kTitle);
    const wxString subtitle = Tr(kSubtitle);
    if (title == wxString::FromUTF8(kTitle) && subtitle == wxString::FromUTF8(kSubtitle))
        return banner;

    if (!banner.HasAlpha())
        banner.InitAlpha();
    wxGraphicsContext* gc = wxGraphicsContext::Create(banner);
    if (gc == nullptr)
        return XpmToImage(KorvexBanner);
    // The background again over the text area only, so the card on the
    // right stays as drawn.
    gc->Clip(0, 0, kTextAreaWidth, banner.GetHeight() - 4);
    DrawBannerBackground(gc, banner.GetWidth(), banner.GetHeight());
    gc->ResetClip();
    DrawBannerTexts(gc, title, subtitle);
    delete gc;
    return banner;
}
