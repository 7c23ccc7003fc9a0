// Text conversions of the foundation library: hexadecimal, binary digit
// strings, UTF-8 code points, case-blind string helpers and small byte tools.
#pragma once

#include "base/ByteArray.h"
#include "base/base64.h"

#include <string>
#include <vector>

namespace Korvex {

// Alphabet of GenerateRandomString: 61 characters, the digit zero left out.
extern const char VALUES[];

// --- hexadecimal -----------------------------------------------------------
// Two upper-case digits per byte, no separator; returns the text length.
unsigned long BinData2HexStr(std::vector<unsigned char> data, std::string& out);
// Pointer form: a null output or outLen 0 asks for the size; too small a
// buffer gives (unsigned long)-1 and leaves it untouched; no NUL is written.
unsigned long BinData2HexStr(unsigned char* data, int len, unsigned char* out, unsigned long& outLen);

// Appends one byte per character pair to `out` (not cleared); returns its
// size. An odd-length text throws std::out_of_range at the unpaired character.
unsigned long HexStr2BinData(std::string text, std::vector<unsigned char>& out);
// The text is read up to its NUL; textLen does not limit it.
unsigned long HexStr2BinData(char* text, unsigned long textLen, unsigned char* out, unsigned long& outLen);
unsigned long HexStr2BinData(char* text, unsigned char* out, unsigned long& outLen);

int hex2int(char* text);

// --- binary digits and code points -----------------------------------------
std::string int2bin(unsigned int v);
unsigned long long bin2int(std::string digits);
int bin2dec(char* digits);
// UTF-8 encoding of a code point; 0 gives "".
std::string int2str(int codePoint);

// --- bytes and characters --------------------------------------------------
bool isdigit(char c);
bool isalpha(char c);
void ReverseBytes(unsigned char* p, int n);
unsigned long SwitchEndian(unsigned long v);

// --- strings (byte-wise, "C" locale rules) -------------------------------
int nocase_cmp(const std::string& a, const std::string& b, int n);
std::string::size_type nocase_find(const std::string& hay, const std::string& needle, int pos);
bool nocase_StartsWith(const std::string& s, const std::string& prefix);
bool nocase_EndsWith(const std::string& s, const std::string& suffix);
std::string Str2Upper(std::string s);
std::string Str2Lower(std::string s);
std::string stripXMLRequest(std::string s);
// Throws std::out_of_range for an empty or all-blank text.
std::string TrimSpaces(std::string s);
void RemoveTrailingSpaces(std::string& s);
std::string replaceAll(std::string s, std::string from, std::string to);
void Do_LF_LineEnding(std::string& s);
void Do_CR_LF_LineEnding(std::string& s);

std::string GenerateRandomString(int n);
std::string GenerateRandomString();

// Offset of the needle in the haystack at or after start, or -1.
long MyMemfind(char* haystack, long haystackLength, char* needle, long needleLength, long start);

} // namespace Korvex
