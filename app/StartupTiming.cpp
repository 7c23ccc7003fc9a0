// Start-up measurement hook; see StartupTiming.h.
#include "app/StartupTiming.h"

#include <wx/frame.h>
#include <wx/listctrl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace VessaCards {

namespace {

// Ids of the main window's refresh-finished event and card list.
const int kRefreshFinishedId = 5453;
const int kCardListId = 5446;

long long MonotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

} // namespace

void InstallStartupTiming(wxFrame* mainFrame)
{
    const char* flag = std::getenv("VESSACARDS_EXIT_AFTER_REFRESH");
    if (mainFrame == nullptr || flag == nullptr || std::strcmp(flag, "1") != 0)
        return;

    mainFrame->CallAfter([] {
        std::fprintf(stderr, "VESSACARDS_TIMING shown_ns=%lld\n", MonotonicNanoseconds());
    });
    mainFrame->Bind(
        wxEVT_MENU,
        [mainFrame](wxCommandEvent& event) {
            // Let the window fill its list first, then report.
            event.Skip();
            mainFrame->CallAfter([mainFrame] {
                const wxListCtrl* list =
                    wxDynamicCast(mainFrame->FindWindow(kCardListId), wxListCtrl);
                std::fprintf(stderr, "VESSACARDS_TIMING filled_ns=%lld rows=%d\n",
                             MonotonicNanoseconds(), list != nullptr ? list->GetItemCount() : -1);
                mainFrame->Close(true);
            });
        },
        kRefreshFinishedId);
}

} // namespace VessaCards
