// Base64 through the library's Base64 filter over a memory stream. Line
// cutting is done here, not by the filter, to get the exact CR LF layout.
#include "base/base64.h"

#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>

#include <cstring>
#include <stdexcept>

namespace Korvex {

namespace {

const std::size_t kLineLength = 76;

bool IsWhite(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// The single-line Base64 text of the data; "" when the filter fails.
std::string EncodeOneLine(const unsigned char* data, int len)
{
    BIO* b64 = BIO_new(BIO_f_base64());
    BIO* mem = BIO_new(BIO_s_mem());
    if (!b64 || !mem) {
        BIO_free(b64);
        BIO_free(mem);
        return std::string();
    }
    BIO_set_flags(b64, BIO_FLAGS_BASE64_NO_NL);
    BIO* chain = BIO_push(b64, mem);
    std::string text;
    if (len > 0 && BIO_write(chain, data, len) == len && BIO_flush(chain) == 1) {
        BUF_MEM* buffer = nullptr;
        BIO_get_mem_ptr(mem, &buffer);
        if (buffer && buffer->length > 0)
            text.assign(buffer->data, buffer->length);
    }
    BIO_free_all(chain);
    return text;
}

} // namespace

char* b64Encode(unsigned char* data, int len)
{
    const std::string encoded = EncodeOneLine(data, len);

    std::string result;
    for (std::size_t offset = 0; offset < encoded.size(); offset += kLineLength) {
        if (offset + kLineLength <= encoded.size()) {
            result.append(encoded, offset, kLineLength);
            result += "\r\n";
        } else {
            result.append(encoded, offset, std::string::npos);
            result.append(2, '\0');
        }
    }
    // One look at the last character only: a text of whole lines keeps the CR
    // of its last line end. Established behaviour that callers rely on.
    char& last = result.at(result.size() - 1);
    if (IsWhite(last))
        last = '\0';

    char* out = new char[result.size()];
    std::memcpy(out, result.data(), result.size());
    return out;
}

std::string b64Encode(const std::vector<unsigned char>& data)
{
    if (data.empty())
        return std::string();
    char* text = b64Encode(const_cast<unsigned char*>(data.data()), static_cast<int>(data.size()));
    std::string result(text);
    delete[] text;
    return result;
}

unsigned char* b64Decode(unsigned char* text, int& len)
{
    std::string clean;
    if (text) {
        for (const unsigned char* p = text; *p; ++p) {
            if (*p != ' ' && *p != '\r' && *p != '\n')
                clean += static_cast<char>(*p);
        }
    }
    const int capacity = len > 0 ? len : 0;
    unsigned char* out = new unsigned char[capacity > 0 ? capacity : 1]();

    BIO* b64 = BIO_new(BIO_f_base64());
    BIO* mem = BIO_new_mem_buf(clean.data(), static_cast<int>(clean.size()));
    if (!b64 || !mem) {
        BIO_free(b64);
        BIO_free(mem);
        len = -1;
        return out;
    }
    BIO_set_flags(b64, BIO_FLAGS_BASE64_NO_NL);
    BIO* chain = BIO_push(b64, mem);
    int total = 0;
    int got = 0;
    while (total < capacity && (got = BIO_read(chain, out + total, capacity - total)) > 0)
        total += got;
    BIO_free_all(chain);
    len = total > 0 ? total : got;
    return out;
}

std::vector<unsigned char> b64Decode(const std::string& text)
{
    if (text.empty())
        return {};
    int len = static_cast<int>(text.size());
    unsigned char* bytes = b64Decode(reinterpret_cast<unsigned char*>(const_cast<char*>(text.c_str())), len);
    std::vector<unsigned char> result;
    if (len >= 1)
        result.assign(bytes, bytes + len);
    delete[] bytes;
    return result;
}

} // namespace Korvex
