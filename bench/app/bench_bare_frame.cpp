// The yardstick for the program's start-up: a bare toolkit frame with a
// report list of the same three columns and nothing else. Reports, like the
// program, when its event loop runs with the window shown, then quits.
#include "BenchClock.h"

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/listctrl.h>

#include <cstdio>
#include <ctime>

namespace {

class BareApp : public wxApp {
public:
    bool OnInit() override
    {
        wxFrame* frame = new wxFrame(nullptr, wxID_ANY, "bare frame", wxDefaultPosition, wxSize(790, 560));
        wxListCtrl* list = new wxListCtrl(frame, wxID_ANY, wxDefaultPosition, wxDefaultSize,
                                          wxLC_REPORT | wxLC_SINGLE_SEL);
        list->InsertColumn(0, "Kartennummer", wxLIST_FORMAT_LEFT, 170);
        list->InsertColumn(1, "Ausgestellt", wxLIST_FORMAT_LEFT, 350);
        list->InsertColumn(2, "Kartentyp", wxLIST_FORMAT_LEFT, 190);
        frame->Show();
        CallAfter([frame] {
            std::fprintf(stderr, "VESSACARDS_TIMING shown_ns=%lld\n", MonotonicNanoseconds());
            frame->Close(true);
        });
        return true;
    }
};

} // namespace

wxIMPLEMENT_APP(BareApp);
