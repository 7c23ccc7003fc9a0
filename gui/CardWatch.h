// Notices cards coming and going between refreshes: non-blocking slot events
// where the module has them, otherwise a comparison of the slots with a
// token. Runs on the GUI thread while no refresh or command uses the module.
#pragma once

#include <p11-kit/pkcs11.h>

#include <vector>

namespace Korvex {
class acPKCS11;
}

class CardWatch {
public:
    // True when some reader changed since the last look. Collects every
    // pending event, so many events make one refresh.
    bool Changed(Korvex::acPKCS11& token);
    bool UsesEvents() const { return m_UseEvents; }

private:
    bool SlotListChanged(Korvex::acPKCS11& token);

    bool m_UseEvents = true;
    bool m_Known = false;
    std::vector<CK_SLOT_ID> m_Present;
};
