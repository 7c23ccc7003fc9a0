// The window's artwork, compiled in as XPM data (drawn by
// gui/images/draw_images.cpp; see gui/images/README.md).
#pragma once

extern const char* const KorvexBanner[];   // 769 x 170, top of the main window
extern const char* const ButtonReload[];   // 32 x 32, reload button
extern const char* const ButtonOk[];       // 32 x 32, status icon after success
extern const char* const ButtonCancel[];   // 32 x 32, status icon after an error
extern const char* const chip_small_xpm[]; // 31 x 22, image of every card row
extern const char* const IconXpm[];        // 32 x 32, window icon
