// The module's process-wide state: initialisation, readers and their cards,
// sessions, slot events, injected faults, and the watch on the control file.
// One mutex guards it all; it is never held while a PIN dialogue runs or a
// key is generated, so other threads and sessions go on meanwhile.
#pragma once

#include "sim/Card.h"
#include "sim/CardSet.h"
#include "sim/ControlFile.h"
#include "sim/Faults.h"
#include "sim/Session.h"

#include <p11-kit/pkcs11.h>

#include <condition_variable>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

namespace VessaSim {

struct SlotState {
    CK_SLOT_ID id = 0;
    std::string readerName;
    bool removable = true;
    std::shared_ptr<CardSpec> factoryCard;  // what the card set puts here
    std::shared_ptr<Card> card;             // null: no card
};

class Module {
public:
    static Module& instance();

    std::mutex mutex;
    std::condition_variable slotEvent;

    // --- everything below is guarded by `mutex`
    bool initialized = false;
    unsigned long generation = 0;  // changes on every C_Initialize / C_Finalize
    CardSetSpec cardSet;
    std::vector<SlotState> slots;
    std::unordered_map<CK_SESSION_HANDLE, std::shared_ptr<Session>> sessions;
    std::deque<CK_SLOT_ID> pendingEvents;
    FaultTable faults;
    // --- read without the mutex
    Latency latency;

    CK_RV initialize(CK_VOID_PTR args);
    CK_RV finalize();

    SlotState* slot(CK_SLOT_ID id);
    // Looks a session up; a session whose card was pulled out answers
    // CKR_DEVICE_REMOVED once and is gone afterwards.
    CK_RV session(CK_SESSION_HANDLE handle, Session*& out);
    std::shared_ptr<Session> sharedSession(CK_SESSION_HANDLE handle);
    CK_SESSION_HANDLE openSession(SlotState& slot, CK_FLAGS flags);
    void closeSession(CK_SESSION_HANDLE handle);
    size_t sessionCount(CK_SLOT_ID slot, bool readWriteOnly) const;

    CK_RV insertCard(CK_SLOT_ID slot, const CardSpec& card);
    CK_RV removeCard(CK_SLOT_ID slot);
    // Factory state for one serial, or every card for "*" or "".
    void resetCards(const std::string& serial);
    Card* cardBySerial(const std::string& serial);

    // Reads the control file if it changed; without `force` at most every
    // 200 ms, so that ordinary calls stay cheap.
    void pollControl(bool force);

    // Faults for a call; serial null for calls that concern no card.
    bool fault(const char* function, const Card* card, CK_SLOT_ID slot, CK_RV& rv);
    bool malformed(const char* function, const Card* card, CK_SLOT_ID slot);
    // A fixed answer a test gave a vendor call ("answer:HEX").
    bool fixedAnswer(const char* function, const Card* card, CK_SLOT_ID slot, Bytes& answer);

    // Makes sure the card's objects exist; may release `lock` while keys are
    // loaded or generated. False (with the lock held again) on failure.
    bool ensureObjects(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Card>& card);

private:
    Module() = default;
    void applyControl(const ControlState& state, bool initial);
    void applyControlSlots(const std::map<unsigned long, std::string>& wanted, bool initial);
    void applyControlFaults(const std::map<long, std::string>& wanted);
    void applyControlLatency(const ControlState& state);
    void applyControlResets(const std::map<long, std::string>& resets);
    void restoreFactoryCard(SlotState& slot);
    void raiseEvent(CK_SLOT_ID slot);

    CK_SESSION_HANDLE m_nextSession = 1;
    // Control file watch.
    struct timespec m_lastPoll = {0, 0};
    ino_t m_controlInode = 0;
    off_t m_controlSize = -1;
    struct timespec m_controlTime = {0, 0};
    std::map<unsigned long, std::string> m_appliedSlots;
    std::set<long> m_appliedFaults;
    long m_lastResetEpoch = 0;
    bool m_controlLatency = false;
};

// Prologue shared by the entry points: latency for calls that reach a card
// (and for the APDUs the call costs the chip), then the module lock.
class Call {
public:
    Call(const char* function, bool reachesCard, unsigned apdus = 0);

    Module& module;
    const char* function;
    std::unique_lock<std::mutex> lock;

    CK_RV initialized() const;
    // Initialised, no fault for calls without a card.
    CK_RV begin();
    // Initialised, the session is valid, no fault for its card.
    CK_RV beginSession(CK_SESSION_HANDLE handle, Session*& out);
    // Initialised, the slot exists (and holds a card when asked), no fault.
    CK_RV beginSlot(CK_SLOT_ID id, SlotState*& out, bool needToken);
};

// Blank-padded copy into a fixed-size PKCS#11 text field.
void padCopy(unsigned char* field, size_t size, const std::string& text);

} // namespace VessaSim
