// Public keys as the cards hand them out: an RSA key as DER RSAPublicKey
// (modulus and exponent) or an elliptic-curve key as an uncompressed point.
// The result carries the RSA numbers as big-endian bytes and the point's
// coordinates as decimal digit strings, for display and comparison.
#pragma once

#include <string>

namespace Korvex {

struct ParsedPublicKey {
    static constexpr int kKeyTypeRsa = 0;
    static constexpr int kKeyTypeEc = 1;
    static constexpr int kModulusSize = 512;
    static constexpr int kExponentSize = 256;
    static constexpr int kCoordinateTextSize = 256;

    int keyType = 0;
    unsigned char modulus[kModulusSize] = {};   // big-endian, no leading zeros
    int modulusLen = 0;
    unsigned char exponent[kExponentSize] = {}; // big-endian, no leading zeros
    int exponentLen = 0;
    int coordinateLen = 0;                      // bytes per curve coordinate
    unsigned char x[kCoordinateTextSize] = {};  // decimal digits, zero-terminated
    unsigned char y[kCoordinateTextSize] = {};
    std::string curve;                          // dotted OID of the curve; empty for RSA
};

// The key starts at buf[offset] and is len bytes long. A leading SEQUENCE
// tag means RSA, anything else an elliptic-curve point.
ParsedPublicKey ParseKey(unsigned char* buf, int offset, int len);
// RSA numbers that do not fit their arrays or run past len end the parse
// with the numbers read so far.
ParsedPublicKey ParseRsaKey(unsigned char* buf, int offset, int len);
// len is the point's length including its format byte; it alone chooses the
// coordinate length and the curve (sizes other than P-192 and P-256 are
// reported as P-256). Coordinates of more than 128 bytes are refused.
ParsedPublicKey ParseEccKey(unsigned char* buf, int offset, int len);

} // namespace Korvex
