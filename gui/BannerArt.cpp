// Drawing of the banner's background and texts; see BannerArt.h.
#include "gui/BannerArt.h"

#include <wx/font.h>
#include <wx/graphics.h>

void DrawBannerBackground(wxGraphicsContext* gc, double width, double height)
{
    gc->SetPen(*wxTRANSPARENT_PEN);
    gc->SetBrush(gc->CreateLinearGradientBrush(0, 0, width, height, wxColour(0x0A, 0x2E, 0x57),
                                               wxColour(0x17, 0x6E, 0x8A)));
    gc->DrawRectangle(0, 0, width, height);

    // Soft concentric rings on the right, behind the card.
    gc->SetBrush(*wxTRANSPARENT_BRUSH);
    for (int i = 0; i < 6; ++i) {
        gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(wxColour(255, 255, 255, 22 - i * 3)).Width(14)));
        const double r = 60 + i * 34;
        gc->DrawEllipse(620 - r, 85 - r, 2 * r, 2 * r);
    }
    // A thin light line along the bottom edge.
    gc->SetPen(*wxTRANSPARENT_PEN);
    gc->SetBrush(gc->CreateLinearGradientBrush(0, 0, width, 0, wxColour(0x3F, 0xC1, 0xA5, 0),
                                               wxColour(0x3F, 0xC1, 0xA5, 230)));
    gc->DrawRectangle(0, height - 4, width, 4);
}

void DrawBannerTexts(wxGraphicsContext* gc, const wxString& title, const wxString& subtitle)
{
    gc->SetFont(wxFont(wxFontInfo(11).Family(wxFONTFAMILY_SWISS).Bold()), wxColour(0x9F, 0xD8, 0xE8));
    gc->DrawText("K O R V E X", 36, 28);
    gc->SetFont(wxFont(wxFontInfo(34).Family(wxFONTFAMILY_SWISS).Bold()), *wxWHITE);
    gc->DrawText(title, 34, 50);
    gc->SetFont(wxFont(wxFontInfo(13).Family(wxFONTFAMILY_SWISS)), wxColour(0xD4, 0xE8, 0xF4));
    gc->DrawText(subtitle, 37, 108);
}
