// The recent DER certificate decodes of the process, kept for reuse. A card
// list refresh decodes each card's certificate once in the token layer and
// again for the holder's name; the second decode of the same bytes shares the
// first one's X509 (one more reference) instead of parsing it again.
#pragma once

#include <openssl/types.h>

#include <cstddef>

namespace Korvex {

// Both certificates of 128 cards: a reload of that many cards finds every
// one decoded by the refresh before, instead of parsing each again.
constexpr size_t kCertificateDecodeCacheEntries = 256;

// The certificate decoded from len bytes at data (one object read through a
// memory stream); null for null data or bytes that do not decode. The caller
// owns one reference (X509_free), and the X509 may be shared with every other
// decode of the same bytes, so it must only be read, never altered.
// Safe to call from several threads.
X509* DecodeCertificateDer(const unsigned char* data, size_t len);

// Lets go of every remembered decode; certificates still held elsewhere stay
// valid. The next decode of any bytes parses afresh.
void ClearCertificateDecodeCache();

} // namespace Korvex
