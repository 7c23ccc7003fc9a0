// Fast conversion of the program's compiled-in XPM pictures to images. The
// toolkit's own XPM reader looks every pixel up through a string map, which
// makes the 769 x 170 banner a noticeable part of the start-up time.
#pragma once

#include <wx/image.h>

// Reads XPM data whose colours are "#RRGGBB" or "None" (transparent), with
// one or two characters per pixel, as the artwork generator writes them; any
// other data gives an invalid image. A transparent colour gives the image an
// alpha channel.
wxImage XpmToImage(const char* const* xpm);
