// Fuzz target: loading a DER certificate from a buffer and reading it.
#include <cstddef>
#include <cstdint>

#include "fuzz/CertificateUse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Korvex::slCertificate cert;
    if (cert.LoadFromBuffer(data, static_cast<unsigned long>(size)))
        useCertificate(cert);
    return 0;
}
