// Fuzz target: loading a certificate from PEM or plain Base64 text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/CertificateUse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Korvex::slCertificate cert;
    if (cert.LoadFromB64(std::string(reinterpret_cast<const char*>(data), size)))
        useCertificate(cert);
    return 0;
}
