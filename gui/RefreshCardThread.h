// Worker thread that reads every inserted card (session, signing certificate,
// token information) into list rows, so the window stays responsive while the
// module talks to the readers. It never touches a widget: it only posts the
// "refresh finished" command event to the window.
#pragma once

#include "gui/ListEntryData.h"
#include "token/acPKCS11Types.h"

#include <wx/thread.h>

class wxWindow;
namespace Korvex {
class acPKCS11;
}

class RefreshCardThread : public wxThread {
public:
    enum { ID_THREAD_FINISHED = 5453 };

    RefreshCardThread(wxWindow* notify, Korvex::acPKCS11* p11);

    void* Entry() override;
    // Reads one row per slot whose session opens; the slot list is taken by
    // value because the token object replaces its records on the next GetSlots.
    void DoWork(std::vector<Korvex::SlotStruct*> slots);
    // The rows read; only valid after the thread has been joined.
    ListEntryVector GetList() const { return m_List; }
    // What could not be read; only valid after the thread has been joined.
    bool SlotListFailed() const { return m_SlotListFailed; }
    int UnreadableCards() const { return m_UnreadableCards; }
    // With no row: how many readers the module has; -1 when unknown.
    int ReaderCount() const { return m_ReaderCount; }

private:
    // A row for a token that is not one of the vendor's cards.
    void ReadStandardToken(const Korvex::SlotStruct& slot, const Korvex::TokenInfoStruct2& info,
                           const CK_TOKEN_INFO& raw, const Korvex::TokenProfile& profile);
    // The maker of the slot's module, for the tooltip; empty on the vendor's.
    wxString SlotMaker(CK_SLOT_ID slot);

    wxWindow* m_Notify;
    Korvex::acPKCS11* m_P11;
    ListEntryVector m_List;
    bool m_SlotListFailed = false;
    int m_UnreadableCards = 0;
    int m_ReaderCount = -1;
};
