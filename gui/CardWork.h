// One window's card work away from the GUI thread (a PIN change or unblock, a
// signature, infobox reads and writes, each possibly with the module's own PIN
// dialogue), so the window keeps repainting while the card is busy. The work
// never touches a widget; what it found is shown by `done`, which runs on the
// GUI thread once the work has ended. One piece of work at a time.
#pragma once

#include <wx/event.h>

#include <functional>

class wxThread;

class CardWork : public wxEvtHandler {
public:
    CardWork();
    CardWork(const CardWork&) = delete;
    CardWork& operator=(const CardWork&) = delete;
    // Waits for running work: a PIN change or a signature cannot be cut off
    // halfway. Its `done` is dropped with the window.
    ~CardWork() override;

    // Starts `work` on its own thread; `done` follows through the event
    // queue. False when no thread could be started (nothing runs then).
    bool Start(std::function<void()> work, std::function<void()> done);
    // Runs `work` on its own thread and returns when it has ended, while the
    // GUI thread's events keep flowing (paint, timers): for dialogs whose
    // steps are written as one sequence. False when no thread started.
    bool RunAndWait(std::function<void()> work);
    bool Running() const { return m_thread != nullptr || m_waiting; }
    // Waits for work started by Start to end and drops its `done`: for an
    // owner that goes away before what the work uses.
    void Wait();

private:
    void OnFinished(wxThreadEvent& event);
    void Join();

    wxThread* m_thread = nullptr;
    std::function<void()> m_done;
    bool m_waiting = false;
};
