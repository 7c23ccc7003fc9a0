// Card work of a command on its own thread; see CardWorkThread.h.
#include "gui/CardWorkThread.h"

#include <wx/event.h>
#include <wx/window.h>

CardWorkThread::CardWorkThread(wxWindow* notify, std::function<void()> work)
    : wxThread(wxTHREAD_JOINABLE), m_Notify(notify), m_Work(std::move(work))
{
}

void* CardWorkThread::Entry()
{
    m_Work();
    if (m_Notify != nullptr) {
        wxCommandEvent finished(wxEVT_COMMAND_MENU_SELECTED, ID_WORK_FINISHED);
        m_Notify->GetEventHandler()->AddPendingEvent(finished);
    }
    return nullptr;
}
