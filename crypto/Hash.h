// Message digests over buffers, byte vectors and open files, and the PKCS #1
// DigestInfo headers that an RSA signing key on the card expects in front of
// a digest.
#pragma once

#include "crypto/HashAlgorithm.h"

#include <openssl/types.h>

#include <cstdio>
#include <vector>

namespace Korvex {

// DER DigestInfo headers of EMSA-PKCS1-v1_5, up to and including the tag and
// length of the digest's OCTET STRING.
inline constexpr unsigned char Sha1Pkcs01DigestInfo[] = {
    0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E, 0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
inline constexpr unsigned long Sha1Pkcs01DigestInfoLen = sizeof(Sha1Pkcs01DigestInfo);

// Object identifier 1.3.36.3.2.1.
inline constexpr unsigned char Ripemd160Pkcs01DigestInfo[] = {
    0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x24, 0x03, 0x02, 0x01, 0x05, 0x00, 0x04, 0x14};
inline constexpr unsigned long Ripemd160Pkcs01DigestInfoLen = sizeof(Ripemd160Pkcs01DigestInfo);

inline constexpr unsigned char Sha256Pkcs01DigestInfo[] = {
    0x30, 0x31, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
    0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
inline constexpr unsigned long Sha256Pkcs01DigestInfoLen = sizeof(Sha256Pkcs01DigestInfo);

inline constexpr unsigned char Sha384Pkcs01DigestInfo[] = {
    0x30, 0x41, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
    0x65, 0x03, 0x04, 0x02, 0x02, 0x05, 0x00, 0x04, 0x30};
inline constexpr unsigned long Sha384Pkcs01DigestInfoLen = sizeof(Sha384Pkcs01DigestInfo);

inline constexpr unsigned char Sha512Pkcs01DigestInfo[] = {
    0x30, 0x51, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
    0x65, 0x03, 0x04, 0x02, 0x03, 0x05, 0x00, 0x04, 0x40};
inline constexpr unsigned long Sha512Pkcs01DigestInfoLen = sizeof(Sha512Pkcs01DigestInfo);

namespace intern {

// The digest descriptor for alg (owned by this library, valid for the whole
// process) and its length in size. Null, with size untouched, for HashNone,
// unknown values and digests the installed OpenSSL cannot provide.
const EVP_MD* GetHashAlgo(HashAlgorithm alg, unsigned long& size);

} // namespace intern

// outLen holds the capacity of out on entry and the digest length on success.
bool Hash(const unsigned char* in, unsigned long inLen, unsigned char* out, unsigned long& outLen,
          HashAlgorithm alg);

// Appends the digest to out; with withDigestInfo the algorithm's DigestInfo
// header (where it has one) is inserted at the very front of out.
bool Hash(const std::vector<unsigned char>& in, std::vector<unsigned char>& out, HashAlgorithm alg,
          bool withDigestInfo);

// Digests the stream from its current position to its end; the stream stays
// open. outLen as for Hash.
bool HashFile(FILE* in, unsigned char* out, unsigned long& outLen, HashAlgorithm alg);

// Appends the digest of the rest of the stream to out.
bool HashFile(FILE* in, std::vector<unsigned char>& out, HashAlgorithm alg);

} // namespace Korvex
