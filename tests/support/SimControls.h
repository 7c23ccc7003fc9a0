// The simulated module's control functions, looked up in the copy of the
// module that the code under test has loaded. A missing function or module
// fails the running test.
#pragma once

#include "sim/SimControl.h"

namespace TestSupport::Sim {

// The module file whose controls are called (default: the module by its name).
void ControlModule(const char* path);

CK_RV InsertCard(CK_SLOT_ID slot, const char* card);
CK_RV RemoveCard(CK_SLOT_ID slot);
// Makes `function` fail with `rv` (or answer malformed data) for the card
// `serial` (null: every card), `times` times (-1: always).
CK_RV SetFault(const char* function, const char* serial, CK_RV rv, int times);
CK_RV SetMalformed(const char* function, const char* serial, int times);
// Adds faults in their written form ("C_Sign@SERIAL=CKR_PIN_LOCKED*2; ...").
CK_RV AddFaults(const char* rules);
void ClearFaults();
// Factory PINs, counters and objects of one card (null: every card).
CK_RV ResetState(const char* serial = nullptr);
// Sleep of every card call and of every APDU, in milliseconds.
void SetLatency(unsigned long callMs, unsigned long apduMs = 0);
// Tries left of PIN `pin` (1 signature, 2 encryption, 3 identity link) and of
// its PUK; -100 when the simulator does not answer.
int PinTries(const char* serial, int pin);
int PukTries(const char* serial, int pin);
// PIN dialogues the module has run since it was loaded.
unsigned long PinDialogCount();
// Sessions open on the card in `slot`, as the module's token information
// counts them (standard C_GetTokenInfo); -1 when it does not answer.
long OpenSessions(CK_SLOT_ID slot);

} // namespace TestSupport::Sim
