// Start-up measurement hook; see StartupTiming.h.
#include "program/StartupTiming.h"

#include "gui/CardList.h"
#include "gui/MainFrame.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace VessaCards {

namespace {

long long MonotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

} // namespace

void InstallStartupTiming(MainFrame* mainFrame)
{
    const char* flag = std::getenv("VESSACARDS_EXIT_AFTER_REFRESH");
    if (mainFrame == nullptr || flag == nullptr)
        return;
    const bool keepRunning = std::strcmp(flag, "watch") == 0;
    if (!keepRunning && std::strcmp(flag, "1") != 0)
        return;

    mainFrame->CallAfter([] {
        std::fprintf(stderr, "VESSACARDS_TIMING shown_ns=%lld\n", MonotonicNanoseconds());
    });
    // Runs the window's own handler first, so the rows are in the list when
    // the time is taken; the window closes from the main loop afterwards.
    mainFrame->Bind(
        wxEVT_MENU,
        [mainFrame, keepRunning](wxCommandEvent& event) {
            mainFrame->evt_ThreadFinished(event);
            std::fprintf(stderr, "VESSACARDS_TIMING filled_ns=%lld rows=%d title=%s\n", MonotonicNanoseconds(),
                         mainFrame->GetCardList()->GetItemCount(), mainFrame->GetTitle().utf8_str().data());
            if (!keepRunning)
                mainFrame->CallAfter([mainFrame] { mainFrame->Close(true); });
        },
        MainFrame::ID_THREAD_FINISHED);
}

} // namespace VessaCards
