// Session on a command's card; see CardSession.h.
#include "gui/CardSession.h"

#include "app/VessaCardsLogger.h"
#include "token/acPKCS11.h"

#include <vector>

CardSession OpenCardSession(Korvex::acPKCS11& p11, CK_SLOT_ID slot, bool slotKnown, const std::string& number,
                            bool readWrite)
{
    bool sameCard = false;
    if (slotKnown && p11.OpenSessionOnCard(slot, number, readWrite, sameCard))
        return CardSession::OPEN;
    if (sameCard) {
        AppLog()->LogError("Error open pkcs#11 session");
        return CardSession::SESSION_FAILED;
    }
    std::vector<Korvex::SlotStruct*> slots;
    const bool listed = p11.GetSlots(slots, true);
    for (size_t i = 0; listed && i < slots.size(); ++i) {
        if (slots[i]->serial != number)
            continue;
        if (p11.OpenSession(static_cast<int32_t>(i), readWrite))
            return CardSession::OPEN;
        AppLog()->LogError("Error open pkcs#11 session");
        return CardSession::SESSION_FAILED;
    }
    AppLog()->LogError("cannot load card list");
    return listed ? CardSession::CARD_GONE : CardSession::LIST_UNREADABLE;
}
