// Toolkit side of the dialog tests; see GuiSupport.h.
#include "tests/dialogs/GuiSupport.h"

#include "gui/MainFrame.h"
#include "token/acPKCS11.h"

#include <wx/app.h>
#include <wx/bitmap.h>
#include <wx/dcclient.h>
#include <wx/dcmemory.h>
#include <wx/image.h>
#include <wx/listctrl.h>
#include <wx/utils.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include <dlfcn.h>

namespace DialogTests {

namespace {

MainFrame* g_frame = nullptr;

} // namespace

wxString Utf8(const char* text) { return wxString::FromUTF8(text); }

void CardDialogTest::SetUp() {
    Frame();
    ResetCards();
    SetPinAnswers({});
}

void CardDialogTest::TearDown() { ResetCards(); }

void Pump(int ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    do {
        wxTheApp->ProcessPendingEvents();
        wxTheApp->Yield(true);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    } while (std::chrono::steady_clock::now() < end);
}

bool PumpUntil(const std::function<bool()>& done, double seconds) {
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    while (!done() && std::chrono::steady_clock::now() < end) Pump(10);
    return done();
}

MainFrame* Frame() {
    if (g_frame == nullptr) {
        PrepareEnvironment();
        g_frame = new MainFrame(nullptr);
        g_frame->Show();
        // The start timer begins the first card-list load once events run.
        const bool loaded = PumpUntil(
            [] { return !g_frame->IsRefreshRunning() && g_frame->GetCardList()->GetItemCount() > 0; },
            120);
        if (!loaded) ADD_FAILURE() << "card list did not load";
    }
    return g_frame;
}

Korvex::acPKCS11* Token() { return Frame()->GetP11(); }

bool SelectCard(const Card& card) {
    wxListCtrl* list = Frame()->GetCardList();
    for (long row = 0; row < list->GetItemCount(); ++row) {
        if (list->GetItemText(row, 0) == wxString::FromUTF8(card.serial)) {
            list->SetItemState(row, wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED,
                               wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED);
            Pump(20);
            return true;
        }
    }
    return false;
}

std::vector<unsigned char> ReadObject(const Card& card, const std::string& label) {
    std::vector<unsigned char> value;
    Korvex::acPKCS11* token = Token();
    if (token->OpenSession(card.position, false)) {
        token->ReadDataObject(label, value);
        token->CloseSession();
    }
    return value;
}

void SaveScreenshot(wxWindow* window, const std::string& name) {
    const char* dir = std::getenv("KORVEX_SCREENSHOT_DIR");
    if (dir == nullptr || *dir == '\0') return;
    window->Raise();
    window->Refresh();
    window->Update();
    Pump(400);
    // GTK 3 cannot read pixels back through a window DC, so they come from
    // the X window itself. The toolkit already has GTK loaded; its functions
    // are looked up there because the GTK headers are not installed.
    using GetWindow = void* (*)(void*);
    using Width = int (*)(void*);
    using FromWindow = void* (*)(void*, int, int, int, int);
    using SaveV = int (*)(void*, const char*, const char*, char**, char**, void**);
    using Unref = void (*)(void*);
    auto getWindow = reinterpret_cast<GetWindow>(dlsym(RTLD_DEFAULT, "gtk_widget_get_window"));
    auto width = reinterpret_cast<Width>(dlsym(RTLD_DEFAULT, "gdk_window_get_width"));
    auto height = reinterpret_cast<Width>(dlsym(RTLD_DEFAULT, "gdk_window_get_height"));
    auto fromWindow = reinterpret_cast<FromWindow>(dlsym(RTLD_DEFAULT, "gdk_pixbuf_get_from_window"));
    auto save = reinterpret_cast<SaveV>(dlsym(RTLD_DEFAULT, "gdk_pixbuf_savev"));
    auto unref = reinterpret_cast<Unref>(dlsym(RTLD_DEFAULT, "g_object_unref"));
    ASSERT_TRUE(getWindow && width && height && fromWindow && save && unref);

    void* gdkWindow = getWindow(window->GetHandle());
    ASSERT_NE(gdkWindow, nullptr);
    void* pixbuf = fromWindow(gdkWindow, 0, 0, width(gdkWindow), height(gdkWindow));
    ASSERT_NE(pixbuf, nullptr);
    const std::string path = std::string(dir) + "/" + name + ".png";
    const bool saved = save(pixbuf, path.c_str(), "png", nullptr, nullptr, nullptr) != 0;
    unref(pixbuf);
    EXPECT_TRUE(saved) << "cannot save " << path;
}

} // namespace DialogTests
