// DER encoding of a new identity link record. The reference digests are
// SHA-256 values over the parts they stand for, so two records with the same
// person data carry the same reference digest.
#include "tools/IdentityLinkBuilder.h"

#include "crypto/Hash.h"

namespace VessaPlus {

namespace {

constexpr unsigned char kTagInteger = 0x02;
constexpr unsigned char kTagBitString = 0x03;
constexpr unsigned char kTagUtf8String = 0x0C;
constexpr unsigned char kTagSequence = 0x30;
constexpr unsigned char kTagContext0 = 0xA0;
constexpr unsigned char kTagContext1 = 0xA1;
constexpr unsigned char kTagContext2 = 0xA2;

// The parser expects the person SEQUENCE in the one-byte length form.
constexpr std::size_t kMaxShortFormLength = 127;

void Append(std::vector<unsigned char>& out, const std::vector<unsigned char>& part) {
    out.insert(out.end(), part.begin(), part.end());
}

std::vector<unsigned char> Utf8(const std::string& text) {
    return DerElement(kTagUtf8String, std::vector<unsigned char>(text.begin(), text.end()));
}

std::vector<unsigned char> Integer(int value) {
    // Two content bytes at most: the parser reads one, or two big-endian.
    std::vector<unsigned char> content;
    if (value > 0x7F)
        content = {static_cast<unsigned char>((value >> 8) & 0x7F),
                   static_cast<unsigned char>(value & 0xFF)};
    else
        content = {static_cast<unsigned char>(value & 0x7F)};
    return DerElement(kTagInteger, content);
}

std::vector<unsigned char> BitString(const std::vector<unsigned char>& bytes) {
    std::vector<unsigned char> content{0x00};  // no unused bits
    Append(content, bytes);
    return DerElement(kTagBitString, content);
}

std::vector<unsigned char> Sha256(const std::vector<unsigned char>& data) {
    std::vector<unsigned char> digest;
    Korvex::Hash(data, digest, Korvex::HashSha256, false);
    return digest;
}

} // namespace

std::vector<unsigned char> DerElement(unsigned char tag, const std::vector<unsigned char>& content) {
    std::vector<unsigned char> out{tag};
    const std::size_t n = content.size();
    if (n < 0x80) {
        out.push_back(static_cast<unsigned char>(n));
    } else if (n <= 0xFF) {
        out.push_back(0x81);
        out.push_back(static_cast<unsigned char>(n));
    } else {
        out.push_back(0x82);
        out.push_back(static_cast<unsigned char>((n >> 8) & 0xFF));
        out.push_back(static_cast<unsigned char>(n & 0xFF));
    }
    Append(out, content);
    return out;
}

bool BuildIdentityLink(const IdentityLinkFields& fields, std::vector<unsigned char>& der,
                       std::string& error) {
    der.clear();
    if (fields.version < 0 || fields.version > 0x7FFF) {
        error = "Version ausserhalb des Bereichs";
        return false;
    }
    std::vector<unsigned char> person;
    Append(person, Utf8(fields.baseId));
    Append(person, Utf8(fields.givenName));
    Append(person, Utf8(fields.familyName));
    Append(person, Utf8(fields.dateOfBirth));
    if (person.size() > kMaxShortFormLength) {
        error = "Personendaten zu lang";
        return false;
    }
    const std::vector<unsigned char> personSequence = DerElement(kTagSequence, person);

    std::vector<unsigned char> body;
    Append(body, Integer(fields.version));
    Append(body, Utf8(fields.issuerTemplate));
    Append(body, Utf8(fields.assertionId));
    Append(body, Utf8(fields.issueInstant));
    Append(body, DerElement(kTagContext0, personSequence));
    if (!fields.citizenPublicKey.empty())
        Append(body, DerElement(kTagSequence, fields.citizenPublicKey));
    const std::vector<unsigned char> signedPart = body;
    Append(body, BitString(fields.signatureValue));
    Append(body, DerElement(kTagContext0, BitString(Sha256(personSequence))));
    Append(body, DerElement(kTagContext1, BitString(Sha256(signedPart))));
    Append(body, DerElement(kTagContext2, BitString(Sha256(body))));

    std::vector<unsigned char> record = DerElement(kTagSequence, body);
    if (record.size() > kMaxIdentityLinkSize) {
        error = "Personenbindung zu gross";
        return false;
    }
    der.swap(record);
    return true;
}

} // namespace VessaPlus
