// Repaints the banner's text area with the translated title and subtitle.
#include "gui/LocalizedBanner.h"

#include "gui/Images.h"
#include "gui/Translate.h"
#include "gui/XpmImage.h"

#include <wx/font.h>
#include <wx/graphics.h>

namespace {

// The texts drawn into the artwork, marked for the catalogue.
const char* const kTitle = wxTRANSLATE("Kartenverwaltung");
const char* const kSubtitle = wxTRANSLATE("vessa premium · Signaturkarten und e-Cards");

// Left of the card illustration: the part of the artwork that holds text.
const double kTextAreaWidth = 505;

// The artwork's background (see gui/images/draw_images.cpp), clipped to the
// text area so the card on the right stays as drawn.
void PaintBackground(wxGraphicsContext* gc, double width, double height)
{
    gc->Clip(0, 0, kTextAreaWidth, height - 4);
    gc->SetPen(*wxTRANSPARENT_PEN);
    gc->SetBrush(gc->CreateLinearGradientBrush(0, 0, width, height, wxColour(0x0A, 0x2E, 0x57),
                                               wxColour(0x17, 0x6E, 0x8A)));
    gc->DrawRectangle(0, 0, width, height);
    gc->SetBrush(*wxTRANSPARENT_BRUSH);
    for (int i = 0; i < 6; ++i) {
        gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(wxColour(255, 255, 255, 22 - i * 3)).Width(14)));
        const double r = 60 + i * 34;
        gc->DrawEllipse(620 - r, 85 - r, 2 * r, 2 * r);
    }
    gc->ResetClip();
}

} // namespace

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
    PaintBackground(gc, banner.GetWidth(), banner.GetHeight());
    gc->SetFont(wxFont(wxFontInfo(11).Family(wxFONTFAMILY_SWISS).Bold()), wxColour(0x9F, 0xD8, 0xE8));
    gc->DrawText("K O R V E X", 36, 28);
    gc->SetFont(wxFont(wxFontInfo(34).Family(wxFONTFAMILY_SWISS).Bold()), *wxWHITE);
    gc->DrawText(title, 34, 50);
    gc->SetFont(wxFont(wxFontInfo(13).Family(wxFONTFAMILY_SWISS)), wxColour(0xD4, 0xE8, 0xF4));
    gc->DrawText(subtitle, 37, 108);
    delete gc;
    return banner;
}
