// Session on a command's card; see CardSession.h.
#include "gui/CardSession.h"

#include "app/VessaCardsLogger.h"
#include "token/acPKCS11.h"

#include <algorithm>
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
    if (!listed)
        return CardSession::LIST_UNREADABLE;
    // Gone only when its reader holds no card any more or holds another one:
    // a reader whose card did not answer is not in the list either.
    bool readerListed = false;
    for (const Korvex::SlotStruct* listedSlot : slots)
        readerListed = readerListed || listedSlot->slotID == slot;
    std::vector<CK_SLOT_ID> present;
    if (slotKnown && !readerListed &&
        (!p11.GetPresentSlotIds(present) || std::find(present.begin(), present.end(), slot) != present.end()))
        return CardSession::SESSION_FAILED;
    return CardSession::CARD_GONE;
}
