// The yardstick for the program's start-up: a bare toolkit frame with a
// native list view of the same three columns and nothing else. Reports, like the
// program, when its event loop runs with the window shown, then quits.
#include "BenchClock.h"

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/dataview.h>

#include <cstdio>
#include <ctime>

namespace {

class BareApp : public wxApp {
public:
    bool OnInit() override
    {
        wxFrame* frame = new wxFrame(nullptr, wxID_ANY, "bare frame", wxDefaultPosition, wxSize(790, 560));
        wxDataViewListCtrl* list = new wxDataViewListCtrl(frame, wxID_ANY);
        list->AppendTextColumn("Kartennummer", wxDATAVIEW_CELL_INERT, 170);
        list->AppendTextColumn("Ausgestellt", wxDATAVIEW_CELL_INERT, 350);
        list->AppendTextColumn("Kartentyp", wxDATAVIEW_CELL_INERT, 190);
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
