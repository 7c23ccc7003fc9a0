// A simulated card: PINs, objects, data files and their persistence.
#include "sim/Card.h"

#include "formats/InfoboxFS.h"
#include "sim/CardObjects.h"
#include "sim/SimPaths.h"

#include <algorithm>
#include <cstdio>
#include <atomic>
#include <sstream>

namespace VessaSim {

namespace {

// Empty card files read as zeros, as a freshly formatted card answers.
const Bytes kEmptyFile(256, 0);
constexpr size_t kInfoboxFileSize = 1024;

} // namespace

CK_OBJECT_HANDLE nextObjectHandle() {
    static std::atomic<CK_OBJECT_HANDLE> next{0x1000};
    return next++;
}

Card::Card(const CardSpec& description) : m_spec(description), m_stateFile(description.serial) { loadState(); }

std::vector<unsigned char> Card::atr() const { return hexToBytes(profile().atrHex); }

void Card::factoryPins() {
    for (int i = 0; i < PinCount; ++i) {
        PinState& pin = m_pins[i];
        pin.value = m_spec.pins[i];
        pin.length = pinLength(static_cast<PinIndex>(i));
        pin.tries = pin.maxTries = m_spec.pinTries;
        pin.hasPuk = profile().hasPuk;
        pin.puk = m_spec.puks[i];
        pin.pukTries = pin.maxPukTries = m_spec.pukTries;
    }
    if (m_spec.signatureTriesLeft > 0) m_pins[PinSignature].tries = m_spec.signatureTriesLeft;
}

void Card::loadState() {
    factoryPins();
    m_savedData.clear();
    std::string text;
    // A damaged state file counts as factory state; it is kept aside at the
    // next save instead of being written over.
    m_stateDamaged = m_stateFile.read(text) && !readCardState(text, m_pins, m_savedData);
    if (m_stateDamaged) {
        std::fprintf(stderr, "libVessaP11: card state file %s is damaged; the card starts from its factory state\n",
                     m_stateFile.path().c_str());
        factoryPins();
        m_savedData.clear();
    }
}

bool Card::saveState() {
    if (m_stateDamaged && !m_stateFile.setAside()) return false;
    m_stateDamaged = false;
    return m_stateFile.write(writeCardState(m_spec.serial, m_pins, m_savedData));
}

void Card::refreshFromDisk() {
    if (!m_stateFile.changedOnDisk()) return;
    loadState();
    if (m_objectsReady) syncDataObjects();
}

void Card::updateState(const std::function<bool()>& change) {
    CardStateFile::Lock lock(m_stateFile);
    refreshFromDisk();
    if (change()) saveState();
}

void Card::resetToFactory() {
    {
        CardStateFile::Lock lock(m_stateFile);
        m_stateFile.remove();
    }
    factoryPins();
    m_savedData.clear();
    dropSecurityState();
    if (m_objectsReady) syncDataObjects();
}

void Card::dropSecurityState() {
    loggedIn = false;
    elementaryFileSelected = false;
    selectedFile = 0x3F00;
}

bool Card::loadKeys(std::string& error) {
    std::lock_guard<std::mutex> guard(m_keyMutex);
    if (m_keys) return true;
    auto keys = std::make_shared<CardKeys>();
    if (!loadOrCreateCardKeys(m_spec, *keys, error)) return false;
    m_keys = keys;
    return true;
}

SimObject& Card::addObject(SimObject object) {
    object.handle = nextObjectHandle();
    m_objects.push_back(std::make_unique<SimObject>(std::move(object)));
    return *m_objects.back();
}

void Card::installObjects() {
    if (m_objectsReady || !m_spec.personalised) return;
    std::shared_ptr<CardKeys> keys;
    {
        std::lock_guard<std::mutex> guard(m_keyMutex);
        keys = m_keys;
    }
    if (!keys) return;
    for (auto& object : buildKeyObjects(*keys)) addObject(std::move(object));
    m_factoryIdentityLink =
        m_spec.identityLink
            ? buildIdentityLink(m_spec, [&](const Bytes& data) { return keptCaSignature(m_spec.serial, *keys, data); })
            : Bytes();
    syncDataObjects();
    m_objectsReady = true;
}

std::vector<SimObject> Card::wantedDataObjects() const {
    std::vector<SimObject> objects;
    const Bytes& link = m_factoryIdentityLink.empty() ? kEmptyFile : m_factoryIdentityLink;
    if (profile().infoboxFile) {
        for (const auto& entry : factoryInfobox(m_spec, m_factoryIdentityLink)) {
            objects.push_back(makeInfoboxEntryObject(entry.tag, entry.type, entry.content));
        }
        objects.push_back(makeDataObject("PERSONENBINDUNG", ObjectRole::IdentityLinkAlias, link, false));
        objects.push_back(makeDataObject("INFOBOX", ObjectRole::InfoboxFile, Bytes(), false));
    } else {
        objects.push_back(makeDataObject("PERSONENBINDUNG", ObjectRole::DataFile, link, false));
        objects.push_back(makeDataObject("RFU1", ObjectRole::DataFile, kEmptyFile, false));
        objects.push_back(makeDataObject("RFU2", ObjectRole::DataFile, kEmptyFile, false));
    }
    for (const auto& saved : m_savedData) {
        auto found = std::find_if(objects.begin(), objects.end(),
                                  [&](const SimObject& object) { return object.label() == saved.first; });
        SimObject* object = found == objects.end() ? nullptr : &*found;
        if (!object && profile().infoboxFile && saved.first.size() == 4 && saved.first.compare(0, 2, "0x") == 0) {
            Bytes tag = hexToBytes(saved.first.substr(2));
            if (tag.size() == 1 && tag[0] != 0) {
                objects.push_back(makeInfoboxEntryObject(tag[0], saved.second.type, Bytes()));
                object = &objects.back();
            }
        }
        if (!object || (object->role != ObjectRole::DataFile && object->role != ObjectRole::InfoboxEntry)) continue;
        object->setBytes(CKA_VALUE, saved.second.value);
        object->setBool(CKA_PRIVATE, saved.second.isPrivate);
        if (object->role == ObjectRole::InfoboxEntry) object->infoboxType = saved.second.type;
    }
    return objects;
}

void Card::syncDataObjects() {
    std::vector<SimObject> wanted = wantedDataObjects();
    std::set<std::string> labels;
    for (auto& object : wanted) {
        labels.insert(object.label());
        SimObject* existing = objectByLabel(object.label());
        if (existing && existing->isDataObject() && existing->role == object.role) {
            // Changed in place: sessions may hold the handle or be in the
            // middle of a search that returned it.
            object.handle = existing->handle;
            *existing = std::move(object);
        } else {
            addObject(std::move(object));
        }
    }
    // Entries added by a write that the saved state no longer has (another
    // process reset the card) are gone, as on the card.
    m_objects.erase(std::remove_if(m_objects.begin(), m_objects.end(),
                                   [&](const std::unique_ptr<SimObject>& object) {
                                       return object->isDataObject() && !labels.count(object->label());
                                   }),
                    m_objects.end());
    rebuildInfobox();
}

SimObject* Card::infoboxEntry(unsigned char tag) {
    for (auto& object : m_objects) {
        if (object->role == ObjectRole::InfoboxEntry && object->infoboxTag == tag) return object.get();
    }
    return nullptr;
}

void Card::rebuildInfobox() {
    if (!profile().infoboxFile) return;
    std::vector<const SimObject*> entries;
    for (const auto& object : m_objects) {
        if (object->role == ObjectRole::InfoboxEntry) entries.push_back(object.get());
    }
    std::sort(entries.begin(), entries.end(),
              [](const SimObject* a, const SimObject* b) { return a->infoboxTag < b->infoboxTag; });
    LibInfobox::InfoboxFS file;
    for (const SimObject* entry : entries) {
        // Protected entries keep their content only in their own object.
        const Bytes* value = entry->find(CKA_VALUE);
        Korvex::ByteArray data;
        if (!entry->isPrivate() && value) data = Korvex::ByteArray(*value);
        file.AddEntry(entry->infoboxTag, entry->infoboxType, data);
    }
    Korvex::ByteArray bytes;
    file.GetCompleteFile(bytes);
    // The card file has a fixed size; the zeros behind the last entry also
    // let a reader see an empty last entry (it wants a byte after a header).
    std::vector<unsigned char> content = bytes.ToVector();
    const size_t fileSize = std::max<size_t>(kInfoboxFileSize, (content.size() + 1 + 255) / 256 * 256);
    content.resize(fileSize, 0);
    if (SimObject* infobox = objectByLabel("INFOBOX")) infobox->setBytes(CKA_VALUE, content);
    if (SimObject* alias = objectByLabel("PERSONENBINDUNG")) {
        if (alias->role == ObjectRole::IdentityLinkAlias) {
            const SimObject* first = infoboxEntry(1);
            const Bytes* value = first ? first->find(CKA_VALUE) : nullptr;
            alias->setBytes(CKA_VALUE, value ? *value : kEmptyFile);
            alias->setBool(CKA_PRIVATE, first && first->isPrivate());
        }
    }
}

SimObject* Card::object(CK_OBJECT_HANDLE handle) {
    for (auto& object : m_objects) {
        if (object->handle == handle) return object.get();
    }
    return nullptr;
}

SimObject* Card::objectByLabel(const std::string& label) {
    for (auto& object : m_objects) {
        if (object->label() == label) return object.get();
    }
    return nullptr;
}

CK_RV Card::writeDataObject(CK_OBJECT_HANDLE handle, const Bytes* value, const bool* makePrivate) {
    if (value && value->size() > kMaxDataObjectSize) return CKR_ATTRIBUTE_VALUE_INVALID;
    CK_RV rv = CKR_OK;
    updateState([&] {
        SimObject* object = this->object(handle);
        if (!object) {
            rv = CKR_OBJECT_HANDLE_INVALID;
            return false;
        }
        if (object->role == ObjectRole::InfoboxFile || !object->isDataObject()) {
            rv = CKR_ATTRIBUTE_READ_ONLY;
            return false;
        }
        if (object->role == ObjectRole::IdentityLinkAlias) {
            // The identity link of an infobox card is its entry 1.
            SimObject* entry = infoboxEntry(1);
            object = entry ? entry : &addObject(makeInfoboxEntryObject(1, 0x00, kEmptyFile));
        }
        if (value) object->setBytes(CKA_VALUE, *value);
        if (makePrivate) {
            object->setBool(CKA_PRIVATE, *makePrivate);
            if (object->role == ObjectRole::InfoboxEntry) {
                object->infoboxType =
                    static_cast<unsigned char>((object->infoboxType & ~1u) | (*makePrivate ? 1u : 0u));
            }
        }
        SavedDataObject saved;
        const Bytes* stored = object->find(CKA_VALUE);
        saved.value = stored ? *stored : Bytes();
        saved.isPrivate = object->isPrivate();
        saved.type = object->infoboxType;
        m_savedData[object->label()] = saved;
        rebuildInfobox();
        return true;
    });
    return rv;
}

} // namespace VessaSim
