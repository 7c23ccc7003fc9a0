// Card list refresh through the token layer against the fewest PKCS#11 calls
// that fetch the same facts, for 1, 8, 32 and 64 simulated cards.
//
// wrapper:    what the refresh thread does per card - GetSlots(list, true),
//             OpenSession, LoadSigningCertificate(0) + GetSigningCertificate,
//             slCertificate LoadFromBuffer + GetSubjectCN and validity, the
//             token information GetSlots read (ListedTokenInfo), the PIN
//             states (ReadCardPinStates), CloseSession.
// minimum:    direct function-list calls fetching the same facts once each:
//             slot list, per slot the token and slot info, one session, a
//             label search for the certificate and its value, where the
//             token information names a generation that counts PIN tries
//             both PIN status attributes, close; and one plain OpenSSL
//             decode of the certificate for its common name.
// same-calls: the wrapper's exact PKCS#11 call sequence without the token
//             layer around it, to split the difference into "more calls"
//             and "library overhead".
// Best of several alternating runs; the ratio is wrapper / minimum. "warm"
// reads with the token object the program keeps (its decoded-certificate
// cache knows the cards from the previous refresh), "cold" is the program's
// first refresh: a new token object and an emptied process-wide decode memo,
// so every certificate is parsed afresh. BENCH_REFRESH_ROUNDS sets the number
// of runs (15 unless given). Last, with a reader's latency (BENCH_LATENCY_MS,
// 30 unless given, per card call and per APDU): the first refresh against the
// minimum sequence, both call counts and the time ratio; the run fails when
// the refresh makes more card calls or APDUs than the minimum, which asks
// every fact once: some fact was then asked twice.
#include "crypto/slCertificate.h"
#include "crypto/slCertificateDecodeCache.h"
#include "token/CardPinStates.h"
#include "token/LoadFreeLib.h"
#include "token/acPKCS11.h"

#include <dlfcn.h>
#include <openssl/x509.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "../BenchCardSet.h"

namespace {

using Clock = std::chrono::steady_clock;

// ---- the token layer, as the refresh thread uses it ----
size_t refreshThroughWrapper(Korvex::acPKCS11& p11)
{
    std::vector<Korvex::SlotStruct*> slots;
    if (!p11.GetSlots(slots, true))
        return 0;
    size_t named = 0;
    for (size_t i = 0; i < slots.size(); ++i) {
        if (!p11.OpenSession(static_cast<int32_t>(i), false))
            continue;
        Korvex::slCertificate certificate;
        bool loaded = false;
        if (p11.LoadSigningCertificate(false)) {
            unsigned char buffer[Korvex::acPKCS11::CERT_BUFFER_SIZE];
            unsigned long length = sizeof(buffer);
            loaded = p11.GetSigningCertificate(buffer, length) && certificate.LoadFromBuffer(buffer, length);
        }
        std::string holder = loaded ? certificate.GetSubjectCN() : "unbekannt";
        unsigned short y, mo, d, h, mi, s;
        if (loaded)
            certificate.ValidTo(y, mo, d, h, mi, s);
        Korvex::TokenInfoStruct2 info;
        if (!p11.ListedTokenInfo(slots[i]->slotID, info))
            p11.GetTokenInfoForSlot(slots[i]->slotID, info);
        const Korvex::CardPinStates pins = Korvex::ReadCardPinStates(p11, info);
        named += holder != "unbekannt" && info.tokenType <= Korvex::TOKEN_ECARD_G4 && !pins.NeedsAttention();
        p11.CloseSession();
    }
    return named;
}

// ---- the fewest PKCS#11 calls for the same facts ----
bool readValue(CK_FUNCTION_LIST_PTR f, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
               std::vector<unsigned char>& value)
{
    value.resize(Korvex::acPKCS11::CERT_BUFFER_SIZE);
    CK_ATTRIBUTE attribute = {CKA_VALUE, value.data(), value.size()};
    if (f->C_GetAttributeValue(session, object, &attribute, 1) != CKR_OK || attribute.ulValueLen > value.size())
        return false;
    value.resize(attribute.ulValueLen);
    return true;
}

// The e-card generations that count PIN tries (G3A, G3B, G4), by the model
// and label of their token information.
bool CountsPinTries(const CK_TOKEN_INFO& token)
{
    const std::string model(reinterpret_cast<const char*>(token.model), sizeof(token.model));
    const std::string label(reinterpret_cast<const char*>(token.label), sizeof(token.label));
    return label.rfind("vessa premium e", 0) == 0 &&
           (model.rfind("Starcos SPK 3.4", 0) == 0 || model.rfind("ATOS 5.3", 0) == 0);
}

// Both PIN states, where the card counts them.
void ReadPinStates(Korvex::PFN_C_CardAttribute cardAttribute, CK_SESSION_HANDLE session, const CK_TOKEN_INFO& token)
{
    if (!CountsPinTries(token))
        return;
    for (const char* name : {"SicSig/PIN-Status", "GewSig/PIN-Status"}) {
        unsigned char status[5];
        CK_ULONG statusLength = sizeof(status);
        cardAttribute(session, name, status, &statusLength);
    }
}

// The holder's name straight from OpenSSL: always one real decode.
std::string commonName(const std::vector<unsigned char>& der)
{
    const unsigned char* cursor = der.data();
    X509* cert = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
    if (cert == nullptr)
        return "unbekannt";
    char name[1024] = {};
    const bool found = X509_NAME_get_text_by_NID(X509_get_subject_name(cert), NID_commonName, name,
                                                 sizeof(name)) >= 0;
    X509_free(cert);
    return found ? name : "unbekannt";
}

size_t refreshMinimum(CK_FUNCTION_LIST_PTR f, Korvex::PFN_C_CardAttribute cardAttribute)
{
    CK_ULONG count = 0;
    if (f->C_GetSlotList(CK_TRUE, nullptr, &count) != CKR_OK)
        return 0;
    std::vector<CK_SLOT_ID> ids(count);
    if (f->C_GetSlotList(CK_TRUE, ids.data(), &count) != CKR_OK)
        return 0;
    size_t named = 0;
    for (CK_ULONG i = 0; i < count && i < ids.size(); ++i) {
        CK_TOKEN_INFO token;
        CK_SLOT_INFO slot;
        if (f->C_GetTokenInfo(ids[i], &token) != CKR_OK || f->C_GetSlotInfo(ids[i], &slot) != CKR_OK ||
            !(slot.flags & CKF_REMOVABLE_DEVICE))
            continue;
        CK_SESSION_HANDLE session = 0;
        if (f->C_OpenSession(ids[i], CKF_SERIAL_SESSION, nullptr, nullptr, &session) != CKR_OK)
            continue;
        CK_OBJECT_CLASS certClass = CKO_CERTIFICATE;
        char label[] = "C.CH.EKEY";
        CK_ATTRIBUTE search[] = {{CKA_CLASS, &certClass, sizeof(certClass)},
                                 {CKA_LABEL, label, std::strlen(label)}};
        CK_OBJECT_HANDLE object = 0;
        CK_ULONG found = 0;
        std::string holder = "unbekannt";
        std::vector<unsigned char> value;
        if (f->C_FindObjectsInit(session, search, 2) == CKR_OK) {
            f->C_FindObjects(session, &object, 1, &found);
            f->C_FindObjectsFinal(session);
        }
        if (found == 1 && readValue(f, session, object, value))
            holder = commonName(value);
        ReadPinStates(cardAttribute, session, token);
        named += holder != "unbekannt";
        f->C_CloseSession(session);
    }
    return named;
}

// ---- the wrapper's call sequence, without the wrapper ----
size_t refreshSameCalls(CK_FUNCTION_LIST_PTR f, Korvex::PFN_C_CardAttribute cardAttribute)
{
    CK_ULONG count = 0;
    f->C_GetSlotList(CK_TRUE, nullptr, &count);
    std::vector<CK_SLOT_ID> ids(count);
    f->C_GetSlotList(CK_TRUE, ids.data(), &count);
    std::vector<CK_SLOT_ID> cards;
    std::vector<CK_TOKEN_INFO> tokens;
    for (CK_SLOT_ID id : ids) {
        CK_TOKEN_INFO token;
        CK_SLOT_INFO slot;
        if (f->C_GetTokenInfo(id, &token) == CKR_OK && f->C_GetSlotInfo(id, &slot) == CKR_OK &&
            (slot.flags & CKF_REMOVABLE_DEVICE)) {
            cards.push_back(id);
            tokens.push_back(token);
        }
    }
    size_t named = 0;
    for (size_t i = 0; i < cards.size(); ++i) {
        CK_SESSION_HANDLE session = 0;
        if (f->C_OpenSession(cards[i], CKF_SERIAL_SESSION, nullptr, nullptr, &session) != CKR_OK)
            continue;
        CK_OBJECT_CLASS certClass = CKO_CERTIFICATE;
        CK_ATTRIBUTE search = {CKA_CLASS, &certClass, sizeof(certClass)};
        CK_OBJECT_HANDLE objects[10];
        CK_ULONG found = 0;
        f->C_FindObjectsInit(session, &search, 1);
        f->C_FindObjects(session, objects, 10, &found);
        f->C_FindObjectsFinal(session);
        for (CK_ULONG k = 0; k < found && k < 10; ++k) {
            char label[256];
            CK_ATTRIBUTE attribute = {CKA_LABEL, label, sizeof(label)};
            if (f->C_GetAttributeValue(session, objects[k], &attribute, 1) != CKR_OK)
                continue;
            if (std::string(label, attribute.ulValueLen).find("C.CH.EKEY") == std::string::npos)
                continue;
            std::vector<unsigned char> value;
            named += readValue(f, session, objects[k], value) ? 1 : 0;
            break;
        }
        ReadPinStates(cardAttribute, session, tokens[i]);  // type from the listing
        f->C_CloseSession(session);
    }
    return named;
}

double bestMicros(const std::function<size_t()>& run, int rounds, size_t& result)
{
    double best = 1e300;
    for (int r = 0; r < rounds; ++r) {
        auto start = Clock::now();
        result = run();
        double micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        best = std::min(best, micros);
    }
    return best;
}

// The simulator module the token layer has loaded, reached directly: its
// function list for the direct sequences and its vendor entry points.
class LoadedModule {
public:
    LoadedModule() : m_handle(dlopen(Korvex::PKCS11_LIB_NAME, RTLD_LAZY | RTLD_NOLOAD))
    {
        auto getList = symbol<CK_C_GetFunctionList>("C_GetFunctionList");
        cardAttribute = symbol<Korvex::PFN_C_CardAttribute>("C_CardAttribute");
        if (getList == nullptr || cardAttribute == nullptr || getList(&functions) != CKR_OK)
            functions = nullptr;
    }
    ~LoadedModule()
    {
        if (m_handle != nullptr)
            dlclose(m_handle);
    }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    template <typename Function>
    Function symbol(const char* name) const
    {
        return m_handle != nullptr ? reinterpret_cast<Function>(dlsym(m_handle, name)) : nullptr;
    }

    CK_FUNCTION_LIST_PTR functions = nullptr;
    Korvex::PFN_C_CardAttribute cardAttribute = nullptr;

private:
    void* m_handle;
};

// With a reader's latency on every card call and APDU: the program's first
// refresh against the minimum sequence for the same rows, by time and by
// card calls. The minimum asks each fact once, so any card call or APDU the
// refresh makes beyond it asks some fact a second time.
int measureWithLatency(const std::string& set, int cards)
{
    const char* callText = getenv("BENCH_LATENCY_MS");
    const unsigned long latencyMs = callText != nullptr && std::atol(callText) > 0 ? std::atol(callText) : 30;
    setenv("VESSA_SIM_CARDS", set.c_str(), 1);
    Korvex::acPKCS11 p11;
    const LoadedModule module;
    auto setLatency = module.symbol<void (*)(unsigned long, unsigned long)>("vsim_set_latency");
    auto counted = module.symbol<void (*)(unsigned long*, unsigned long*)>("vsim_card_calls");
    if (setLatency == nullptr || counted == nullptr || module.functions == nullptr) {
        std::fprintf(stderr, "the simulator's latency controls are missing\n");
        return 1;
    }
    refreshThroughWrapper(p11);  // keys made, as in a running program
    setLatency(latencyMs, latencyMs);
    auto measure = [&](const std::function<size_t()>& refresh, unsigned long& calls, unsigned long& apdus) {
        unsigned long calls0 = 0, apdus0 = 0;
        counted(&calls0, &apdus0);
        const auto start = Clock::now();
        const size_t named = refresh();
        const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        counted(&calls, &apdus);
        calls -= calls0;
        apdus -= apdus0;
        return named == static_cast<size_t>(cards) ? ms : -1.0;
    };
    unsigned long calls = 0, apdus = 0, fewestCalls = 0, fewestApdus = 0;
    Korvex::ClearCertificateDecodeCache();
    const double refreshMs = measure([] {
        Korvex::acPKCS11 fresh;
        return refreshThroughWrapper(fresh);
    }, calls, apdus);
    const double minimumMs =
        measure([&] { return refreshMinimum(module.functions, module.cardAttribute); }, fewestCalls, fewestApdus);
    setLatency(0, 0);
    const bool twice = calls > fewestCalls || apdus > fewestApdus;
    std::printf("with %lu ms per card call and per APDU, %d cards: first refresh %.1f ms, %lu card calls, "
                "%lu APDUs; minimum sequence %.1f ms, %lu card calls, %lu APDUs; ratio %.3f (target <= 1.10); "
                "%s\n",
                latencyMs, cards, refreshMs, calls, apdus, minimumMs, fewestCalls, fewestApdus,
                refreshMs / minimumMs, twice ? "SOME FACT ASKED TWICE" : "no fact asked twice");
    p11.destroy();
    return refreshMs < 0 || minimumMs < 0 || twice ? 1 : 0;
}

} // namespace

int main()
{
    // The simulator by bare name when the loader path has it, else the one
    // built next to this program.
    if (void* probe = Korvex::ac_dlopen())
        Korvex::ac_dlclose(probe);
    else
        Korvex::PKCS11_LIB_NAME = KORVEX_SIM_MODULE_PATH;

    namespace fs = std::filesystem;
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/bench-refresh-XXXXXX";
    std::vector<char> dir(pattern.begin(), pattern.end());
    dir.push_back('\0');
    if (mkdtemp(dir.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string work = dir.data();
    setenv("VESSA_SIM_STATE_DIR", (work + "/state").c_str(), 1);
    // Keys survive between runs (RSA 2048 generation is slow).
    if (getenv("VESSA_SIM_KEY_DIR") == nullptr)
        setenv("VESSA_SIM_KEY_DIR", KORVEX_BENCH_KEY_DIR, 1);
    unsetenv("VESSA_SIM_FAULTS");
    unsetenv("VESSA_SIM_LATENCY_MS");

    const char* roundsText = getenv("BENCH_REFRESH_ROUNDS");
    const int rounds = roundsText != nullptr && std::atoi(roundsText) > 0 ? std::atoi(roundsText) : 15;
    std::printf("bench_refresh: full card-list read, best of %d alternating runs\n", rounds);
    std::printf("%6s %12s %12s %12s %14s %8s %8s %8s\n", "cards", "warm[us]", "cold[us]", "minimum[us]",
                "same-calls[us]", "warm/m", "cold/m", "warm/s");
    int status = 0;
    double firstRefreshRatio = 0;
    int lastCards = 0;
    for (int cards : {1, 8, 32, 64}) {
        const std::string set = work + "/cards-" + std::to_string(cards) + ".xml";
        WriteBenchCardSet(set, cards);
        setenv("VESSA_SIM_CARDS", set.c_str(), 1);

        Korvex::acPKCS11 p11;
        if (!Korvex::acPKCS11::IsInitialized()) {
            std::fprintf(stderr, "cannot load the simulator module\n");
            return 1;
        }
        const LoadedModule module;
        CK_FUNCTION_LIST_PTR functions = module.functions;
        const Korvex::PFN_C_CardAttribute cardAttribute = module.cardAttribute;
        if (functions == nullptr) {
            std::fprintf(stderr, "no function list\n");
            return 1;
        }

        size_t wrapperNamed = refreshThroughWrapper(p11);  // first read makes the keys
        double wrapper = 1e300, cold = 1e300, minimum = 1e300, same = 1e300;
        size_t minimumNamed = 0, sameNamed = 0, coldNamed = 0;
        for (int round = 0; round < rounds; ++round) {
            wrapper = std::min(wrapper, bestMicros([&] { return refreshThroughWrapper(p11); }, 1, wrapperNamed));
            Korvex::ClearCertificateDecodeCache();  // as at program start
            cold = std::min(cold, bestMicros([&] {
                Korvex::acPKCS11 fresh;  // module already loaded: only a new cache
                return refreshThroughWrapper(fresh);
            }, 1, coldNamed));
            minimum = std::min(minimum, bestMicros([&] { return refreshMinimum(functions, cardAttribute); }, 1, minimumNamed));
            same = std::min(same, bestMicros([&] { return refreshSameCalls(functions, cardAttribute); }, 1, sameNamed));
        }
        std::printf("%6d %12.1f %12.1f %12.1f %14.1f %8.3f %8.3f %8.2f\n", cards, wrapper, cold, minimum, same,
                    wrapper / minimum, cold / minimum, wrapper / same);
        firstRefreshRatio = cold / minimum;
        lastCards = cards;
        if (wrapperNamed != static_cast<size_t>(cards) || coldNamed != static_cast<size_t>(cards) ||
            minimumNamed != static_cast<size_t>(cards)) {
            std::fprintf(stderr, "cards read: wrapper %zu, minimum %zu of %d\n", wrapperNamed, minimumNamed, cards);
            status = 1;
        }
        p11.destroy();
    }
    status |= measureWithLatency(work + "/cards-8.xml", 8);
    std::printf("warm/m, cold/m = token layer / minimum PKCS#11 sequence (target <= 1.15); "
                "warm/s = token layer / its own PKCS#11 call sequence alone\n");
    std::printf("program's first refresh (cold), %d cards: %.3f x the minimum sequence (target <= 1.15)\n",
                lastCards, firstRefreshRatio);
    std::error_code ignored;
    fs::remove_all(work, ignored);
    return status;
}
