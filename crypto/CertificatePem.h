// A certificate's DER in the PEM text form ("-----BEGIN CERTIFICATE-----").
#pragma once

#include <string>
#include <vector>

namespace Korvex {

// False when `der` is not one whole X.509 certificate.
bool CertificateDerToPem(const std::vector<unsigned char>& der, std::string& pem);

} // namespace Korvex
