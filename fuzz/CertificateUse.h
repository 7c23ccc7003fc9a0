// What the program does with a certificate it has read from a card: the
// texts it shows and logs, the thumbprint, and the public key handed to the
// key parser. Shared by the certificate fuzz targets.
#pragma once

#include "crypto/slCertificate.h"
#include "formats/PublicKey.h"

inline void useCertificate(const Korvex::slCertificate& cert)
{
    cert.GetSubject();
    cert.GetSubjectCN();
    cert.GetIssuer();
    cert.GetIssuerSepByComa();
    cert.GetSerialNumber();
    cert.ValidFrom();
    cert.ValidTo();
    cert.GetThumbprint();
    unsigned char* key = nullptr;
    unsigned long keyLen = 0;
    if (cert.GetPublicKeyValue(&key, &keyLen) && key != nullptr)
        Korvex::ParseKey(key, 0, static_cast<int>(keyLen));
    delete[] key;
}
