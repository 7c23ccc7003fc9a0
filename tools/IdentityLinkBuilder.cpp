// DER encoding of a new identity link record. The reference digests are
// SHA-256 values over the parts they stand for (the simulated cards use the
// same digest), so two records with the same person data carry the same
// reference digest.
#include "tools/IdentityLinkBuilder.h"

#include "crypto/Hash.h"
#include "formats/DerWriter.h"

namespace VessaPlus {

namespace Der = Korvex::Der;

namespace {

// The parser expects the person SEQUENCE in the one-byte length form.
constexpr std::size_t kMaxShortFormLength = 127;

void Append(std::vector<unsigned char>& out, const std::vector<unsigned char>& part) {
    out.insert(out.end(), part.begin(), part.end());
}

std::vector<unsigned char> Sha256(const std::vector<unsigned char>& data) {
    std::vector<unsigned char> digest;
    Korvex::Hash(data, digest, Korvex::HashSha256, false);
    return digest;
}

} // namespace

std::vector<unsigned char> DerElement(unsigned char tag, const std::vector<unsigned char>& content) {
    return Der::tlv(tag, content);
}

bool BuildIdentityLink(const IdentityLinkFields& fields, std::vector<unsigned char>& der,
                       std::string& error) {
    der.clear();
    if (fields.version < 0 || fields.version > 0x7FFF) {
        error = "Version ausserhalb des Bereichs";
        return false;
    }
    std::vector<unsigned char> person;
    Append(person, Der::utf8(fields.baseId));
    Append(person, Der::utf8(fields.givenName));
    Append(person, Der::utf8(fields.familyName));
    Append(person, Der::utf8(fields.dateOfBirth));
    if (person.size() > kMaxShortFormLength) {
        error = "Personendaten zu lang";
        return false;
    }
    const std::vector<unsigned char> personSequence = Der::tlv(Der::Sequence, person);

    std::vector<unsigned char> body;
    Append(body, Der::integer(fields.version));
    Append(body, Der::utf8(fields.issuerTemplate));
    Append(body, Der::utf8(fields.assertionId));
    Append(body, Der::utf8(fields.issueInstant));
    Append(body, Der::context(0, personSequence));
    if (!fields.citizenPublicKey.empty())
        Append(body, Der::tlv(Der::Sequence, fields.citizenPublicKey));
    const std::vector<unsigned char> signedPart = body;
    Append(body, Der::bits(fields.signatureValue));
    Append(body, Der::context(0, Der::bits(Sha256(personSequence))));
    Append(body, Der::context(1, Der::bits(Sha256(signedPart))));
    Append(body, Der::context(2, Der::bits(Sha256(body))));

    std::vector<unsigned char> record = Der::tlv(Der::Sequence, body);
    if (record.size() > kMaxIdentityLinkSize) {
        error = "Personenbindung zu gross";
        return false;
    }
    der.swap(record);
    return true;
}

} // namespace VessaPlus
