// Start-up measurement hook for the start-up benchmark. Only active when the
// environment variable VESSACARDS_EXIT_AFTER_REFRESH is "1": the program then
// prints, on standard error,
//   VESSACARDS_TIMING shown_ns=<t>          once the event loop runs with the window shown
//   VESSACARDS_TIMING filled_ns=<t> rows=<n> title=<window title>
//                                           once the first card-list refresh is shown
// (t: CLOCK_MONOTONIC in nanoseconds, comparable across processes) and closes
// the window after the refresh. With the value "watch" the window stays and
// the filled line follows every refresh (the hot-plug benchmark). Without
// the variable nothing changes.
// Part of the program itself, not of the application library, because it
// drives the main window.
#pragma once

class MainFrame;

namespace VessaCards {

void InstallStartupTiming(MainFrame* mainFrame);

} // namespace VessaCards
