// The card generations the simulator can emulate and what sets them apart:
// the token's model and label, the ATR the chip answers with, the keys it is
// personalised with and which optional card features it has.
#pragma once

#include <string>
#include <vector>

namespace VessaSim {

enum class Generation { AcosA03, AcosA04, AcosA05, ECardG2, ECardG3A, ECardG3B, ECardG4, Internal };

enum class KeyAlgorithm { None, Rsa, Ec };

struct KeySpec {
    KeyAlgorithm algorithm = KeyAlgorithm::None;
    int bits = 0;  // RSA modulus size or EC field size (192 or 256)
};

struct GenerationProfile {
    Generation generation;
    const char* name;    // as written in card-set files, e.g. "ACOS-A04"
    const char* model;   // CK_TOKEN_INFO.model
    const char* label;   // default CK_TOKEN_INFO.label
    const char* atrHex;  // complete ATR
    KeySpec signatureKey;
    KeySpec encryptionKey;
    bool infoboxFile;        // keeps its infobox area as one "AIK" file
    bool hasPuk;             // PINs can be unblocked with a PUK
    bool reportsPinStatus;   // answers the "SicSig/GewSig PIN-Status" attributes
    bool socialInsuranceData;  // carries the e-card personal data records
    bool isCard;             // false for the module's internal token
};

const GenerationProfile& profileOf(Generation generation);
// Case-blind lookup by name; false when the name is unknown.
bool generationFromName(const std::string& name, Generation& out);
std::vector<Generation> allCardGenerations();

// Strict: an odd length or a non-hex character gives an empty result.
std::vector<unsigned char> hexToBytes(const std::string& hex);
// Upper-case digits, no separator.
std::string bytesToHex(const std::vector<unsigned char>& data);
// A character reference such as "&#0;" reads as a control character that no
// XML file can hold: a text with one could not be written back.
bool hasControlCharacter(const std::string& text);

} // namespace VessaSim
