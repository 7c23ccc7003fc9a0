// Step arithmetic of the fading status line.
#include "gui/FadeOut.h"

#include <cstdlib>

FadeOut::FadeOut() : m_Step(0), m_Steps(100) {}

void FadeOut::Init(wxColour a, wxColour b, wxImage image, int steps)
{
    m_ColourA = a;
    m_ColourB = b;
    m_Image = image;
    m_Steps = steps;
    m_Step = 0;
    if (m_Image.IsOk() && !m_Image.HasAlpha())
        m_Image.InitAlpha();
}

void FadeOut::NextStep()
{
    if (m_Step < m_Steps)
        ++m_Step;
}

bool FadeOut::Finished()
{
    return m_Step >= m_Steps;
}

float FadeOut::GetModifier()
{
    // A fade without steps is over before it starts.
    if (m_Steps <= 0)
        return 1.0f;
    return static_cast<float>(m_Step) / static_cast<float>(m_Steps);
}

namespace {

// trunc(|b - a| * step / steps) in integers, so the result is exact.
unsigned char ScaledDifference(unsigned char a, unsigned char b, int step, int steps)
{
    if (steps <= 0)
        return static_cast<unsigned char>(std::abs(int(b) - int(a)));
    return static_cast<unsigned char>(std::abs(int(b) - int(a)) * step / steps);
}

} // namespace

wxColour FadeOut::GetColour()
{
    if (!m_ColourA.IsOk() || !m_ColourB.IsOk())
        return wxColour(0, 0, 0, 255);
    return wxColour(ScaledDifference(m_ColourA.Red(), m_ColourB.Red(), m_Step, m_Steps),
                    ScaledDifference(m_ColourA.Green(), m_ColourB.Green(), m_Step, m_Steps),
                    ScaledDifference(m_ColourA.Blue(), m_ColourB.Blue(), m_Step, m_Steps), 255);
}

wxImage FadeOut::GetImage()
{
    if (!m_Image.IsOk())
        return wxImage();
    wxImage faded = m_Image.Copy();
    unsigned char* alpha = faded.GetAlpha();
    if (alpha == nullptr)
        return faded;
    const int remaining = m_Steps > 0 ? m_Steps - m_Step : 0;
    const int divisor = m_Steps > 0 ? m_Steps : 1;
    const unsigned char opacity = static_cast<unsigned char>(remaining * 255 / divisor);
    const size_t count = static_cast<size_t>(faded.GetWidth()) * faded.GetHeight();
    for (size_t i = 0; i < count; ++i) {
        if (alpha[i] != 0)
            alpha[i] = opacity;
    }
    return faded;
}
