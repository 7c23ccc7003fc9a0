// Names and roles for screen readers. On GTK the accessible objects are the
// widgets' ATK objects (AT-SPI reads them); the toolkit's own accessibility
// classes exist on another platform only, so the names are set on the ATK
// object behind each control.
#pragma once

class wxString;
class wxWindow;

namespace Accessibility {

// The name (and optionally the description) a screen reader gives `control`;
// an empty name keeps the control's own.
void SetName(wxWindow* control, const wxString& name, const wxString& description);
void SetName(wxWindow* control, const wxString& name);
// Marks a text as a notification: a screen reader speaks it each time it
// is shown (Announce).
void MarkAsNotification(wxWindow* text);
// Shows `text` anew with `message` as its accessible name, so that a screen
// reader announces it even when it was already on screen.
void Announce(wxWindow* text, const wxString& message);

} // namespace Accessibility
