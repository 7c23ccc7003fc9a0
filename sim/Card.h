// One simulated card: its personalisation, PINs, objects and the state it
// keeps across restarts. A Card lives while it sits in a reader; pulling it
// out and putting it back makes a fresh Card that reloads the saved state.
// Other processes may load the same card (a companion program writes the
// identity link while the card manager runs), so the saved state is the
// card's truth: it is reloaded when it changed on disk, and every change is
// made on the freshest state under the card's lock file.
// All members are used under the module mutex, except the key loading that
// ensureKeys() does under the card's own mutex.
#pragma once

#include "sim/CardData.h"
#include "sim/CardSet.h"
#include "sim/CardStateFile.h"
#include "sim/CardStateText.h"
#include "sim/KeyFactory.h"
#include "sim/PinState.h"
#include "sim/SimObject.h"

#include <p11-kit/pkcs11.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace VessaSim {

class Card {
public:
    explicit Card(const CardSpec& description);

    const CardSpec& description() const { return m_spec; }
    const GenerationProfile& profile() const { return m_spec.profile(); }
    const std::string& serial() const { return m_spec.serial; }
    std::vector<unsigned char> atr() const;

    PinState& pin(PinIndex index) { return m_pins[index]; }

    // Token login (CKU_USER, the identity-link PIN); dropped when the last
    // session closes, on logout and on a card reset.
    bool loggedIn = false;

    // File selection of the APDU interface.
    unsigned short selectedFile = 0x3F00;
    bool elementaryFileSelected = false;

    // Keys and certificates are loaded (or made) on first need, without the
    // module mutex; installObjects() then runs under it.
    bool needsKeys() const { return m_spec.personalised && !m_objectsReady; }
    bool loadKeys(std::string& error);
    bool objectsReady() const { return m_objectsReady || !m_spec.personalised; }
    void installObjects();

    // Owned one by one, so pointers to objects survive additions.
    std::vector<std::unique_ptr<SimObject>>& objects() { return m_objects; }
    SimObject* object(CK_OBJECT_HANDLE handle);
    SimObject* objectByLabel(const std::string& label);

    // Writes value and/or protection of a data object and keeps INFOBOX and
    // the PERSONENBINDUNG alias in step; saves the state. The object may
    // have vanished meanwhile (CKR_OBJECT_HANDLE_INVALID).
    CK_RV writeDataObject(CK_OBJECT_HANDLE handle, const Bytes* value, const bool* makePrivate);

    // Takes over what another process saved since this one last read or
    // wrote the card's state; one stat when nothing changed. Objects keep
    // their handles; data objects the saved state no longer has go away.
    void refreshFromDisk();
    // Runs `change` on the freshest state, holding the card's lock file, and
    // saves (atomically) if it says it changed something.
    void updateState(const std::function<bool()>& change);
    // Factory PINs and data; deletes the saved state.
    void resetToFactory();
    // What a reset ends in this process only: login and file selection.
    void dropSecurityState();

private:
    void factoryPins();
    void loadState();
    bool saveState();
    // Factory data objects with the written ones applied.
    std::vector<SimObject> wantedDataObjects() const;
    void syncDataObjects();
    void rebuildInfobox();
    SimObject& addObject(SimObject object);
    SimObject* infoboxEntry(unsigned char tag);

    CardSpec m_spec;
    CardStateFile m_stateFile;
    PinState m_pins[PinCount];
    std::mutex m_keyMutex;
    std::shared_ptr<CardKeys> m_keys;
    Bytes m_factoryIdentityLink;
    bool m_objectsReady = false;
    bool m_stateDamaged = false;
    std::vector<std::unique_ptr<SimObject>> m_objects;
    SavedDataObjects m_savedData;  // by label; written objects only
};

// Object handles are unique in the process, so a stale handle never names an
// object of another card.
CK_OBJECT_HANDLE nextObjectHandle();

} // namespace VessaSim
