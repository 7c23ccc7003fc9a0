// Runs one PIN dialogue through the pinentry program.
#include "sim/PinDialog.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace VessaSim {

namespace {

std::atomic<unsigned long> g_dialogs{0};

const char* const kTitle = "vessa premium PIN-Eingabe";

std::string cardLine(const DialogTarget& target) {
    return "Karte: " + target.cardLabel + " (" + target.serial + ")\n\n";
}

std::string triesWarning(int left, int maximum, const std::string& what) {
    if (left >= maximum) return "";
    return "Achtung: " + what + " hat nur noch " + std::to_string(left) +
           (left == 1 ? " Versuch!" : " Versuche!");
}

// The caller only sees CKR_FUNCTION_FAILED; whoever started the program
// learns here why no dialogue appeared and what to do about it.
void reportNoDialogue() {
    const char* configured = std::getenv("VESSA_SIM_PINENTRY");
    std::fprintf(stderr,
                 "libVessaP11: the PIN dialogue could not be shown by '%s' (no desktop session?); "
                 "name one that runs here in VESSA_SIM_PINENTRY, e.g. pinentry-curses from a terminal\n",
                 configured && *configured ? configured : "pinentry");
}

} // namespace

std::string pinDisplayName(PinIndex pin) {
    switch (pin) {
    case PinSignature: return "Signatur-PIN";
    case PinEncryption: return "Geheimhaltungs-PIN";
    default: return "Infobox-PIN";
    }
}

unsigned long pinDialogCount() { return g_dialogs.load(); }

DialogOutcome runPinDialog(DialogKind kind, const DialogTarget& target) {
    ++g_dialogs;
    DialogOutcome outcome;
    PinEntry entry;
    const char* program = std::getenv("VESSA_SIM_PINENTRY");
    if (!entry.start(program != nullptr ? program : "")) {
        reportNoDialogue();
        return outcome;
    }

    const std::string name = pinDisplayName(target.pin);
    const std::string digits = std::to_string(target.pinLength) + " Ziffern";
    PinPrompt prompt;
    prompt.title = kTitle;
    std::string* answers[3] = {&outcome.first, &outcome.second, &outcome.third};
    const char* prompts[3] = {nullptr, "Neue PIN:", "Neue PIN wiederholen:"};
    int steps = 3;
    switch (kind) {
    case DialogKind::Verify:
        prompt.description = cardLine(target) + "Bitte geben Sie Ihre " + name + " (" + digits + ") ein.";
        prompt.error = triesWarning(target.triesLeft, target.maxTries, "die " + name);
        prompts[0] = nullptr;
        steps = 1;
        break;
    case DialogKind::Change:
        prompt.description = cardLine(target) + name + " \xC3\xA4ndern (" + digits + ").";
        prompt.error = triesWarning(target.triesLeft, target.maxTries, "die " + name);
        prompts[0] = "Aktuelle PIN:";
        break;
    case DialogKind::Unblock:
        prompt.description = cardLine(target) + name + " mit der PUK (8 Ziffern) entsperren und neu setzen (" +
                             digits + ").";
        prompt.error = triesWarning(target.pukTriesLeft, target.maxPukTries, "die PUK");
        prompts[0] = "PUK:";
        break;
    }
    const std::string verifyPrompt = name + ":";
    for (int step = 0; step < steps; ++step) {
        prompt.prompt = prompts[step] ? prompts[step] : verifyPrompt;
        PinEntry::Result result = entry.getPin(prompt, *answers[step]);
        if (result != PinEntry::Result::Ok) {
            if (result == PinEntry::Result::Failed) reportNoDialogue();
            outcome.result = result;
            return outcome;
        }
        prompt.error.clear();
        prompt.title.clear();
    }
    outcome.result = PinEntry::Result::Ok;
    return outcome;
}

} // namespace VessaSim
