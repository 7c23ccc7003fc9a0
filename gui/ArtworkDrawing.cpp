// The artwork's drawing code; see ArtworkDrawing.h.
#include "gui/ArtworkDrawing.h"

#include "gui/BannerArt.h"

#include <wx/brush.h>
#include <wx/graphics.h>
#include <wx/pen.h>

#include <algorithm>
#include <cmath>

namespace {

// A transparent canvas of width x height logical pixels at `scale`, and a
// context on it that draws in logical pixels.
wxImage NewCanvas(int width, int height, double scale)
{
    width = static_cast<int>(width * scale + 0.5);
    height = static_cast<int>(height * scale + 0.5);
    wxImage image(width, height);
    image.InitAlpha();
    unsigned char* alpha = image.GetAlpha();
    for (int i = 0; i < width * height; ++i)
        alpha[i] = 0;
    return image;
}

} // namespace

void DrawChip(wxGraphicsContext* gc, double x, double y, double w, double h)
{
    const double radius = std::min(w, h) * 0.18;
    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(wxColour(0x8A, 0x6A, 0x1E)).Width(std::max(1.0, w / 30))));
    gc->SetBrush(gc->CreateLinearGradientBrush(x, y, x + w, y + h, wxColour(0xF7, 0xDE, 0x8A),
                                               wxColour(0xC9, 0x9A, 0x2E)));
    gc->DrawRoundedRectangle(x, y, w, h, radius);

    // Contact separations: a centre pad and three lines each side.
    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(wxColour(0x9C, 0x78, 0x24)).Width(std::max(1.0, w / 36))));
    wxGraphicsPath lines = gc->CreatePath();
    const double padLeft = x + w * 0.36, padRight = x + w * 0.64;
    lines.AddRectangle(padLeft, y + h * 0.22, padRight - padLeft, h * 0.56);
    for (int i = 1; i <= 2; ++i) {
        const double ly = y + h * i / 3.0;
        lines.MoveToPoint(x, ly);
        lines.AddLineToPoint(padLeft, ly);
        lines.MoveToPoint(padRight, ly);
        lines.AddLineToPoint(x + w, ly);
    }
    lines.MoveToPoint(x + w * 0.5, y);
    lines.AddLineToPoint(x + w * 0.5, y + h * 0.22);
    lines.MoveToPoint(x + w * 0.5, y + h * 0.78);
    lines.AddLineToPoint(x + w * 0.5, y + h);
    gc->StrokePath(lines);
}

wxImage DrawChipSmall(double scale)
{
    wxImage image = NewCanvas(31, 22, scale);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->Scale(scale, scale);
    gc->SetAntialiasMode(wxANTIALIAS_DEFAULT);
    DrawChip(gc, 1.5, 1.5, 28, 19);
    delete gc;
    return image;
}

wxImage DrawWarningChip(double scale)
{
    wxImage image = DrawChipSmall(scale);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->Scale(scale, scale);
    gc->SetAntialiasMode(wxANTIALIAS_DEFAULT);
    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(wxColour(140, 0, 0))));
    gc->SetBrush(wxBrush(wxColour(220, 30, 30)));
    gc->DrawEllipse(18, 9, 12, 12);
    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(*wxWHITE).Width(2).Cap(wxCAP_ROUND)));
    gc->StrokeLine(24, 11.5, 24, 15.5);
    gc->StrokeLine(24, 18.5, 24, 18.6);
    delete gc;
    return image;
}

wxImage DrawRoundIcon(const wxColour& light, const wxColour& dark, bool check, double scale)
{
    wxImage image = NewCanvas(32, 32, scale);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->Scale(scale, scale);
    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(dark).Width(1.2)));
    gc->SetBrush(gc->CreateRadialGradientBrush(12, 10, 16, 16, 18, light, dark));
    gc->DrawEllipse(1.5, 1.5, 29, 29);

    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(*wxWHITE).Width(3.6).Cap(wxCAP_ROUND).Join(wxJOIN_ROUND)));
    wxGraphicsPath mark = gc->CreatePath();
    if (check) {
        mark.MoveToPoint(9, 16.5);
        mark.AddLineToPoint(14, 21.5);
        mark.AddLineToPoint(23, 10.5);
    } else {
        mark.MoveToPoint(10.5, 10.5);
        mark.AddLineToPoint(21.5, 21.5);
        mark.MoveToPoint(21.5, 10.5);
        mark.AddLineToPoint(10.5, 21.5);
    }
    gc->StrokePath(mark);
    delete gc;
    return image;
}

wxImage DrawReload(double scale)
{
    wxImage image = NewCanvas(32, 32, scale);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->Scale(scale, scale);
    const wxColour blue(0x1F, 0x5F, 0xA8);
    const double cx = 16, cy = 16, r = 10;
    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(blue).Width(3.4).Cap(wxCAP_BUTT)));
    gc->SetBrush(*wxTRANSPARENT_BRUSH);
    // Two arcs, each ending in an arrow head, chasing each other round.
    for (int half = 0; half < 2; ++half) {
        const double start = M_PI * (half ? 1.0 : 0.0) + 0.35;
        const double end = start + M_PI - 0.75;
        wxGraphicsPath arc = gc->CreatePath();
        arc.AddArc(cx, cy, r, start, end, true);
        gc->StrokePath(arc);

        const double ex = cx + r * std::cos(end), ey = cy + r * std::sin(end);
        const double tx = -std::sin(end), ty = std::cos(end); // direction of travel
        const double nx = std::cos(end), ny = std::sin(end);  // outward normal
        wxGraphicsPath head = gc->CreatePath();
        head.MoveToPoint(ex + tx * 6.5, ey + ty * 6.5);
        head.AddLineToPoint(ex + nx * 5.5 - tx * 1.0, ey + ny * 5.5 - ty * 1.0);
        head.AddLineToPoint(ex - nx * 5.5 - tx * 1.0, ey - ny * 5.5 - ty * 1.0);
        head.CloseSubpath();
        gc->SetPen(*wxTRANSPARENT_PEN);
        gc->SetBrush(gc->CreateBrush(wxBrush(blue)));
        gc->FillPath(head);
        gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(blue).Width(3.4).Cap(wxCAP_BUTT)));
        gc->SetBrush(*wxTRANSPARENT_BRUSH);
    }
    delete gc;
    return image;
}

void DrawCard(wxGraphicsContext* gc, double x, double y, double w, double h, bool detailed)
{
    const double radius = w * 0.07;
    if (detailed) {
        gc->SetPen(*wxTRANSPARENT_PEN);
        gc->SetBrush(gc->CreateBrush(wxBrush(wxColour(0, 0, 0, 70))));
        gc->DrawRoundedRectangle(x + 5, y + 7, w, h, radius);
    }
    gc->SetPen(gc->CreatePen(wxGraphicsPenInfo(wxColour(0x0E, 0x3A, 0x66)).Width(detailed ? 1.5 : 1.0)));
    gc->SetBrush(gc->CreateLinearGradientBrush(x, y, x + w, y + h, wxColour(0xFF, 0xFF, 0xFF),
                                               wxColour(0xC8, 0xDC, 0xEE)));
    if (!detailed)
        gc->SetBrush(gc->CreateLinearGradientBrush(x, y, x + w, y + h, wxColour(0x4C, 0x8F, 0xD6),
                                                   wxColour(0x17, 0x4B, 0x8C)));
    gc->DrawRoundedRectangle(x, y, w, h, radius);

    DrawChip(gc, x + w * 0.12, y + h * 0.32, w * 0.22, h * 0.26);

    if (!detailed)
        return;
    // A stripe of colour at the top and a few placeholder text lines.
    gc->SetPen(*wxTRANSPARENT_PEN);
    gc->SetBrush(gc->CreateLinearGradientBrush(x, y, x + w, y, wxColour(0x14, 0x5A, 0x9E),
                                               wxColour(0x2C, 0xA5, 0x8E)));
    wxGraphicsPath stripe = gc->CreatePath();
    stripe.AddRoundedRectangle(x, y, w, h * 0.2, radius);
    gc->FillPath(stripe);
    gc->SetBrush(gc->CreateBrush(wxBrush(wxColour(0x14, 0x5A, 0x9E))));
    gc->DrawRectangle(x, y + h * 0.12, w, h * 0.08);

    gc->SetBrush(gc->CreateBrush(wxBrush(wxColour(0x7D, 0x92, 0xA8))));
    const double lineX = x + w * 0.42;
    const double widths[] = {0.46, 0.38, 0.30};
    for (int i = 0; i < 3; ++i)
        gc->DrawRoundedRectangle(lineX, y + h * (0.36 + i * 0.12), w * widths[i], h * 0.055, 2);
    gc->SetBrush(gc->CreateBrush(wxBrush(wxColour(0x45, 0x5A, 0x70))));
    gc->DrawRoundedRectangle(x + w * 0.12, y + h * 0.78, w * 0.62, h * 0.07, 2);
}

wxImage DrawIcon(double scale)
{
    wxImage image = NewCanvas(32, 32, scale);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->Scale(scale, scale);
    gc->Translate(16, 16);
    gc->Rotate(-0.18);
    DrawCard(gc, -14.5, -10, 29, 20, false);
    delete gc;
    return image;
}

wxImage DrawBanner(const wxString& title, const wxString& subtitle, double scale)
{
    const int width = 769, height = 170;
    wxImage image = NewCanvas(width, height, scale);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->Scale(scale, scale);

    DrawBannerBackground(gc, width, height);
    DrawBannerTexts(gc, title, subtitle);

    gc->PushState();
    gc->Translate(610, 86);
    gc->Rotate(-0.12);
    DrawCard(gc, -88, -56, 176, 112, true);
    gc->PopState();

    delete gc;
    return image;
}


wxImage DrawOkIcon(double scale)
{
    return DrawRoundIcon(wxColour(0x6C, 0xD0, 0x7E), wxColour(0x1E, 0x8A, 0x3C), true, scale);
}

wxImage DrawCancelIcon(double scale)
{
    return DrawRoundIcon(wxColour(0xF2, 0x7A, 0x6E), wxColour(0xB8, 0x22, 0x1C), false, scale);
}
