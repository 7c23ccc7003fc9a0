// Toolkit side of the shared fixture library: event pumping, a recorder that
// catches modal dialogs, picture comparison, screenshots and a layout check.
// The GUI test executables share one entry point (GuiTestMain.cpp), which
// calls the executable's own PrepareGuiTestProcess() before the toolkit
// starts.
#pragma once

#include <wx/bitmap.h>
#include <wx/modalhook.h>
#include <wx/string.h>

#include <functional>
#include <string>
#include <vector>

class wxDialog;
class wxWindow;

// Defined by each GUI test executable: its card set and environment.
void PrepareGuiTestProcess();

namespace TestSupport {

// Runs the pending toolkit work for about `ms` milliseconds.
void Pump(int ms);
// Pumps until `done` holds or `seconds` pass; returns done().
bool PumpUntil(const std::function<bool()>& done, double seconds = 20.0);

// Every colour (RGB) of the pixels that are opaque in the XPM picture and in
// the bitmap agree.
bool BitmapShowsPicture(const wxBitmap& bitmap, const char* const* xpm);

// Saves what the window shows on the screen as <path>.png; false on failure.
bool SaveScreenshot(wxWindow* window, const std::string& path);

// Shown controls of the window that overlap a shown sibling or stick out of
// their parent, one line each: a control the layout left out sits at its
// parent's corner on top of another. Static boxes frame their siblings and
// books place their pages: neither is judged.
std::vector<std::string> LayoutFaults(wxWindow* window);

wxString Utf8(const char* text);

// Catches modal dialogs: records their type and title and closes them at
// once with wxID_CANCEL instead of showing them.
class ModalRecorder : public wxModalDialogHook {
public:
    ModalRecorder() { Register(); }
    ~ModalRecorder() override { Unregister(); }

    struct Seen {
        std::string type;
        wxString title;
    };
    std::vector<Seen> seen;
    // Runs on the dialog before it is dismissed.
    std::function<void(wxDialog*)> inspect;

protected:
    int Enter(wxDialog* dialog) override;
    void Exit(wxDialog*) override {}
};

} // namespace TestSupport
