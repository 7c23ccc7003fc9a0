// Draws the window's artwork with the toolkit's anti-aliased 2D renderer and
// writes each picture as an XPM file (the form the program compiles in).
//
//   korvex_draw_images <output folder> [<preview.png>]
//
// With a second argument the written files are read back and laid out on
// one PNG sheet (icons enlarged four times) for a look at the result.
// Needs a display (run it under xvfb-run); see README.md beside this file.
#include "gui/BannerArt.h"

#include <wx/app.h>
#include <wx/brush.h>
#include <wx/pen.h>
#include <wx/font.h>
#include <wx/graphics.h>
#include <wx/image.h>
#include <wx/init.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

// Background the semi-transparent edges of the icons are blended onto: the
// usual light window colour. Pixels that are mostly transparent stay "None".
const unsigned char kBackdrop[3] = {0xEF, 0xEF, 0xEF};
const int kTransparentBelow = 100;

wxImage NewCanvas(int width, int height)
{
    wxImage image(width, height);
    image.InitAlpha();
    unsigned char* alpha = image.GetAlpha();
    for (int i = 0; i < width * height; ++i)
        alpha[i] = 0;
    return image;
}

// Palette code of colour number n: two printable characters, no quote or
// backslash.
std::string Code(size_t n)
{
    static const std::string chars =
        " .+@#$%&*=-;>,')!~{]^/(_:<[}|1234567890abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ`";
    return std::string(1, chars[n % chars.size()]) + chars[n / chars.size()];
}

bool WriteXpm(const wxImage& image, const std::string& name, const std::string& folder)
{
    const int width = image.GetWidth();
    const int height = image.GetHeight();
    const unsigned char* rgb = image.GetData();
    const unsigned char* alpha = image.HasAlpha() ? image.GetAlpha() : nullptr;

    // Colour of each pixel as 0xRRGGBB, or -1 for transparent.
    std::vector<long> pixels(static_cast<size_t>(width) * height);
    for (size_t i = 0; i < pixels.size(); ++i) {
        int a = alpha != nullptr ? alpha[i] : 255;
        if (a < kTransparentBelow) {
            pixels[i] = -1;
            continue;
        }
        long colour = 0;
        for (int c = 0; c < 3; ++c) {
            int value = (rgb[i * 3 + c] * a + kBackdrop[c] * (255 - a)) / 255;
            colour = (colour << 8) | value;
        }
        pixels[i] = colour;
    }

    std::map<long, size_t> palette;
    for (long colour : pixels)
        palette.emplace(colour, 0);
    size_t next = 0;
    for (auto& entry : palette)
        entry.second = next++;
    if (palette.size() > 92 * 92) {
        std::fprintf(stderr, "%s: too many colours (%zu)\n", name.c_str(), palette.size());
        return false;
    }

    const std::string path = folder + "/" + name + ".xpm";
    FILE* out = std::fopen(path.c_str(), "w");
    if (out == nullptr)
        return false;
    std::fprintf(out, "/* XPM */\n/* Drawn by gui/images/draw_images.cpp; do not edit by hand. */\n");
    std::fprintf(out, "const char* const %s[] = {\n", name.c_str());
    std::fprintf(out, "\"%d %d %zu 2\",\n", width, height, palette.size());
    for (const auto& entry : palette) {
        if (entry.first < 0)
            std::fprintf(out, "\"%s c None\",\n", Code(entry.second).c_str());
        else
            std::fprintf(out, "\"%s c #%06lX\",\n", Code(entry.second).c_str(), entry.first);
    }
    for (int y = 0; y < height; ++y) {
        std::string row;
        for (int x = 0; x < width; ++x)
            row += Code(palette[pixels[static_cast<size_t>(y) * width + x]]);
        std::fprintf(out, "\"%s\"%s\n", row.c_str(), y + 1 < height ? "," : "");
    }
    std::fprintf(out, "};\n");
    std::fclose(out);
    std::printf("%s: %dx%d, %zu colours\n", path.c_str(), width, height, palette.size());
    return true;
}

// Gold contact field of a smart card chip at (x, y) with size w x h.
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

wxImage DrawChipSmall()
{
    wxImage image = NewCanvas(31, 22);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->SetAntialiasMode(wxANTIALIAS_DEFAULT);
    DrawChip(gc, 1.5, 1.5, 28, 19);
    delete gc;
    return image;
}

wxImage DrawRoundIcon(const wxColour& light, const wxColour& dark, bool check)
{
    wxImage image = NewCanvas(32, 32);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
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

wxImage DrawReload()
{
    wxImage image = NewCanvas(32, 32);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
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

// A card seen from the front: rounded body, chip, and a few text lines.
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

wxImage DrawIcon()
{
    wxImage image = NewCanvas(32, 32);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);
    gc->Translate(16, 16);
    gc->Rotate(-0.18);
    DrawCard(gc, -14.5, -10, 29, 20, false);
    delete gc;
    return image;
}

wxImage DrawBanner()
{
    const int width = 769, height = 170;
    wxImage image = NewCanvas(width, height);
    wxGraphicsContext* gc = wxGraphicsContext::Create(image);

    DrawBannerBackground(gc, width, height);
    DrawBannerTexts(gc, "Kartenverwaltung", wxString::FromUTF8("vessa premium \u00B7 Signaturkarten und e-Cards"));

    gc->PushState();
    gc->Translate(610, 86);
    gc->Rotate(-0.12);
    DrawCard(gc, -88, -56, 176, 112, true);
    gc->PopState();

    delete gc;
    return image;
}

} // namespace

// Reads the XPM files back and lays them out on one sheet.
bool WritePreview(const std::string& folder, const std::string& pngPath)
{
    const char* names[] = {"KorvexBanner", "ButtonReload", "ButtonOk", "ButtonCancel",
                           "chip_small_xpm", "IconXpm"};
    wxImage sheet(800, 370);
    sheet.SetRGB(wxRect(0, 0, 800, 370), 0xEF, 0xEF, 0xEF);
    int x = 10;
    for (const char* name : names) {
        wxImage picture;
        if (!picture.LoadFile(folder + "/" + name + ".xpm", wxBITMAP_TYPE_XPM))
            return false;
        if (picture.HasMask())
            picture.InitAlpha();
        if (std::string(name) == "KorvexBanner") {
            sheet.Paste(picture, 10, 10, wxIMAGE_ALPHA_BLEND_COMPOSE);
            continue;
        }
        picture.Rescale(picture.GetWidth() * 4, picture.GetHeight() * 4, wxIMAGE_QUALITY_NEAREST);
        sheet.Paste(picture, x, 200, wxIMAGE_ALPHA_BLEND_COMPOSE);
        x += picture.GetWidth() + 10;
    }
    return sheet.SaveFile(pngPath, wxBITMAP_TYPE_PNG);
}

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: %s <output folder> [<preview.png>]\n", argv[0]);
        return 2;
    }
    wxApp::SetInstance(new wxApp());
    wxInitializer init(argc, argv);
    if (!init.IsOk()) {
        std::fprintf(stderr, "cannot start the toolkit (no display?)\n");
        return 1;
    }
    const std::string folder = argv[1];
    bool ok = true;
    ok &= WriteXpm(DrawBanner(), "KorvexBanner", folder);
    ok &= WriteXpm(DrawReload(), "ButtonReload", folder);
    ok &= WriteXpm(DrawRoundIcon(wxColour(0x6C, 0xD0, 0x7E), wxColour(0x1E, 0x8A, 0x3C), true),
                   "ButtonOk", folder);
    ok &= WriteXpm(DrawRoundIcon(wxColour(0xF2, 0x7A, 0x6E), wxColour(0xB8, 0x22, 0x1C), false),
                   "ButtonCancel", folder);
    ok &= WriteXpm(DrawChipSmall(), "chip_small_xpm", folder);
    ok &= WriteXpm(DrawIcon(), "IconXpm", folder);
    if (ok && argc == 3) {
        wxInitAllImageHandlers();
        ok = WritePreview(folder, argv[2]);
    }
    return ok ? 0 : 1;
}
