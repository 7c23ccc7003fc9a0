// Builds an identity link record in the DER layout that the cards keep and
// the identity-link parser reads: version, three texts, the person data, an
// optional citizen key, a signature value and three reference digests.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace VessaPlus {

struct IdentityLinkFields {
    int version = 1;
    std::string issuerTemplate;
    std::string assertionId;
    std::string issueInstant;  // ISO 8601 time
    std::string baseId;
    std::string givenName;     // UTF-8
    std::string familyName;    // UTF-8
    std::string dateOfBirth;   // YYYY-MM-DD
    // Content of the citizen key SEQUENCE; left out when empty.
    std::vector<unsigned char> citizenPublicKey;
    std::vector<unsigned char> signatureValue;
};

// Largest record the card's identity-link object takes.
constexpr std::size_t kMaxIdentityLinkSize = 1024;
// Smallest record the token layer accepts for writing.
constexpr std::size_t kMinIdentityLinkSize = 128;

// DER of the record; false with a reason when the fields do not fit the
// layout (the person data must stay below 128 bytes, the whole record
// within kMaxIdentityLinkSize).
bool BuildIdentityLink(const IdentityLinkFields& fields, std::vector<unsigned char>& der,
                       std::string& error);

// One DER element: tag, definite length (short, 81 or 82 form), content.
std::vector<unsigned char> DerElement(unsigned char tag, const std::vector<unsigned char>& content);

} // namespace VessaPlus
