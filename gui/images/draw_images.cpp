// Draws the window's artwork with the toolkit's anti-aliased 2D renderer and
// writes each picture as an XPM file (the form the program compiles in).
//
//   korvex_draw_images <output folder> [<preview.png>]
//
// With a second argument the written files are read back and laid out on
// one PNG sheet (icons enlarged four times) for a look at the result.
// Needs a display (run it under xvfb-run); see README.md beside this file.
#include "gui/ArtworkDrawing.h"

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
    ok &= WriteXpm(DrawBanner("Kartenverwaltung", wxString::FromUTF8("vessa premium \u00B7 Signaturkarten und e-Cards"), 1),
                   "KorvexBanner", folder);
    ok &= WriteXpm(DrawReload(1), "ButtonReload", folder);
    ok &= WriteXpm(DrawOkIcon(1), "ButtonOk", folder);
    ok &= WriteXpm(DrawCancelIcon(1), "ButtonCancel", folder);
    ok &= WriteXpm(DrawChipSmall(1), "chip_small_xpm", folder);
    ok &= WriteXpm(DrawIcon(1), "IconXpm", folder);
    if (ok && argc == 3) {
        wxInitAllImageHandlers();
        ok = WritePreview(folder, argv[2]);
    }
    return ok ? 0 : 1;
}
