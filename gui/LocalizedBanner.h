// The banner at the top of the main window in the user's language: the
// drawn artwork carries the German title, so a translated window gets the
// same picture with its text area painted again in the translation.
#pragma once

#include <wx/image.h>

// The banner as shown: the artwork itself while the texts are German.
wxImage LocalizedBanner();
// The banner drawn at `scale` times its size in the user's language, for a
// high-density screen.
wxImage LocalizedBanner(double scale);
