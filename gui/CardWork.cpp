// Card work on its own thread; see CardWork.h.
#include "gui/CardWork.h"

#include <wx/thread.h>
#include <wx/utils.h>

#include <utility>

namespace {

class WorkThread : public wxThread {
public:
    WorkThread(std::function<void()> work, wxEvtHandler* notify)
        : wxThread(wxTHREAD_JOINABLE), m_work(std::move(work)), m_notify(notify)
    {
    }
    void* Entry() override
    {
        m_work();
        if (m_notify != nullptr)
            wxQueueEvent(m_notify, new wxThreadEvent());
        return nullptr;
    }

private:
    std::function<void()> m_work;
    wxEvtHandler* m_notify;
};

bool StartThread(wxThread* thread)
{
    return thread->Create() == wxTHREAD_NO_ERROR && thread->Run() == wxTHREAD_NO_ERROR;
}

} // namespace

CardWork::CardWork()
{
    Bind(wxEVT_THREAD, &CardWork::OnFinished, this);
}

CardWork::~CardWork()
{
    Wait();
}

void CardWork::Wait()
{
    Join();
    m_done = nullptr;
}

void CardWork::Join()
{
    if (m_thread == nullptr)
        return;
    m_thread->Wait();
    delete m_thread;
    m_thread = nullptr;
}

bool CardWork::Start(std::function<void()> work, std::function<void()> done)
{
    if (Running())
        return false;
    m_thread = new WorkThread(std::move(work), this);
    if (!StartThread(m_thread)) {
        delete m_thread;
        m_thread = nullptr;
        return false;
    }
    m_done = std::move(done);
    return true;
}

void CardWork::OnFinished(wxThreadEvent&)
{
    if (m_thread == nullptr)
        return;
    Join();
    std::function<void()> done = std::move(m_done);
    m_done = nullptr;
    if (done)
        done();
}

bool CardWork::RunAndWait(std::function<void()> work)
{
    if (Running())
        return false;
    WorkThread thread(std::move(work), nullptr);
    if (!StartThread(&thread))
        return false;
    m_waiting = true;
    // Paint and timer events flow meanwhile; the caller has its controls
    // off, so nothing starts a second card call.
    while (thread.IsRunning()) {
        wxYieldIfNeeded();
        wxMilliSleep(5);
    }
    thread.Wait();
    m_waiting = false;
    return true;
}
