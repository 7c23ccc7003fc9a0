// Start-up measurement hook for the start-up benchmark. Only active when the
// environment variable VESSACARDS_EXIT_AFTER_REFRESH is "1": the program then
// prints, on standard error,
//   VESSACARDS_TIMING shown_ns=<t>          once the event loop runs with the window shown
//   VESSACARDS_TIMING filled_ns=<t> rows=<n> once the first card-list refresh is shown
// (t: CLOCK_MONOTONIC in nanoseconds, comparable across processes) and closes
// the window after the refresh. Without the variable nothing changes.
#pragma once

class wxFrame;

namespace VessaCards {

void InstallStartupTiming(wxFrame* mainFrame);

} // namespace VessaCards
