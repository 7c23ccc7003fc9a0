// Runs one command's card work (PIN change or unblock, a signature, with the
// module's own PIN dialogue) away from the GUI thread, so the window keeps
// repainting. The work never touches a widget; the thread posts the "work
// finished" command event, and the window then shows the result on its own
// thread.
#pragma once

#include <wx/thread.h>

#include <functional>

class wxWindow;

class CardWorkThread : public wxThread {
public:
    enum { ID_WORK_FINISHED = 5471 };

    CardWorkThread(wxWindow* notify, std::function<void()> work);
    void* Entry() override;

private:
    wxWindow* m_Notify;
    std::function<void()> m_Work;
};
