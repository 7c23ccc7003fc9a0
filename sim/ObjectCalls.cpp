// Object search and attribute access, including the vendor attributes that
// run PIN dialogues and the writes of the card's data objects.
#include "sim/Calls.h"
#include "sim/Module.h"
#include "sim/PinFlow.h"

#include <cstring>

namespace VessaSim {

namespace {

constexpr CK_ULONG kMalformedExcess = 7;

bool badTemplate(CK_ATTRIBUTE_PTR pattern, CK_ULONG count) {
    if (!pattern && count > 0) return true;
    for (CK_ULONG i = 0; i < count; ++i) {
        if (!pattern[i].pValue && pattern[i].ulValueLen > 0) return true;
    }
    return false;
}

// Reading the content of a protected data object needs the identity-link PIN.
bool readNeedsPin(const SimObject& object, const Card& card, CK_ATTRIBUTE_PTR pattern, CK_ULONG count) {
    if (!object.isDataObject() || !object.isPrivate() || card.loggedIn) return false;
    for (CK_ULONG i = 0; i < count; ++i) {
        if (pattern[i].type == CKA_VALUE && pattern[i].pValue) return true;
    }
    return false;
}

// Logs the token in on the protected path; the session is looked up again.
CK_RV loginForData(Call& call, CK_SESSION_HANDLE handle, Session*& session) {
    CK_RV rv = authenticate(call, handle, PinIdentityLink, nullptr);
    if (rv != CKR_OK) return rv;
    rv = call.module.session(handle, session);
    if (rv != CKR_OK) return rv;
    session->card->loggedIn = true;
    return CKR_OK;
}

} // namespace

CK_RV findObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE_PTR pattern, CK_ULONG count) {
    Call call("C_FindObjectsInit", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (badTemplate(pattern, count)) return CKR_ARGUMENTS_BAD;
    if (session->find.active) return CKR_OPERATION_ACTIVE;
    session->find.results.clear();
    session->find.next = 0;
    for (const auto& object : session->card->objects()) {
        if (object->matches(pattern, count)) session->find.results.push_back(object->handle);
    }
    session->find.active = true;
    return CKR_OK;
}

CK_RV findObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE_PTR objects, CK_ULONG maxCount, CK_ULONG_PTR count) {
    Call call("C_FindObjects", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if ((!objects && maxCount > 0) || !count) return CKR_ARGUMENTS_BAD;
    FindOperation& find = session->find;
    if (!find.active) return CKR_OPERATION_NOT_INITIALIZED;
    CK_ULONG delivered = 0;
    while (delivered < maxCount && find.next < find.results.size()) objects[delivered++] = find.results[find.next++];
    *count = delivered;
    if (maxCount > 0 && call.module.malformed(call.function, session->card.get(), session->slot)) {
        *count = maxCount + kMalformedExcess;
    }
    return CKR_OK;
}

CK_RV findObjectsFinal(CK_SESSION_HANDLE handle) {
    Call call("C_FindObjectsFinal", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!session->find.active) return CKR_OPERATION_NOT_INITIALIZED;
    session->find = FindOperation();
    return CKR_OK;
}

CK_RV getAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE objectHandle, CK_ATTRIBUTE_PTR pattern,
                        CK_ULONG count) {
    Call call("C_GetAttributeValue", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!pattern && count > 0) return CKR_ARGUMENTS_BAD;
    SimObject* object = session->card->object(objectHandle);
    if (!object) return CKR_OBJECT_HANDLE_INVALID;
    if (readNeedsPin(*object, *session->card, pattern, count)) {
        rv = loginForData(call, handle, session);
        if (rv != CKR_OK) return rv;
        object = session->card->object(objectHandle);
        if (!object) return CKR_OBJECT_HANDLE_INVALID;
    }
    const bool malformed = call.module.malformed(call.function, session->card.get(), session->slot);
    rv = CKR_OK;
    for (CK_ULONG i = 0; i < count; ++i) {
        CK_ATTRIBUTE& attribute = pattern[i];
        const std::vector<unsigned char>* value = object->find(attribute.type);
        if (object->sensitive.count(attribute.type)) {
            attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
            rv = CKR_ATTRIBUTE_SENSITIVE;
        } else if (!value) {
            attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
            rv = CKR_ATTRIBUTE_TYPE_INVALID;
        } else if (!attribute.pValue) {
            attribute.ulValueLen = value->size();
        } else if (attribute.ulValueLen >= value->size()) {
            if (!value->empty()) std::memcpy(attribute.pValue, value->data(), value->size());
            attribute.ulValueLen = malformed ? attribute.ulValueLen + 16 : value->size();
        } else {
            attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
            rv = CKR_BUFFER_TOO_SMALL;
        }
    }
    return rv;
}

namespace {

// What a C_SetAttributeValue template asks for: a PIN command on the
// object, or a new value and private flag of a data object.
struct AttributeWrite {
    CK_ATTRIBUTE_TYPE pinCommand = 0;
    bool hasValue = false;
    std::vector<unsigned char> value;
    bool hasPrivate = false;
    bool makePrivate = false;
};

CK_RV readWriteTemplate(const SimObject& object, CK_ATTRIBUTE_PTR pattern, CK_ULONG count,
                        AttributeWrite& write) {
    for (CK_ULONG i = 0; i < count; ++i) {
        const CK_ATTRIBUTE& attribute = pattern[i];
        switch (attribute.type) {
        case kAttrChangePin:
        case kAttrUnblockPin:
            if (write.pinCommand && write.pinCommand != attribute.type) return CKR_TEMPLATE_INCONSISTENT;
            write.pinCommand = attribute.type;
            break;
        case kAttrForceSoftwarePin:
            break;  // only a marker: the dialogue is always the module's own
        case CKA_VALUE:
            write.value.assign(static_cast<unsigned char*>(attribute.pValue),
                               static_cast<unsigned char*>(attribute.pValue) + attribute.ulValueLen);
            write.hasValue = true;
            break;
        case CKA_PRIVATE:
            if (attribute.ulValueLen != sizeof(CK_BBOOL)) return CKR_ATTRIBUTE_VALUE_INVALID;
            write.hasPrivate = true;
            write.makePrivate = *static_cast<CK_BBOOL*>(attribute.pValue) != CK_FALSE;
            break;
        default:
            return object.find(attribute.type) ? CKR_ATTRIBUTE_READ_ONLY : CKR_ATTRIBUTE_TYPE_INVALID;
        }
    }
    return CKR_OK;
}

// A PIN change or unblock asked for through the object's vendor attribute.
CK_RV runPinCommandOn(Call& call, CK_SESSION_HANDLE handle, const SimObject& object,
                      const AttributeWrite& write) {
    if (write.hasValue || write.hasPrivate) return CKR_TEMPLATE_INCONSISTENT;
    if (object.role != ObjectRole::PrivateKey && !object.isDataObject()) return CKR_ATTRIBUTE_TYPE_INVALID;
    return runPinCommand(call, handle, object.pin,
                         write.pinCommand == kAttrUnblockPin ? DialogKind::Unblock : DialogKind::Change);
}

// A data object's new value or private flag, logging in on the protected
// path first when the card is not logged in.
CK_RV writeDataObject(Call& call, CK_SESSION_HANDLE handle, Session* session,
                      CK_OBJECT_HANDLE objectHandle, const AttributeWrite& write) {
    const SimObject* object = session->card->object(objectHandle);
    if (!object->isDataObject() || object->role == ObjectRole::InfoboxFile) return CKR_ATTRIBUTE_READ_ONLY;
    if (!session->readWrite()) return CKR_SESSION_READ_ONLY;
    if (write.hasValue && write.value.size() > kMaxDataObjectSize) return CKR_ATTRIBUTE_VALUE_INVALID;
    if (!session->card->loggedIn) {
        CK_RV rv = loginForData(call, handle, session);
        if (rv != CKR_OK) return rv;
        if (!session->card->object(objectHandle)) return CKR_OBJECT_HANDLE_INVALID;
    }
    return session->card->writeDataObject(objectHandle, write.hasValue ? &write.value : nullptr,
                                          write.hasPrivate ? &write.makePrivate : nullptr);
}

} // namespace

CK_RV setAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE objectHandle, CK_ATTRIBUTE_PTR pattern,
                        CK_ULONG count) {
    Call call("C_SetAttributeValue", true);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (badTemplate(pattern, count)) return CKR_ARGUMENTS_BAD;
    SimObject* object = session->card->object(objectHandle);
    if (!object) return CKR_OBJECT_HANDLE_INVALID;

    AttributeWrite write;
    rv = readWriteTemplate(*object, pattern, count, write);
    if (rv != CKR_OK) return rv;
    if (write.pinCommand) return runPinCommandOn(call, handle, *object, write);
    if (!write.hasValue && !write.hasPrivate) return CKR_OK;
    return writeDataObject(call, handle, session, objectHandle, write);
}

CK_RV getObjectSize(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE objectHandle, CK_ULONG_PTR size) {
    Call call("C_GetObjectSize", false);
    Session* session = nullptr;
    CK_RV rv = call.beginSession(handle, session);
    if (rv != CKR_OK) return rv;
    if (!size) return CKR_ARGUMENTS_BAD;
    SimObject* object = session->card->object(objectHandle);
    if (!object) return CKR_OBJECT_HANDLE_INVALID;
    CK_ULONG total = 0;
    for (const auto& attribute : object->attributes) total += attribute.second.size();
    *size = total;
    return CKR_OK;
}

} // namespace VessaSim
