// Card enumeration on the worker thread.
#include "gui/RefreshCardThread.h"

#include "app/VessaCardsLogger.h"
#include "crypto/slCertificate.h"
#include "token/LoadFreeLib.h"
#include "token/TokenProfile.h"
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

// Validity and issuer of a certificate into its row.
void TakeValidity(const Korvex::slCertificate& certificate, CardRow& entry)
{
    unsigned short y, mo, d, h, mi, s;
    certificate.ValidFrom(y, mo, d, h, mi, s);
    entry.validFrom = UtcSeconds(y, mo, d, h, mi, s);
    certificate.ValidTo(y, mo, d, h, mi, s);
    entry.validTo = UtcSeconds(y, mo, d, h, mi, s);
    entry.issuer = wxString::FromUTF8(certificate.GetIssuerCN().c_str());
}

wxString Trimmed(const std::string& text)
{
    const size_t end = text.find_last_not_of(' ');
    return wxString::FromUTF8(end == std::string::npos ? "" : text.substr(0, end + 1).c_str());
}

} // namespace

wxString TokenTypeDisplayName(int type)
{
    const Korvex::CardGeneration* generation = Korvex::FindGeneration(type);
    return generation != nullptr ? wxString::FromUTF8(generation->displayName) : wxString();
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
        // An empty list says whether a reader or only the card is missing.
        size_t readers = 0;
        if (m_List.empty() && m_P11->CountReaders(readers))
            m_ReaderCount = static_cast<int>(readers);
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

        // By the slot, not by the position in this list: positions count
        // every slot with a token, built-in ones included. The slot listing
        // of this refresh has read it already; the card is asked only for a
        // slot that listing did not keep.
        Korvex::TokenInfoStruct2 info;
        CK_TOKEN_INFO raw{};
        const bool infoRead = m_P11->ListedTokenInfo(slots[i]->slotID, info, raw) ||
                              m_P11->GetTokenInfoForSlot(slots[i]->slotID, info, raw);
        Korvex::TokenProfile profile = Korvex::ProfileOf(info.tokenType, Korvex::acPKCS11::HasCardAttribute(), raw);
        // A card of the vendor's module whose token information could not be
        // read keeps the row it always had (no type, nothing restricted).
        if (!infoRead)
            profile.vendor = Korvex::acPKCS11::HasCardAttribute();
        if (infoRead && !profile.vendor) {
            ReadStandardToken(*slots[i], info, raw, profile);
            m_P11->CloseSession();
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

        const wxString typeName = infoRead ? TokenTypeDisplayName(info.tokenType) : wxString();

        std::shared_ptr<CardRow> entry = std::make_shared<CardRow>();
        entry->slotId = slots[i]->slotID;
        const Korvex::TokenState state{raw.flags};
        entry->pins = Korvex::ReadCardPinStates(*m_P11, info, infoRead ? &state : nullptr);
        if (certificateLoaded)
            TakeValidity(certificate, *entry);
        entry->number = wxString::FromUTF8(slots[i]->serial.c_str());
        entry->holder = certificateLoaded ? wxString::FromUTF8(certificate.GetSubjectCN().c_str())
                                          : wxString::FromUTF8("unbekannt");
        entry->typeName = typeName;
        entry->type = info.tokenType;
        entry->profile = profile;
        entry->module = SlotMaker(slots[i]->slotID);
        m_List.push_back(entry);

        m_P11->CloseSession();
    }
}

void RefreshCardThread::ReadStandardToken(const Korvex::SlotStruct& slot, const Korvex::TokenInfoStruct2& info,
                                          const CK_TOKEN_INFO& raw, const Korvex::TokenProfile& profile)
{
    std::shared_ptr<CardRow> entry = std::make_shared<CardRow>();
    entry->slotId = slot.slotID;
    entry->number = wxString::FromUTF8(slot.serial.c_str());
    // The vendor's cards keep their type name behind a module without the
    // vendor's extensions (p11-kit's proxy).
    entry->typeName = Korvex::FindGeneration(info.tokenType) != nullptr
                          ? TokenTypeDisplayName(info.tokenType)
                          : wxString::FromUTF8(Korvex::GenericTypeName(raw).c_str());
    entry->type = Korvex::TOKEN_UNKNOWN;
    entry->profile = profile;
    const Korvex::TokenState state{raw.flags};
    entry->pins = Korvex::ReadCardPinStates(*m_P11, info, &state);
    entry->holder = Trimmed(slot.label);
    // The holder is the subject of the certificate a private key belongs to.
    std::vector<Korvex::TokenObject> certificates;
    m_P11->ListTokenCertificates(certificates);
    for (const Korvex::TokenObject& object : certificates)
        entry->certificates.push_back(wxString::FromUTF8(object.label.c_str()));
    for (const Korvex::TokenObject& object : certificates) {
        Korvex::slCertificate certificate;
        if (!object.hasPrivateKey || !certificate.LoadFromBuffer(object.value.data(), object.value.size()))
            continue;
        std::string cn = certificate.GetSubjectCN();
        if (cn.compare(0, 3, "CN=") == 0)
            cn.erase(0, 3);
        if (!cn.empty())
            entry->holder = wxString::FromUTF8(cn.c_str());
        TakeValidity(certificate, *entry);
        break;
    }
    entry->module = SlotMaker(slot.slotID);
    m_List.push_back(entry);
}

wxString RefreshCardThread::SlotMaker(CK_SLOT_ID slot)
{
    // Only a named module can be p11-kit's proxy with rows of several makers.
    CK_SLOT_INFO info{};
    if (!Korvex::IsNamedModule() || !m_P11->GetStandardSlotInfo(slot, info))
        return wxString();
    return Trimmed(std::string(reinterpret_cast<const char*>(info.manufacturerID), sizeof(info.manufacturerID)));
}
