// Event pumping, dialog recorder, pictures, screenshots and the layout check;
// see GuiKit.h.
#include "tests/support/GuiKit.h"

#include <wx/app.h>
#include <wx/bookctrl.h>
#include <wx/dialog.h>
#include <wx/evtloop.h>
#include <wx/image.h>
#include <wx/statbox.h>
#include <wx/window.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <typeinfo>

#include <dlfcn.h>

namespace TestSupport {

void Pump(int ms)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    do {
        wxEventLoopBase* loop = wxEventLoopBase::GetActive();
        while (loop != nullptr && loop->Pending())
            loop->Dispatch();
        wxTheApp->ProcessPendingEvents();
        if (loop != nullptr)
            loop->ProcessIdle();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    } while (std::chrono::steady_clock::now() < end);
}

bool PumpUntil(const std::function<bool()>& done, double seconds)
{
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return done();
        Pump(5);
    }
    return true;
}

bool BitmapShowsPicture(const wxBitmap& bitmap, const char* const* xpm)
{
    if (!bitmap.IsOk())
        return false;
    wxImage shown = bitmap.ConvertToImage();
    wxImage expected = wxBitmap(xpm).ConvertToImage();
    if (shown.GetSize() != expected.GetSize())
        return false;
    if (!expected.HasAlpha())
        expected.InitAlpha();
    int compared = 0;
    for (int y = 0; y < expected.GetHeight(); ++y) {
        for (int x = 0; x < expected.GetWidth(); ++x) {
            if (expected.GetAlpha(x, y) == 0 || (shown.HasAlpha() && shown.GetAlpha(x, y) == 0))
                continue;
            // Faded pixels go through premultiplied alpha: allow rounding.
            if (std::abs(shown.GetRed(x, y) - expected.GetRed(x, y)) > 3 ||
                std::abs(shown.GetGreen(x, y) - expected.GetGreen(x, y)) > 3 ||
                std::abs(shown.GetBlue(x, y) - expected.GetBlue(x, y)) > 3)
                return false;
            ++compared;
        }
    }
    return compared > 0;
}

bool SaveScreenshot(wxWindow* window, const std::string& path)
{
    window->Raise();
    window->Refresh();
    window->Update();
    Pump(400);
    // GTK 3 cannot read pixels back through a window DC, so they come from
    // the X window itself. The toolkit already has GTK loaded; its functions
    // are looked up there because the GTK headers are not installed.
    using GetWindow = void* (*)(void*);
    using Size = int (*)(void*);
    using FromWindow = void* (*)(void*, int, int, int, int);
    using Save = int (*)(void*, const char*, const char*, char**, char**, void**);
    using Unref = void (*)(void*);
    auto getWindow = reinterpret_cast<GetWindow>(dlsym(RTLD_DEFAULT, "gtk_widget_get_window"));
    auto width = reinterpret_cast<Size>(dlsym(RTLD_DEFAULT, "gdk_window_get_width"));
    auto height = reinterpret_cast<Size>(dlsym(RTLD_DEFAULT, "gdk_window_get_height"));
    auto fromWindow = reinterpret_cast<FromWindow>(dlsym(RTLD_DEFAULT, "gdk_pixbuf_get_from_window"));
    auto save = reinterpret_cast<Save>(dlsym(RTLD_DEFAULT, "gdk_pixbuf_savev"));
    auto unref = reinterpret_cast<Unref>(dlsym(RTLD_DEFAULT, "g_object_unref"));
    if (!getWindow || !width || !height || !fromWindow || !save || !unref)
        return false;
    void* gdkWindow = getWindow(window->GetHandle());
    void* pixbuf = gdkWindow != nullptr ? fromWindow(gdkWindow, 0, 0, width(gdkWindow), height(gdkWindow)) : nullptr;
    if (pixbuf == nullptr)
        return false;
    // The first screenshot of a fresh build folder makes its folder.
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    const bool saved = save(pixbuf, (path + ".png").c_str(), "png", nullptr, nullptr, nullptr) != 0;
    unref(pixbuf);
    return saved;
}

namespace {

std::string Describe(wxWindow* control)
{
    return wxString(control->GetClassInfo()->GetClassName()).ToStdString() + " \"" +
           control->GetLabel().ToStdString(wxConvUTF8) + "\"";
}

} // namespace

std::vector<std::string> LayoutFaults(wxWindow* window)
{
    std::vector<std::string> faults;
    std::vector<wxWindow*> placed;
    for (wxWindow* child : window->GetChildren()) {
        if (!child->IsShown() || child->IsTopLevel())
            continue;
        for (const std::string& inner : LayoutFaults(child))
            faults.push_back(inner);
        // Static boxes frame their siblings; a book places its pages itself.
        if (dynamic_cast<wxStaticBox*>(child) != nullptr || dynamic_cast<wxBookCtrlBase*>(window) != nullptr)
            continue;
        const wxRect rect = child->GetRect();
        if (!wxRect(window->GetClientSize()).Contains(rect))
            faults.push_back(Describe(child) + " sticks out of " + Describe(window));
        for (wxWindow* other : placed)
            if (rect.Intersects(other->GetRect()))
                faults.push_back(Describe(child) + " overlaps " + Describe(other));
        placed.push_back(child);
    }
    return faults;
}

wxString Utf8(const char* text) { return wxString::FromUTF8(text); }

int ModalRecorder::Enter(wxDialog* dialog)
{
    seen.push_back({typeid(*dialog).name(), dialog->GetTitle()});
    if (inspect)
        inspect(dialog);
    return wxID_CANCEL;
}

} // namespace TestSupport
