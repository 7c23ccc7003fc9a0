// Fuzz target: the identity link parser on arbitrary card data.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "formats/Personenbindung.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // An exact-size heap copy, so that any read past the input is reported.
    std::unique_ptr<unsigned char[]> copy(new unsigned char[size == 0 ? 1 : size]);
    if (size > 0)
        std::memcpy(copy.get(), data, size);
    Korvex::Personenbindung record;
    if (record.parse(copy.get(), static_cast<int>(size)) == 1) {
        unsigned char signature[Korvex::Personenbindung::kSignatureValueSize];
        unsigned char digest[Korvex::Personenbindung::kDigestSize];
        int len = 0;
        record.getSignatureValue(signature, len);
        record.getReferenceDigest(digest, len);
        record.getReferenceManifestDigest(digest, len);
        record.getManifestReferenceDigest(digest, len);
        // The viewer shows these texts.
        const size_t total = record.getGivenName().size() + record.getFamilyName().size() +
                             record.getDateOfBirth().size() + record.getIssuerTemplate().size() +
                             record.getIssueInstant().size();
        (void)total;
    }
    return 0;
}
