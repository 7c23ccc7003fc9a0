// The fading status line (icon and centred text) that the main window and the
// signature test dialog share: a message stands for 1.5 s, then fades out in
// 50 steps of 100 ms and disappears. Each window owns the widgets, the
// FadeOut helper and the timer; these functions drive them.
#pragma once

class FadeOut;
class wxBoxSizer;
class wxColour;
class wxStaticBitmap;
class wxStaticText;
class wxString;
class wxTimer;
class wxWindow;

namespace StatusLine {

constexpr int kFadeSteps = 50;
constexpr int kFadeHoldMs = 1500;
constexpr int kFadeStepMs = 100;

// Shows the message with the success or error icon and starts the fade from
// the two reference colours; an empty message hides the line at once.
// `owner` is the window whose layout changes; `yieldFor` is handed to
// wxSafeYield (null disables every window while the line repaints).
void Show(wxWindow* owner, wxWindow* yieldFor, wxStaticText* text, wxStaticBitmap* icon,
          const wxString& message, bool isError, FadeOut& fade, wxTimer& timer,
          const wxColour& foreground, const wxColour& background);

// The line's row: icon and text centred, at least `height` high even while
// hidden, so the window does not jump when a message appears.
wxBoxSizer* MakeRow(wxStaticBitmap* icon, wxStaticText* text, int height);

// One tick of the fade timer.
void Step(wxStaticText* text, wxStaticBitmap* icon, FadeOut& fade, wxTimer& timer);

} // namespace StatusLine
