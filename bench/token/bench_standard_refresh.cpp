// Card-list refresh of a standard token (a SoftHSM2 scratch token with an RSA
// and an EC key pair and their certificates) through the token layer,
// against the bare PKCS#11 calls that fetch the same information.
//
// wrapper: what the refresh thread does for a token that is not one of the
//          vendor's cards - GetSlots(list, true), OpenSession, the token
//          information with its generation and profile, every certificate
//          with the key pairs' identifiers, the holder certificate decoded
//          for its name and validity, the PIN line from the token flags, the
//          slot information, CloseSession.
// bare:    the function list called directly for the same data: slot list,
//          token and slot information, one session, the certificates'
//          values, labels and identifiers, the keys' identifiers, one
//          OpenSSL decode, close.
// Best of BENCH_REFRESH_ROUNDS (15) alternating runs; ratio wrapper / bare.
#include "crypto/slCertificate.h"
#include "token/CardPinStates.h"
#include "token/LoadFreeLib.h"
#include "token/TokenProfile.h"
#include "token/acPKCS11.h"

#include <dlfcn.h>
#include <openssl/x509.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
const char kSoftHsm[] = "/usr/lib/softhsm/libsofthsm2.so";

double micros(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void wrapperRefresh(Korvex::acPKCS11& p11)
{
    std::vector<Korvex::SlotStruct*> slots;
    p11.GetSlots(slots, true);
    for (size_t i = 0; i < slots.size(); ++i) {
        if (!p11.OpenSession(static_cast<int32_t>(i), false))
            continue;
        Korvex::TokenInfoStruct2 info;
        CK_TOKEN_INFO raw{};
        p11.GetTokenInfoForSlot(slots[i]->slotID, info, raw);
        const Korvex::TokenProfile profile = Korvex::ProfileOf(info.tokenType, false, raw);
        std::vector<Korvex::TokenObject> certificates;
        p11.ListTokenCertificates(certificates);
        for (const Korvex::TokenObject& object : certificates) {
            Korvex::slCertificate certificate;
            if (object.hasPrivateKey && certificate.LoadFromBuffer(object.value.data(), object.value.size())) {
                unsigned short y, mo, d, h, mi, s;
                certificate.ValidTo(y, mo, d, h, mi, s);
                (void)certificate.GetSubjectCN();
                break;
            }
        }
        (void)Korvex::ReadCardPinStates(p11, info);
        CK_SLOT_INFO slotInfo{};
        p11.GetStandardSlotInfo(slots[i]->slotID, slotInfo);
        (void)profile;
        p11.CloseSession();
    }
}

std::vector<CK_OBJECT_HANDLE> find(CK_FUNCTION_LIST* f, CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass)
{
    CK_ATTRIBUTE search = {CKA_CLASS, &objectClass, sizeof(objectClass)};
    std::vector<CK_OBJECT_HANDLE> handles(64);
    CK_ULONG found = 0;
    f->C_FindObjectsInit(session, &search, 1);
    f->C_FindObjects(session, handles.data(), handles.size(), &found);
    f->C_FindObjectsFinal(session);
    handles.resize(found);
    return handles;
}

std::vector<unsigned char> attribute(CK_FUNCTION_LIST* f, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                     CK_ATTRIBUTE_TYPE type)
{
    CK_ATTRIBUTE a = {type, nullptr, 0};
    f->C_GetAttributeValue(session, object, &a, 1);
    std::vector<unsigned char> value(a.ulValueLen == CK_UNAVAILABLE_INFORMATION ? 0 : a.ulValueLen);
    a.pValue = value.data();
    f->C_GetAttributeValue(session, object, &a, 1);
    return value;
}

void bareRefresh(CK_FUNCTION_LIST* f)
{
    CK_ULONG count = 16;
    std::vector<CK_SLOT_ID> ids(count);
    f->C_GetSlotList(CK_TRUE, ids.data(), &count);
    ids.resize(count);
    for (CK_SLOT_ID id : ids) {
        CK_TOKEN_INFO token{};
        CK_SLOT_INFO slot{};
        f->C_GetTokenInfo(id, &token);
        f->C_GetSlotInfo(id, &slot);
        CK_SESSION_HANDLE session = 0;
        if (f->C_OpenSession(id, CKF_SERIAL_SESSION, nullptr, nullptr, &session) != CKR_OK)
            continue;
        for (CK_OBJECT_CLASS keyClass : {CKO_PRIVATE_KEY, CKO_PUBLIC_KEY})
            for (CK_OBJECT_HANDLE key : find(f, session, keyClass))
                attribute(f, session, key, CKA_ID);
        bool decoded = false;
        for (CK_OBJECT_HANDLE handle : find(f, session, CKO_CERTIFICATE)) {
            const std::vector<unsigned char> der = attribute(f, session, handle, CKA_VALUE);
            attribute(f, session, handle, CKA_LABEL);
            attribute(f, session, handle, CKA_ID);
            if (!decoded) {
                const unsigned char* cursor = der.data();
                X509_free(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())));
                decoded = true;
            }
        }
        f->C_CloseSession(session);
    }
}

} // namespace

int main()
{
    if (std::getenv("SOFTHSM2_CONF") == nullptr) {
        std::fprintf(stderr, "bench_standard_refresh: set SOFTHSM2_CONF to a scratch token's configuration "
                             "(tests/support/make-softhsm-token.sh DIR makes one)\n");
        return 2;
    }
    Korvex::SetModuleName(kSoftHsm);
    Korvex::acPKCS11 p11;
    if (!Korvex::acPKCS11::IsInitialized()) {
        std::fprintf(stderr, "cannot load %s\n", kSoftHsm);
        return 1;
    }
    // The bare side uses the same loaded module's table.
    void* module = dlopen(kSoftHsm, RTLD_LAZY | RTLD_NOLOAD);
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"));
    CK_FUNCTION_LIST* f = nullptr;
    if (getList == nullptr || getList(&f) != CKR_OK)
        return 1;

    const char* roundsText = std::getenv("BENCH_REFRESH_ROUNDS");
    const int rounds = roundsText != nullptr && std::atoi(roundsText) > 0 ? std::atoi(roundsText) : 15;
    double wrapper = 1e18, bare = 1e18;
    for (int round = 0; round < rounds; ++round) {
        Clock::time_point start = Clock::now();
        wrapperRefresh(p11);
        wrapper = std::min(wrapper, micros(start));
        start = Clock::now();
        bareRefresh(f);
        bare = std::min(bare, micros(start));
    }
    std::printf("bench_standard_refresh: SoftHSM2 token, best of %d runs\n", rounds);
    std::printf("%12s %12s %8s\n", "wrapper[us]", "bare[us]", "ratio");
    std::printf("%12.0f %12.0f %8.2f\n", wrapper, bare, wrapper / bare);
    dlclose(module);
    p11.destroy();
    return 0;
}
