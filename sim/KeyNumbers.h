// A card key's numbers kept in a small text file beside its PEM file. OpenSSL
// 3 reads a PEM private key through its decoder framework, about a
// millisecond a key, which a card's first session would pay for both its
// keys; importing the numbers directly costs a few microseconds. The file
// names the digest of the PEM it was taken from and is ignored for any other.
#pragma once

#include "sim/OpenSslPtr.h"

#include <string>
#include <vector>

namespace VessaSim {

// The key from `path`, or null when there is no such file, it belongs to
// other PEM bytes, or it does not make a key.
PkeyPtr loadKeyNumbers(const std::string& path, const std::vector<unsigned char>& pem);

// Writes the numbers of `key` (RSA or EC) for these PEM bytes; best effort.
void saveKeyNumbers(const std::string& path, EVP_PKEY* key, const std::vector<unsigned char>& pem);

} // namespace VessaSim
