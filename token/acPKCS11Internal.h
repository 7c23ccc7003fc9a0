// Helpers shared by the token layer's source files only: null-safe calls into
// the module, bounds checks for lengths the module reports, field copies.
#pragma once

#include "token/acPKCS11Log.h"
#include "token/acPKCS11Types.h"

#include <p11-kit/pkcs11.h>

#include <cstring>
#include <string>
#include <utility>

namespace Korvex {

// The class is Korvex::acPKCS11; its log functions live in ::acPKCS11.
using ::acPKCS11::LogError;
using ::acPKCS11::LogMessage;

namespace tokenimpl {

// A module may lack any entry point (a plain PKCS#11 module has no vendor
// extensions). Calling through a missing one answers like a module that does
// not offer the function, so every caller's error path handles it.
template <typename Fn, typename... Args>
inline CK_RV callModule(Fn fn, Args&&... args)
{
    if (fn == nullptr)
        return CKR_FUNCTION_NOT_SUPPORTED;
    return fn(std::forward<Args>(args)...);
}

// Upper bound for counts a module reports before the program allocates for
// them; a broken module must not make the program allocate without limit.
constexpr CK_ULONG kMaxSlotCount = 1024;

// Whether an attribute length reported by the module fits the buffer that was
// passed for it.
inline bool lengthFits(const CK_ATTRIBUTE& attribute, CK_ULONG capacity)
{
    return attribute.ulValueLen != CK_UNAVAILABLE_INFORMATION && attribute.ulValueLen <= capacity;
}

// The text a "%.*s" conversion makes of a blank-padded PKCS#11 field: at most
// width characters, ending early at a NUL byte.
inline std::string printedField(const unsigned char* field, size_t width)
{
    const void* nul = std::memchr(field, 0, width);
    size_t length = nul != nullptr ? static_cast<size_t>(static_cast<const unsigned char*>(nul) - field) : width;
    return std::string(reinterpret_cast<const char*>(field), length);
}

// The whole fixed-width field, padding kept.
inline std::string fullField(const unsigned char* field, size_t width)
{
    return std::string(reinterpret_cast<const char*>(field), width);
}

// Whether the object has a session open; the refusal is logged.
inline bool sessionIsOpen(CK_SESSION_HANDLE session)
{
    if (session != 0)
        return true;
    LogError("PKCS11 Session nicht offen");
    return false;
}

inline bool startsWith(const std::string& text, const char* prefix)
{
    size_t length = std::strlen(prefix);
    return text.size() >= length && text.compare(0, length, prefix) == 0;
}

// C_GetTokenInfo of one slot into the fixed-width record and, when asked,
// the module's record as delivered; a failure is logged with the token
// call's error line.
bool readTokenInfo(CK_C_GetTokenInfo getTokenInfo, CK_SLOT_ID id, TokenInfoStruct& info,
                   CK_TOKEN_INFO* raw = nullptr);

} // namespace tokenimpl
} // namespace Korvex
