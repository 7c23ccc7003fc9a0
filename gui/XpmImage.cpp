// Direct XPM reader for the program's own pictures.
#include "gui/XpmImage.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

struct PaletteEntry {
    bool used = false;
    bool transparent = false;
    unsigned char rgb[3] = {0, 0, 0};
};

// Parses "<code> c #RRGGBB" or "<code> c None".
bool ParseColour(const char* line, int charsPerPixel, PaletteEntry& entry)
{
    const size_t length = std::strlen(line);
    if (length < static_cast<size_t>(charsPerPixel) + 4)
        return false;
    const char* colour = line + charsPerPixel;
    while (*colour == ' ' || *colour == '\t')
        ++colour;
    if (colour[0] != 'c' || (colour[1] != ' ' && colour[1] != '\t'))
        return false;
    colour += 2;
    while (*colour == ' ' || *colour == '\t')
        ++colour;
    if (std::strcmp(colour, "None") == 0 || std::strcmp(colour, "none") == 0) {
        entry.used = entry.transparent = true;
        return true;
    }
    if (colour[0] != '#' || std::strlen(colour) != 7)
        return false;
    for (int channel = 0; channel < 3; ++channel) {
        const int high = HexDigit(colour[1 + 2 * channel]), low = HexDigit(colour[2 + 2 * channel]);
        if (high < 0 || low < 0)
            return false;
        entry.rgb[channel] = static_cast<unsigned char>(high * 16 + low);
    }
    entry.used = true;
    return true;
}

size_t CodeIndex(const char* code, int charsPerPixel)
{
    const unsigned char first = static_cast<unsigned char>(code[0]);
    return charsPerPixel == 1 ? first : first * 256u + static_cast<unsigned char>(code[1]);
}

bool ReadXpm(const char* const* xpm, wxImage& image)
{
    int width = 0, height = 0, colours = 0, charsPerPixel = 0;
    if (xpm == nullptr || xpm[0] == nullptr ||
        std::sscanf(xpm[0], "%d %d %d %d", &width, &height, &colours, &charsPerPixel) != 4)
        return false;
    if (width <= 0 || height <= 0 || width > 16384 || height > 16384 || colours <= 0 ||
        (charsPerPixel != 1 && charsPerPixel != 2))
        return false;

    std::vector<PaletteEntry> palette(charsPerPixel == 1 ? 256 : 65536);
    bool anyTransparent = false;
    for (int i = 0; i < colours; ++i) {
        const char* line = xpm[1 + i];
        PaletteEntry entry;
        if (line == nullptr || !ParseColour(line, charsPerPixel, entry))
            return false;
        anyTransparent = anyTransparent || entry.transparent;
        palette[CodeIndex(line, charsPerPixel)] = entry;
    }

    image.Create(width, height, false);
    if (anyTransparent)
        image.InitAlpha();
    unsigned char* rgb = image.GetData();
    unsigned char* alpha = image.GetAlpha();
    for (int y = 0; y < height; ++y) {
        const char* row = xpm[1 + colours + y];
        if (row == nullptr || std::strlen(row) < static_cast<size_t>(width) * charsPerPixel)
            return false;
        for (int x = 0; x < width; ++x) {
            const PaletteEntry& entry = palette[CodeIndex(row + x * charsPerPixel, charsPerPixel)];
            if (!entry.used)
                return false;
            const size_t pixel = static_cast<size_t>(y) * width + x;
            std::memcpy(rgb + pixel * 3, entry.rgb, 3);
            if (alpha != nullptr)
                alpha[pixel] = entry.transparent ? 0 : 255;
        }
    }
    return true;
}

} // namespace

wxImage XpmToImage(const char* const* xpm)
{
    wxImage image;
    if (ReadXpm(xpm, image))
        return image;
    return wxImage();
}
