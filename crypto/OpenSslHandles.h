// Owning handles for the OpenSSL objects that the certificate code creates
// and releases within one call.
#pragma once

#include <openssl/bio.h>

#include <memory>
#include <string>

namespace Korvex {

struct BioDeleter {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
using BioPtr = std::unique_ptr<BIO, BioDeleter>;

// Everything written into a memory stream so far.
inline std::string BioContents(BIO* bio)
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    if (size <= 0 || !data)
        return "";
    return std::string(data, static_cast<size_t>(size));
}

} // namespace Korvex
