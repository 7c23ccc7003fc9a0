// ATK names and roles of the window's controls; see Accessibility.h.
//
// The program builds without the GTK development headers, so the three ATK
// calls it needs are looked up in the toolkit libraries the process has
// loaded anyway. Where they are missing (another toolkit port) every call
// does nothing.
#include "gui/Accessibility.h"

#include <wx/string.h>
#include <wx/window.h>

#include <dlfcn.h>

namespace Accessibility {
namespace {

struct AtkApi {
    using GetAccessible = void* (*)(void* widget);
    using SetText = void (*)(void* object, const char* text);
    using SetRole = void (*)(void* object, int role);
    using RoleForName = int (*)(const char* name);

    GetAccessible getAccessible = nullptr;
    SetText setName = nullptr;
    SetText setDescription = nullptr;
    SetRole setRole = nullptr;
    RoleForName roleForName = nullptr;

    AtkApi()
    {
        getAccessible = reinterpret_cast<GetAccessible>(dlsym(RTLD_DEFAULT, "gtk_widget_get_accessible"));
        setName = reinterpret_cast<SetText>(dlsym(RTLD_DEFAULT, "atk_object_set_name"));
        setDescription = reinterpret_cast<SetText>(dlsym(RTLD_DEFAULT, "atk_object_set_description"));
        setRole = reinterpret_cast<SetRole>(dlsym(RTLD_DEFAULT, "atk_object_set_role"));
        roleForName = reinterpret_cast<RoleForName>(dlsym(RTLD_DEFAULT, "atk_role_for_name"));
    }
};

const AtkApi& Api()
{
    static const AtkApi api;
    return api;
}

void* AccessibleOf(wxWindow* control)
{
    const AtkApi& api = Api();
    if (control == nullptr || api.getAccessible == nullptr || control->GetHandle() == nullptr)
        return nullptr;
    return api.getAccessible(control->GetHandle());
}

} // namespace

void SetName(wxWindow* control, const wxString& name, const wxString& description)
{
    void* object = AccessibleOf(control);
    if (object == nullptr || Api().setName == nullptr)
        return;
    // An empty name leaves the control's own (a text's text) in place.
    if (!name.empty())
        Api().setName(object, name.utf8_str());
    if (!description.empty() && Api().setDescription != nullptr)
        Api().setDescription(object, description.utf8_str());
}

void SetName(wxWindow* control, const wxString& name)
{
    SetName(control, name, wxString());
}

void MarkAsNotification(wxWindow* text)
{
    void* object = AccessibleOf(text);
    if (object == nullptr || Api().setRole == nullptr || Api().roleForName == nullptr)
        return;
    const int role = Api().roleForName("notification");
    // 0 is ATK's "invalid" role: an ATK too old to know notifications.
    if (role != 0)
        Api().setRole(object, role);
}

void Announce(wxWindow* text, const wxString& message)
{
    SetName(text, message);
    // A screen reader speaks a notification when it becomes visible; one
    // that stays on screen with a new text is shown again for that.
    if (text->IsShown())
        text->Hide();
    text->Show();
}

} // namespace Accessibility
