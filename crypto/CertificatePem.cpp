// DER to PEM through OpenSSL's own writer; see CertificatePem.h.
#include "crypto/CertificatePem.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace Korvex {

bool CertificateDerToPem(const std::vector<unsigned char>& der, std::string& pem)
{
    pem.clear();
    const unsigned char* cursor = der.data();
    std::unique_ptr<X509, decltype(&X509_free)> cert(
        d2i_X509(nullptr, &cursor, static_cast<long>(der.size())), &X509_free);
    // Trailing bytes would be lost in the PEM form: refuse them.
    if (!cert || cursor != der.data() + der.size())
        return false;
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
    if (!bio || PEM_write_bio_X509(bio.get(), cert.get()) != 1)
        return false;
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    if (length <= 0 || data == nullptr)
        return false;
    pem.assign(data, static_cast<size_t>(length));
    return true;
}

} // namespace Korvex
