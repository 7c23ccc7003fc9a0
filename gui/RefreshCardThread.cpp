// Card enumeration on the worker thread.
#include "gui/RefreshCardThread.h"

#include "app/VessaCardsLogger.h"
#include "crypto/slCertificate.h"
#include "token/acPKCS11.h"

#include <wx/event.h>
#include <wx/window.h>

#include <ctime>
#include <vector>

namespace {

// UTC seconds of a certificate time given in its parts.
std::time_t UtcSeconds(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
                       unsigned short minute, unsigned short second)
{
    if (year < 1970 || month < 1 || month > 12 || day < 1 || day > 31)
        return 0;
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return timegm(&parts);
}

} // namespace

wxString TokenTypeDisplayName(int type)
{
    static const char* const names[] = {
        "vessa premium ACOS 03",    "vessa premium ACOS 04",    "vessa premium ACOS 05",
        "vessa premium e-Card G2",  "vessa premium e-Card G3A", "vessa premium e-Card G3B",
        "vessa premium e-Card G4",
    };
    if (type < 0 || type > Korvex::TOKEN_ECARD_G4)
        return wxString();
    return wxString::FromUTF8(names[type]);
}

RefreshCardThread::RefreshCardThread(wxWindow* notify, Korvex::acPKCS11* p11)
    : wxThread(wxTHREAD_JOINABLE), m_Notify(notify), m_P11(p11)
{
}

void* RefreshCardThread::Entry()
{
    std::vector<Korvex::SlotStruct*> slots;
    if (m_P11 != nullptr && m_P11->GetSlots(slots, true)) {
        DoWork(slots);
    } else {
        AppLog()->LogError("Error pkcs#11 GetSlots");
        m_SlotListFailed = true;
    }

    if (m_Notify != nullptr) {
        wxCommandEvent finished(wxEVT_COMMAND_MENU_SELECTED, ID_THREAD_FINISHED);
        m_Notify->GetEventHandler()->AddPendingEvent(finished);
    }
    return nullptr;
}

void RefreshCardThread::DoWork(std::vector<Korvex::SlotStruct*> slots)
{
    for (size_t i = 0; i < slots.size(); ++i) {
        if (!m_P11->OpenSession(static_cast<int32_t>(i), false)) {
            AppLog()->LogError("Error open pkcs#11 session");
            ++m_UnreadableCards;
            continue;
        }

        // The holder's name is taken from the certificate that
        // LoadSigningCertificate(false) finds; both certificates of a card
        // name the same holder.
        Korvex::slCertificate certificate;
        bool certificateLoaded = false;
        if (m_P11->LoadSigningCertificate(false)) {
            unsigned char buffer[Korvex::acPKCS11::CERT_BUFFER_SIZE];
            unsigned long length = sizeof(buffer);
            if (m_P11->GetSigningCertificate(buffer, length))
                certificateLoaded = certificate.LoadFromBuffer(buffer, length);
        }

        // By the slot, not by the position in this list: positions count
        // every slot with a token, built-in ones included. The slot listing
        // of this refresh has read it already; the card is asked only for a
        // slot that listing did not keep.
        Korvex::TokenInfoStruct2 info;
        wxString typeName;
        if (m_P11->ListedTokenInfo(slots[i]->slotID, info) || m_P11->GetTokenInfoForSlot(slots[i]->slotID, info))
            typeName = TokenTypeDisplayName(info.tokenType);

        std::shared_ptr<ListEntryData> entry = std::make_shared<ListEntryData>();
        entry->slotId = slots[i]->slotID;
        Korvex::TokenState listedState;
        const bool stateListed = m_P11->ListedTokenState(slots[i]->slotID, listedState);
        entry->pins = Korvex::ReadCardPinStates(*m_P11, info, stateListed ? &listedState : nullptr);
        if (certificateLoaded) {
            unsigned short y, mo, d, h, mi, s;
            certificate.ValidFrom(y, mo, d, h, mi, s);
            entry->validFrom = UtcSeconds(y, mo, d, h, mi, s);
            certificate.ValidTo(y, mo, d, h, mi, s);
            entry->validTo = UtcSeconds(y, mo, d, h, mi, s);
            entry->issuer = wxString::FromUTF8(certificate.GetIssuerCN().c_str());
        }
        entry->number = wxString::FromUTF8(slots[i]->serial.c_str());
        entry->holder = certificateLoaded ? wxString::FromUTF8(certificate.GetSubjectCN().c_str())
                                          : wxString::FromUTF8("unbekannt");
        entry->typeName = typeName;
        entry->type = info.tokenType;
        m_List.push_back(entry);

        m_P11->CloseSession();
    }
}
