// The key pairs and certificates of a simulated card and the test CA that
// issues them. Made with OpenSSL on first use and kept in the key directory,
// so that later runs (and the 64-card benchmark) only load them.
#pragma once

#include "sim/CardSet.h"
#include "sim/OpenSslPtr.h"

#include <string>
#include <vector>

namespace VessaSim {

struct KeyMaterial {
    SharedPkey key;                        // private key (public part included)
    std::vector<unsigned char> certificate;  // DER
    // What the card's objects repeat of that certificate, taken while it is
    // decoded anyway: subject and issuer (DER names), serial number magnitude.
    std::vector<unsigned char> subject, issuer, serialMagnitude;
};

struct CardKeys {
    KeyMaterial signature;
    KeyMaterial encryption;
    SharedPkey caKey;
    std::vector<unsigned char> caCertificate;  // DER
};

// Loads the card's keys and certificates from its key directory, making
// whatever is missing or does not fit the card (algorithm, size, holder).
bool loadOrCreateCardKeys(const CardSpec& card, CardKeys& out, std::string& error);

// The test CA's signature of `data` for the card with this serial, kept in
// the card's key directory (tied to the CA and the data by their digest):
// signing with the CA's RSA key would cost each process's first session on
// the card about a millisecond.
std::vector<unsigned char> keptCaSignature(const std::string& serial, const CardKeys& keys,
                                           const std::vector<unsigned char>& data);

// Exposed for tests: whether a key has the algorithm and size that KeySpec asks for.
bool keyMatchesSpec(EVP_PKEY* key, const KeySpec& keySpec);

} // namespace VessaSim
