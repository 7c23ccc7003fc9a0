// Showing and fading the status line; see StatusLine.h.
#include "gui/StatusLine.h"

#include "gui/Accessibility.h"
#include "gui/FadeOut.h"
#include "gui/HiDpiArt.h"
#include "gui/Translate.h"
#include "gui/Images.h"
#include "gui/XpmImage.h"

#include <wx/bitmap.h>
#include <wx/sizer.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>
#include <wx/timer.h>
#include <wx/utils.h>

namespace StatusLine {

wxBoxSizer* MakeRow(wxStaticBitmap* icon, wxStaticText* text, int height)
{
    wxBoxSizer* row = new wxBoxSizer(wxHORIZONTAL);
    row->AddStretchSpacer();
    row->Add(icon, 0, wxALIGN_CENTER_VERTICAL | wxRIGHT, 8);
    row->Add(text, 0, wxALIGN_CENTER_VERTICAL);
    row->AddStretchSpacer();
    row->SetMinSize(wxSize(-1, height));
    Accessibility::MarkAsNotification(text);
    return row;
}

void Show(wxWindow* owner, wxWindow* yieldFor, wxStaticText* text, wxStaticBitmap* icon,
          const wxString& message, bool isError, FadeOut& fade, wxTimer& timer,
          const wxColour& foreground, const wxColour& background)
{
    if (message.empty()) {
        text->Hide();
        icon->Hide();
        return;
    }

    const double scale = icon->GetContentScaleFactor();
    const wxBitmap bitmap = ArtBitmap(isError ? ART_CANCEL : ART_OK, scale);
    icon->Show();
    text->SetLabel(message);
    icon->SetBitmap(bitmap);
    Accessibility::SetName(icon, isError ? Tr("Fehler") : Tr("Erfolg"));
    // Shows the text and has a screen reader speak it.
    Accessibility::Announce(text, message);

    // A shown/hidden line changes the sizer's minimum, and GTK only
    // re-measures the centred text after a real size change: nudging the
    // window's size lays everything out again at once.
    const wxSize size = owner->GetSize();
    owner->SetSize(wxSize(size.GetWidth() + 1, size.GetHeight()));
    owner->SetSize(size);
    owner->Layout();
    wxSafeYield(yieldFor, true);

    if (bitmap.IsOk()) {
        fade.Init(foreground, background, bitmap.ConvertToImage(), kFadeSteps);
        Step(text, icon, fade, timer);
        timer.Start(kFadeHoldMs, wxTIMER_CONTINUOUS);
    }
}

void Step(wxStaticText* text, wxStaticBitmap* icon, FadeOut& fade, wxTimer& timer)
{
    fade.NextStep();
    if (fade.Finished()) {
        timer.Stop();
        text->Hide();
        icon->Hide();
        return;
    }
    text->SetForegroundColour(fade.GetColour());
    text->Refresh();
    icon->SetBitmap(ScaledBitmap(fade.GetImage(), icon->GetContentScaleFactor()));
    // The first tick ends the hold; from then on the fade runs in short steps.
    if (timer.GetInterval() != kFadeStepMs)
        timer.Start(kFadeStepMs, wxTIMER_CONTINUOUS);
}

} // namespace StatusLine
