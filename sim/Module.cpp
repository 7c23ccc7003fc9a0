// Process-wide module state: start and end, readers, sessions, events,
// faults and the control file.
#include "sim/Module.h"

#include <algorithm>

#include "sim/CardStateFile.h"
#include "sim/SimPaths.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>

namespace VessaSim {

namespace {

unsigned long environmentNumber(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::strtoul(value, nullptr, 10) : 0;
}

long millisecondsBetween(const struct timespec& from, const struct timespec& to) {
    return (to.tv_sec - from.tv_sec) * 1000L + (to.tv_nsec - from.tv_nsec) / 1000000L;
}

std::string g_controlPath;  // cached at C_Initialize; guarded by the module mutex

} // namespace

void padCopy(unsigned char* field, size_t size, const std::string& text) {
    std::memset(field, ' ', size);
    std::memcpy(field, text.data(), std::min(size, text.size()));
}

Module& Module::instance() {
    // A static object (not a leaked pointer) so that dlclose releases it.
    static Module module;
    return module;
}

CK_RV Module::initialize(CK_VOID_PTR rawArgs) {
    if (initialized) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    if (rawArgs) {
        auto* args = static_cast<CK_C_INITIALIZE_ARGS*>(rawArgs);
        if (args->pReserved) return CKR_ARGUMENTS_BAD;
        const int callbacks = (args->CreateMutex ? 1 : 0) + (args->DestroyMutex ? 1 : 0) +
                              (args->LockMutex ? 1 : 0) + (args->UnlockMutex ? 1 : 0);
        if (callbacks != 0 && callbacks != 4) return CKR_ARGUMENTS_BAD;
        // With callbacks but without CKF_OS_LOCKING_OK the application wants
        // its own mutexes used; this module only knows the system's.
        if (callbacks == 4 && !(args->flags & CKF_OS_LOCKING_OK)) return CKR_CANT_LOCK;
    }
    std::string error;
    CardSetSpec set;
    if (!loadConfiguredCardSet(set, error)) {
        std::fprintf(stderr, "libVessaP11: %s\n", error.c_str());
        return CKR_GENERAL_ERROR;
    }
    cardSet = std::move(set);
    slots.clear();
    for (size_t i = 0; i < cardSet.readers.size(); ++i) {
        const ReaderSpec& reader = cardSet.readers[i];
        SlotState slot;
        slot.id = i;
        slot.readerName = reader.name;
        slot.removable = reader.removable;
        slot.factoryCard = reader.card;
        if (reader.card) slot.card = std::make_shared<Card>(*reader.card);
        slots.push_back(std::move(slot));
    }

    faults.removeSource(FaultSource::Environment);
    faults.removeSource(FaultSource::ControlFile);
    if (const char* faultText = std::getenv("VESSA_SIM_FAULTS")) {
        std::vector<FaultRule> rules;
        if (parseFaultRules(faultText, rules, error)) {
            for (const auto& rule : rules) faults.add(rule, FaultSource::Environment);
        } else {
            std::fprintf(stderr, "libVessaP11: VESSA_SIM_FAULTS ignored: %s\n", error.c_str());
        }
    }
    latency.set(environmentNumber("VESSA_SIM_LATENCY_MS"), environmentNumber("VESSA_SIM_APDU_LATENCY_MS"));

    g_controlPath = controlFilePath();
    m_controlInode = 0;
    m_controlSize = -1;
    m_controlTime = {0, 0};
    m_appliedSlots.clear();
    m_appliedFaults.clear();
    m_lastResetEpoch = 0;
    m_controlLatency = false;
    struct stat info;
    if (::stat(g_controlPath.c_str(), &info) == 0) {
        m_controlInode = info.st_ino;
        m_controlSize = info.st_size;
        m_controlTime = info.st_mtim;
        applyControl(loadControlFile(g_controlPath), true);
    }
    clock_gettime(CLOCK_MONOTONIC_COARSE, &m_lastPoll);
    pendingEvents.clear();
    initialized = true;
    ++generation;
    return CKR_OK;
}

CK_RV Module::finalize() {
    if (!initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
    sessions.clear();
    slots.clear();
    pendingEvents.clear();
    initialized = false;
    ++generation;
    slotEvent.notify_all();
    return CKR_OK;
}

SlotState* Module::slot(CK_SLOT_ID id) { return id < slots.size() ? &slots[id] : nullptr; }

CK_RV Module::session(CK_SESSION_HANDLE handle, Session*& out) {
    auto it = sessions.find(handle);
    if (it == sessions.end()) return CKR_SESSION_HANDLE_INVALID;
    if (it->second->removed) {
        sessions.erase(it);
        return CKR_DEVICE_REMOVED;
    }
    out = it->second.get();
    return CKR_OK;
}

std::shared_ptr<Session> Module::sharedSession(CK_SESSION_HANDLE handle) {
    auto it = sessions.find(handle);
    return it == sessions.end() ? nullptr : it->second;
}

CK_SESSION_HANDLE Module::openSession(SlotState& slot, CK_FLAGS flags) {
    auto session = std::make_shared<Session>();
    // Handles are never reused, not even across C_Finalize, so a stale
    // handle can never reach another session.
    session->handle = m_nextSession++;
    session->slot = slot.id;
    session->card = slot.card;
    session->flags = flags;
    sessions[session->handle] = session;
    return session->handle;
}

void Module::closeSession(CK_SESSION_HANDLE handle) {
    auto it = sessions.find(handle);
    if (it == sessions.end()) return;
    std::shared_ptr<Card> card = it->second->card;
    sessions.erase(it);
    for (const auto& other : sessions) {
        if (other.second->card == card) return;
    }
    // The login state ends with the application's last session on the token.
    if (card) card->loggedIn = false;
}

size_t Module::sessionCount(CK_SLOT_ID slotId, bool readWriteOnly) const {
    size_t count = 0;
    for (const auto& entry : sessions) {
        const Session& session = *entry.second;
        if (session.slot == slotId && !session.removed && (!readWriteOnly || session.readWrite())) ++count;
    }
    return count;
}

void Module::raiseEvent(CK_SLOT_ID slotId) {
    // A slot whose change has not been collected yet is reported once, as a
    // reader's slot reports "something happened here", not each step.
    if (std::find(pendingEvents.begin(), pendingEvents.end(), slotId) == pendingEvents.end())
        pendingEvents.push_back(slotId);
    slotEvent.notify_all();
}

CK_RV Module::insertCard(CK_SLOT_ID slotId, const CardSpec& description) {
    SlotState* target = slot(slotId);
    if (!target || !target->removable) return CKR_SLOT_ID_INVALID;
    // A card is in one reader at a time.
    for (auto& other : slots) {
        if (other.card && other.card->serial() == description.serial && other.id != slotId) removeCard(other.id);
    }
    if (target->card) removeCard(slotId);
    target->card = std::make_shared<Card>(description);
    raiseEvent(slotId);
    return CKR_OK;
}

CK_RV Module::removeCard(CK_SLOT_ID slotId) {
    SlotState* target = slot(slotId);
    if (!target || !target->removable) return CKR_SLOT_ID_INVALID;
    if (!target->card) return CKR_OK;
    for (auto& entry : sessions) {
        if (entry.second->slot == slotId) entry.second->removed = true;
    }
    target->card.reset();
    raiseEvent(slotId);
    return CKR_OK;
}

Card* Module::cardBySerial(const std::string& serial) {
    for (auto& slotState : slots) {
        if (slotState.card && slotState.card->serial() == serial) return slotState.card.get();
    }
    return nullptr;
}

void Module::resetCards(const std::string& serial) {
    const bool all = serial.empty() || serial == "*";
    for (auto& slotState : slots) {
        if (slotState.card && (all || slotState.card->serial() == serial)) slotState.card->resetToFactory();
    }
    // Cards that are not in a reader keep their saved state on disk only.
    if (!all) {
        removeCardState(serial);
        return;
    }
    const std::string directory = stateDirectory() + "/cards";
    if (DIR* listing = ::opendir(directory.c_str())) {
        while (struct dirent* entry = ::readdir(listing)) {
            if (entry->d_name[0] == '.') continue;
            removeCardState(entry->d_name);
        }
        ::closedir(listing);
    }
}

void Module::restoreFactoryCard(SlotState& slotState) {
    if (!slotState.removable) return;
    if (slotState.factoryCard) {
        if (!slotState.card || slotState.card->serial() != slotState.factoryCard->serial) {
            insertCard(slotState.id, *slotState.factoryCard);
        }
    } else {
        removeCard(slotState.id);
    }
}

void Module::pollControl(bool force) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    if (!force && millisecondsBetween(m_lastPoll, now) < 200) return;
    m_lastPoll = now;
    struct stat info;
    if (::stat(g_controlPath.c_str(), &info) != 0) {
        if (m_controlSize < 0) return;
        m_controlInode = 0;
        m_controlSize = -1;
        applyControl(ControlState(), false);
        return;
    }
    if (info.st_ino == m_controlInode && info.st_size == m_controlSize &&
        info.st_mtim.tv_sec == m_controlTime.tv_sec && info.st_mtim.tv_nsec == m_controlTime.tv_nsec) {
        return;
    }
    m_controlInode = info.st_ino;
    m_controlSize = info.st_size;
    m_controlTime = info.st_mtim;
    applyControl(loadControlFile(g_controlPath), false);
}

void Module::applyControl(const ControlState& state, bool initial) {
    applyControlSlots(state.slots, initial);
    applyControlFaults(state.faults);
    applyControlLatency(state);
    if (initial) {
        m_lastResetEpoch = state.lastResetEpoch();
        return;
    }
    applyControlResets(state.resets);
}

// Inserts and removals new since the last look; a reader the file no longer
// names gets its card-set card back.
void Module::applyControlSlots(const std::map<unsigned long, std::string>& wanted, bool initial) {
    for (const auto& entry : wanted) {
        auto applied = m_appliedSlots.find(entry.first);
        if (!initial && applied != m_appliedSlots.end() && applied->second == entry.second) continue;
        if (entry.second == "remove") {
            removeCard(entry.first);
        } else if (entry.second.compare(0, 7, "insert ") == 0) {
            CardSpec card;
            std::string error;
            if (resolveCard(cardSet, entry.second.substr(7), card, error)) insertCard(entry.first, card);
        }
    }
    for (const auto& applied : m_appliedSlots) {
        if (!wanted.count(applied.first)) {
            if (SlotState* slotState = slot(applied.first)) restoreFactoryCard(*slotState);
        }
    }
    m_appliedSlots = wanted;
}

// Fault entries are added once by their id and dropped when the file loses them.
void Module::applyControlFaults(const std::map<long, std::string>& wanted) {
    for (const auto& entry : wanted) {
        if (m_appliedFaults.count(entry.first)) continue;
        std::vector<FaultRule> rules;
        std::string error;
        if (parseFaultRules(entry.second, rules, error)) {
            for (const auto& rule : rules) faults.add(rule, FaultSource::ControlFile, entry.first);
        }
    }
    for (long id : m_appliedFaults) {
        if (!wanted.count(id)) faults.removeControlId(id);
    }
    m_appliedFaults.clear();
    for (const auto& entry : wanted) m_appliedFaults.insert(entry.first);
}

// The file's latency while it sets one, else the environment's again.
void Module::applyControlLatency(const ControlState& state) {
    if (state.hasLatency) {
        latency.set(state.callLatencyMs, state.apduLatencyMs);
        m_controlLatency = true;
    } else if (m_controlLatency) {
        latency.set(environmentNumber("VESSA_SIM_LATENCY_MS"), environmentNumber("VESSA_SIM_APDU_LATENCY_MS"));
        m_controlLatency = false;
    }
}

// Card resets newer than the last one applied, for the cards in a reader.
void Module::applyControlResets(const std::map<long, std::string>& resets) {
    for (const auto& reset : resets) {
        if (reset.first <= m_lastResetEpoch) continue;
        for (auto& slotState : slots) {
            if (slotState.card && (reset.second == "*" || slotState.card->serial() == reset.second)) {
                // The tool deleted the saved state already; deleting it here
                // again could throw away what another process has written
                // since, so the card only takes over what is on disk now.
                slotState.card->dropSecurityState();
                slotState.card->refreshFromDisk();
            }
        }
        m_lastResetEpoch = reset.first;
    }
}

bool Module::fault(const char* function, const Card* card, CK_SLOT_ID slotId, CK_RV& rv) {
    if (faults.empty()) return false;
    return faults.takeFailure(function, card ? card->serial().c_str() : nullptr, slotId, rv);
}

bool Module::fixedAnswer(const char* function, const Card* card, CK_SLOT_ID slotId, Bytes& answer) {
    if (faults.empty()) return false;
    return faults.takeAnswer(function, card ? card->serial().c_str() : nullptr, slotId, answer);
}

bool Module::malformed(const char* function, const Card* card, CK_SLOT_ID slotId) {
    if (faults.empty()) return false;
    return faults.takeMalformed(function, card ? card->serial().c_str() : nullptr, slotId);
}

bool Module::ensureObjects(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Card>& card) {
    if (!card->needsKeys()) return true;
    lock.unlock();
    std::string error;
    const bool loaded = card->loadKeys(error);
    lock.lock();
    if (!loaded) {
        std::fprintf(stderr, "libVessaP11: %s\n", error.c_str());
        return false;
    }
    card->installObjects();
    return true;
}

Call::Call(const char* name, bool reachesCard, unsigned apdus) : module(Module::instance()), function(name) {
    if (reachesCard) module.latency.beforeCardCall();
    if (apdus) module.latency.perApdu(apdus);
    lock = std::unique_lock<std::mutex>(module.mutex);
}

CK_RV Call::initialized() const { return module.initialized ? CKR_OK : CKR_CRYPTOKI_NOT_INITIALIZED; }

CK_RV Call::begin() {
    if (!module.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
    module.pollControl(false);
    CK_RV rv;
    if (module.fault(function, nullptr, 0, rv)) return rv;
    return CKR_OK;
}

CK_RV Call::beginSession(CK_SESSION_HANDLE handle, Session*& out) {
    if (!module.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
    module.pollControl(false);
    CK_RV rv = module.session(handle, out);
    if (rv != CKR_OK) return rv;
    if (module.fault(function, out->card.get(), out->slot, rv)) return rv;
    // Another process may have changed the card since the last call.
    out->card->refreshFromDisk();
    return CKR_OK;
}

CK_RV Call::beginSlot(CK_SLOT_ID id, SlotState*& out, bool needToken) {
    if (!module.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
    out = module.slot(id);
    if (!out) return CKR_SLOT_ID_INVALID;
    if (needToken && !out->card) return CKR_TOKEN_NOT_PRESENT;
    CK_RV rv;
    if (!module.faults.empty()) {
        const char* serial = out->card ? out->card->serial().c_str() : "";
        if (module.faults.takeFailure(function, serial, id, rv)) return rv;
    }
    return CKR_OK;
}

} // namespace VessaSim
