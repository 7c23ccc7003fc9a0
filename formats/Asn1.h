// Minimal cursor readers for the small DER structures the cards carry (the
// identity link and raw public keys). There is no general ASN.1 decoder: the
// caller keeps an int read position, checks tag bytes itself, and calls a
// helper that reads one length or value and advances the position.
//
// Each reader comes in two forms. The classic form trusts the lengths it
// reads and knows nothing of the input's end. The bounded form takes `end`,
// the number of readable bytes of `buf`, and never reads at or beyond it;
// on data that lies inside the input both forms give the same results. The
// parsers of card data use only the bounded forms, because card data is
// untrusted.
#pragma once

#include <string>

#include "formats/Asn1Log.h"

namespace Korvex {

// The value kinds parseValue recognises (the number is not the tag byte).
enum eASN1Type {
    ASN1TypeOctetString = 1,     // tag 04
    ASN1TypeNumericString = 2,   // tag 12
    ASN1TypeGeneralizedTime = 3, // tag 18
    ASN1TypeUtf8String = 4,      // tag 0C
    ASN1TypeInteger = 5,         // tag 02
    ASN1TypePrintableString = 6  // tag 13
};

// --- classic forms -------------------------------------------------------

// buf[pos] is the first length octet. Reads the short form, 81 xx and
// 82 xx xx; any other first octet (80, 83..FF) is returned as the length
// itself, so long forms with three or more octets are not supported.
long getLen(unsigned char* buf, int& pos);

// Strips leading zero bytes in place and shortens len accordingly.
void RemoveLeadingNulls(unsigned char* buf, int& len);

// Decimal digits of the big-endian unsigned number in bin, followed by two
// zero bytes: out must hold the digit count plus two. Returns the digit count,
// or -1 for a null pointer or a length of zero.
int bin2decStr(unsigned char* bin, int len, unsigned char* out);

// pos stands after the BIT STRING tag; outLen is the capacity on entry and
// the value length on return. Bit strings with unused bits are refused.
int ReadBitString(unsigned char* buf, int& pos, unsigned char* out, int& outLen);

// pos stands after the (already checked) tag; returns the content up to its
// first zero byte, unconverted.
std::string ReadUtf8String(unsigned char* buf, int& pos);

// Content octets of an object identifier as text. Multi-octet arcs are not
// combined: every octet after the first is printed on its own.
std::string OID2Str(unsigned char* oid, int len, char sep);

// pos stands on a tag byte. For a tag of eASN1Type fills type, out and outLen
// and returns 1; otherwise returns 0 and changes nothing. out must be large
// enough for any value the caller allows.
int parseValue(unsigned char* buf, int& pos, eASN1Type& type, unsigned char* out, int& outLen);

// --- bounded forms -------------------------------------------------------
// A value that would run past `end` is not read: the reader reports failure
// and leaves pos at `end`, so that a caller walking a structure stops there.

// Returns false when the length octets do not lie inside the input.
bool getLen(const unsigned char* buf, int end, int& pos, long& len);

// As the classic form. Also false for a value that is cut off by `end` (out
// and outLen unchanged) and for an empty value without the unused-bits
// octet (outLen 0). A value too large for the capacity is skipped as in the
// classic form, pos being held at `end` if the skip would pass it.
int ReadBitString(const unsigned char* buf, int end, int& pos, unsigned char* out, int& outLen);

// A value cut off by `end` gives the empty text.
std::string ReadUtf8String(const unsigned char* buf, int end, int& pos);

// As the classic form; additionally a value longer than outCapacity or cut
// off by `end` returns 0 and changes nothing.
int parseValue(const unsigned char* buf, int end, int& pos, eASN1Type& type, unsigned char* out, int& outLen,
               int outCapacity);

// As the classic form, but -1 (and nothing written) also when the digits and
// their two terminating zeros do not fit into outCapacity bytes, or for a
// negative length.
int bin2decStr(const unsigned char* bin, int len, unsigned char* out, int outCapacity);

} // namespace Korvex
