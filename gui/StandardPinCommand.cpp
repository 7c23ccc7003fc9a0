// PIN dialogue of standard tokens through pinentry; see StandardPinCommand.h.
#include "gui/StandardPinCommand.h"

#include "base/PinEntry.h"
#include "gui/Translate.h"
#include "token/acPKCS11.h"

#include <cstdlib>

namespace {

std::string Utf8(const wxString& text)
{
    return std::string(text.utf8_str());
}

// Wipes the PINs it holds whatever way the command ends.
struct Secrets {
    std::string first, second, repeat;
    ~Secrets()
    {
        Korvex::PinEntry::wipe(first);
        Korvex::PinEntry::wipe(second);
        Korvex::PinEntry::wipe(repeat);
    }
};

} // namespace

StandardPinTexts MakeStandardPinTexts(bool unblock, const Korvex::TokenProfile& profile, const std::string& token)
{
    StandardPinTexts texts;
    texts.title = Utf8(unblock ? Tr("PIN entsperren") : Tr("PIN ändern")) + ": " + token;
    const wxString lengths =
        profile.maxPinLength >= profile.minPinLength && profile.maxPinLength > 0
            ? wxString::Format(Tr("%lu bis %lu Zeichen"), profile.minPinLength, profile.maxPinLength)
            : wxString();
    texts.first = Utf8(unblock ? Tr("PUK:") : Tr("Aktuelle PIN:"));
    texts.second = Utf8(Tr("Neue PIN:")) + (lengths.empty() ? "" : " (" + Utf8(lengths) + ")");
    texts.lengths = Utf8(lengths);
    texts.repeat = Utf8(Tr("Neue PIN wiederholen:"));
    texts.mismatch = Utf8(Tr("Die neuen PINs stimmen nicht überein."));
    texts.login = Utf8(Tr("PIN:"));
    return texts;
}

namespace {

// The desktop's pinentry, or the one VESSACARDS_PINENTRY names.
bool StartPinEntry(Korvex::PinEntry& entry)
{
    const char* program = std::getenv("VESSACARDS_PINENTRY");
    return entry.start(program != nullptr ? program : "");
}

} // namespace

Korvex::PKCS11Return LoginStandardToken(Korvex::acPKCS11& p11, const Korvex::TokenProfile& profile,
                                        const StandardPinTexts& texts)
{
    if (profile.protectedPath)
        return p11.LoginUser(nullptr);
    Korvex::PinEntry entry;
    if (!StartPinEntry(entry))
        return Korvex::PKCS11_ERROR;
    Secrets pins;
    Korvex::PinPrompt prompt;
    prompt.title = prompt.description = texts.title;
    prompt.prompt = texts.login;
    const Korvex::PinEntry::Result result = entry.getPin(prompt, pins.first);
    entry.finish();
    if (result != Korvex::PinEntry::Result::Ok)
        return result == Korvex::PinEntry::Result::Cancelled ? Korvex::PKCS11_CANCELED : Korvex::PKCS11_ERROR;
    return p11.LoginUser(&pins.first);
}

Korvex::PKCS11Return RunStandardPinCommand(Korvex::acPKCS11& p11, bool unblock, const Korvex::TokenProfile& profile,
                                           const StandardPinTexts& texts)
{
    if (profile.protectedPath)
        return unblock ? p11.UnblockUserPin(nullptr, nullptr) : p11.SetUserPin(nullptr, nullptr);

    Korvex::PinEntry entry;
    if (!StartPinEntry(entry))
        return Korvex::PKCS11_ERROR;
    Secrets pins;
    Korvex::PinPrompt prompt;
    prompt.title = texts.title;
    std::string* answers[] = {&pins.first, &pins.second, &pins.repeat};
    const std::string* labels[] = {&texts.first, &texts.second, &texts.repeat};
    for (int step = 0; step < 3; ++step) {
        prompt.prompt = *labels[step];
        prompt.description = texts.title;
        prompt.error = step == 1 && !prompt.error.empty() ? prompt.error : std::string();
        const Korvex::PinEntry::Result result = entry.getPin(prompt, *answers[step]);
        if (result != Korvex::PinEntry::Result::Ok)
            return result == Korvex::PinEntry::Result::Cancelled ? Korvex::PKCS11_CANCELED : Korvex::PKCS11_ERROR;
        const bool outOfRange = profile.maxPinLength > 0 && (pins.second.size() < profile.minPinLength ||
                                                             pins.second.size() > profile.maxPinLength);
        if (step == 2 && (pins.repeat != pins.second || outOfRange)) {
            // Ask for the new PIN once more rather than give up.
            prompt.error = outOfRange ? texts.lengths : texts.mismatch;
            Korvex::PinEntry::wipe(pins.second);
            Korvex::PinEntry::wipe(pins.repeat);
            step = 0;
        }
    }
    entry.finish();
    return unblock ? p11.UnblockUserPin(&pins.first, &pins.second) : p11.SetUserPin(&pins.first, &pins.second);
}
