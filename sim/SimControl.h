/* Control interface of the simulated card module libVessaP11.so.
 *
 * Tests load the module with dlopen and look these functions up with dlsym
 * (they are exported next to the PKCS#11 entry points). Every function is
 * safe to call from any thread, before or after C_Initialize; the ones that
 * act on readers and cards need an initialised module and answer
 * CKR_CRYPTOKI_NOT_INITIALIZED otherwise. Results are CK_RV codes.
 *
 * A "card" argument names a card by serial ("1204000000004711"), by slot
 * ("slot:3"), or any card ("*" or NULL).
 */
#ifndef VESSA_SIM_CONTROL_H
#define VESSA_SIM_CONTROL_H

#include <p11-kit/pkcs11.h>

#ifdef __cplusplus
extern "C" {
#endif

/* "times" for faults: a positive count, or VSIM_ALWAYS (any value <= 0). */
#define VSIM_ALWAYS (-1)

/* PIN numbers, the same values as the program's application types. */
#define VSIM_PIN_SIGNATURE 0
#define VSIM_PIN_ENCRYPTION 1
#define VSIM_PIN_IDENTITY_LINK 2

/* Makes `function` ("C_Sign", or "*" for every entry point) return `rv` for
 * the card `serial`, `times` times (VSIM_ALWAYS: every time). The call then
 * has no effect besides the code. Functions without a card (C_GetInfo,
 * C_GetSlotList, ...) only match a fault whose card is "*" or NULL. */
CK_RV vsim_set_fault(const char* function, const char* serial, CK_RV rv, int times);

/* Makes `function` run normally but report a length larger than the caller's
 * buffer or a count larger than the caller's array (nothing is written past
 * either). Affects C_GetSlotList, C_GetMechanismList, C_FindObjects,
 * C_GetAttributeValue, C_Sign, C_Digest, C_DigestFinal, C_CardTransmit and
 * C_CardAttribute when they are given a buffer. */
CK_RV vsim_set_malformed(const char* function, const char* serial, int times);

/* Adds faults written in the VESSA_SIM_FAULTS syntax (see sim/README.md). */
CK_RV vsim_add_faults(const char* ruleText);

/* Removes every fault, whatever set it (environment, control file, calls). */
void vsim_clear_faults(void);

/* Sleeps `call_ms` in every call that reaches a card and `apdu_ms` per APDU
 * the card processes (C_CardTransmit, C_CardAttribute, signing). */
void vsim_set_latency(unsigned long call_ms, unsigned long apdu_ms);

/* Puts a card into the reader `slot`: a card id or serial of the card set
 * (a card sitting in another reader moves), or an ad-hoc card written as
 * "GENERATION:SERIAL[:Given:Family]". CKR_SLOT_ID_INVALID for an unknown
 * slot or a non-removable one, CKR_ARGUMENTS_BAD for an unknown card. */
CK_RV vsim_insert_card(CK_SLOT_ID slot, const char* card);

/* Pulls the card out of the reader `slot` (no error when it is empty).
 * Sessions on it answer CKR_DEVICE_REMOVED once, then
 * CKR_SESSION_HANDLE_INVALID. */
CK_RV vsim_remove_card(CK_SLOT_ID slot);

/* Restores the factory state (PINs, counters, written objects) of the card
 * with this serial, or of every card for NULL or "*". Keys and certificates
 * stay. Other processes using the same state directory see the reset on
 * their next call on the card. */
CK_RV vsim_reset_state(const char* serial);

/* Remaining tries of a PIN (VSIM_PIN_*) and of its PUK (-1: no PUK), as
 * saved for the card (tries used up by another process count). */
CK_RV vsim_get_pin_tries(const char* serial, int pin, int* tries, int* pukTries);

/* Number of PIN dialogues the module has started in this process. */
unsigned long vsim_pin_dialog_count(void);

/* Calls that reached a card and APDUs sent since the module was loaded (each
 * costs the latency of vsim_set_latency on a real reader). Either pointer
 * may be NULL. */
void vsim_card_calls(unsigned long* calls, unsigned long* apdus);

/* The vendor extensions of the module, for dlsym. */
typedef CK_RV (*VSIM_C_CardTransmit)(CK_SESSION_HANDLE session, CK_BYTE_PTR command, CK_ULONG commandLength,
                                     CK_BYTE_PTR response, CK_ULONG_PTR responseLength);
typedef CK_RV (*VSIM_C_CardAttribute)(CK_SESSION_HANDLE session, const char* name, CK_BYTE_PTR out,
                                      CK_ULONG_PTR outLength);

#ifdef __cplusplus
}
#endif

#endif /* VESSA_SIM_CONTROL_H */
