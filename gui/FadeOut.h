// Arithmetic behind the fading status line: a step counter, the text colour
// for the current step and the status icon with its opacity for that step.
// Each window drives it from its own timer.
#pragma once

#include <wx/colour.h>
#include <wx/image.h>

class FadeOut {
public:
    FadeOut();

    // Starts a fade from step 0. An image without alpha channel gets one
    // (opaque, or transparent where its mask is).
    void Init(wxColour a, wxColour b, wxImage image, int steps);
    // Advances one step, never beyond the last.
    void NextStep();
    bool Finished();
    // Progress from 0 to 1.
    float GetModifier();
    // |b - a| per channel scaled by the progress; this is not a blend from a
    // to b, and the status line relies on it starting near black.
    wxColour GetColour();
    // Copy of the image; every pixel that is not fully transparent gets the
    // opacity (1 - progress) * 255.
    wxImage GetImage();

    int GetStep() const { return m_Step; }
    int GetSteps() const { return m_Steps; }

private:
    int m_Step;
    int m_Steps;
    wxColour m_ColourA;
    wxColour m_ColourB;
    wxImage m_Image;
};
