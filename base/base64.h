// Base64 with the standard alphabet, cut into 76-character CR LF lines on
// encoding and tolerant of blanks and line ends on decoding.
#pragma once

#include <string>
#include <vector>

namespace Korvex {

// Buffer allocated with new[]; the caller frees it with delete[]. The C text
// in it has CR LF after every full 76-character line and no line end after the
// last one, except that a text of an exact multiple of 76 characters ends in a
// lone CR. Throws std::out_of_range when len is 0.
char* b64Encode(unsigned char* data, int len);
// "" for an empty vector.
std::string b64Encode(const std::vector<unsigned char>& data);

// len: capacity of the result on entry, number of decoded bytes on return
// (0 or negative when the text does not decode). The buffer is allocated with
// new[] and freed by the caller with delete[].
unsigned char* b64Decode(unsigned char* text, int& len);
std::vector<unsigned char> b64Decode(const std::string& text);

} // namespace Korvex
