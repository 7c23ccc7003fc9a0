// The data records a personalised card carries besides keys: the identity
// link, the e-card's social-insurance records and the infobox entries it
// leaves the factory with.
#pragma once

#include "sim/CardSet.h"

#include <openssl/types.h>

#include <functional>
#include <string>
#include <vector>

namespace VessaSim {

using Bytes = std::vector<unsigned char>;

// Base id derived from the serial, for cards whose set gives none.
std::string defaultBaseId(const std::string& serial);

// DER identity link of the holder, signed by the test CA (deterministic for
// a given CA key, so a factory reset restores the same bytes).
Bytes buildIdentityLink(const CardSpec& card, EVP_PKEY* caKey);
// The same with the CA's signature of the person data from `sign`.
Bytes buildIdentityLink(const CardSpec& card, const std::function<Bytes(const Bytes&)>& sign);
// The test CA's signature of data (SHA-256, the key's own scheme).
Bytes signWithCa(EVP_PKEY* caKey, const Bytes& data);

// The holder's social-insurance number (10 digits).
std::string insuranceNumber(const CardSpec& card);
Bytes buildEhicRecord(const CardSpec& card);
Bytes buildBasicPersonalDataRecord(const CardSpec& card);

struct InfoboxEntrySpec {
    unsigned char tag;
    unsigned char type;  // bit 0: stored protected
    Bytes content;
};

// Factory infobox of a card with an infobox file; entry 1 only when the card
// has an identity link.
std::vector<InfoboxEntrySpec> factoryInfobox(const CardSpec& card, const Bytes& identityLink);

} // namespace VessaSim
