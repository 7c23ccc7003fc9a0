// Profiles of the card generations. ATRs carry the historical bytes and check
// byte of the chips; the card-type detection of the program keys on their
// leading bytes.
#include "sim/Generation.h"

#include "base/Conversion.h"

#include <algorithm>

#include <strings.h>

namespace VessaSim {

namespace {

const GenerationProfile kProfiles[] = {
    {Generation::AcosA03, "ACOS-A03", "ACOS EMV-A03", "vessa premium Signaturkarte",
     "3BBF11008131FE45455041000000000000000000000003F2", {KeyAlgorithm::Rsa, 1536},
     {KeyAlgorithm::Ec, 192}, false, true, false, false, true},
    {Generation::AcosA04, "ACOS-A04", "ACOS EMV-A04", "vessa premium Signaturkarte",
     "3BBF11008131FE45455041000000000000000000000004F5", {KeyAlgorithm::Rsa, 1536},
     {KeyAlgorithm::Ec, 256}, true, true, false, false, true},
    {Generation::AcosA05, "ACOS-A05", "ACOS EMV-A05", "vessa premium Signaturkarte",
     "3BBF11008131FE45455041000000000000000000000005F4", {KeyAlgorithm::Rsa, 1536},
     {KeyAlgorithm::Ec, 256}, true, true, false, false, true},
    {Generation::ECardG2, "ECARD-G2", "Starcos SPK 3.1", "vessa premium e-Card",
     "3BBF94008131FE65454C55204175737472696129312E313B", {KeyAlgorithm::Ec, 192},
     {KeyAlgorithm::Ec, 192}, false, false, false, true, true},
    {Generation::ECardG3A, "ECARD-G3A", "Starcos SPK 3.4", "vessa premium e-Card",
     "3BBD18008131FE45805102670518B102020201810531", {KeyAlgorithm::Rsa, 1536},
     {KeyAlgorithm::Ec, 256}, false, false, true, true, true},
    {Generation::ECardG3B, "ECARD-G3B", "Starcos SPK 3.4+", "vessa premium e-Card",
     "3BDD96FF81B1FE451F038031B052020364041BB422810518", {KeyAlgorithm::Rsa, 1536},
     {KeyAlgorithm::Ec, 256}, true, false, true, true, true},
    {Generation::ECardG4, "ECARD-G4", "ATOS 5.3", "vessa premium e-Card",
     "3BDF18008131FE588031B05202046405C903AC73B7B1D422", {KeyAlgorithm::Rsa, 2048},
     {KeyAlgorithm::Ec, 256}, true, false, true, true, true},
    {Generation::Internal, "INTERNAL", "Vessa Internal", "vessa interner Speicher", "",
     {KeyAlgorithm::None, 0}, {KeyAlgorithm::None, 0}, false, false, false, false, false},
};

} // namespace

const GenerationProfile& profileOf(Generation generation) {
    for (const auto& profile : kProfiles) {
        if (profile.generation == generation) return profile;
    }
    return kProfiles[0];
}

bool generationFromName(const std::string& name, Generation& out) {
    for (const auto& profile : kProfiles) {
        if (strcasecmp(profile.name, name.c_str()) == 0) {
            out = profile.generation;
            return true;
        }
    }
    return false;
}

std::vector<Generation> allCardGenerations() {
    std::vector<Generation> result;
    for (const auto& profile : kProfiles) {
        if (profile.isCard) result.push_back(profile.generation);
    }
    return result;
}

std::vector<unsigned char> hexToBytes(const std::string& hex) {
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::vector<unsigned char> out;
    if (hex.size() % 2 != 0) return out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        int high = nibble(hex[i]);
        int low = nibble(hex[i + 1]);
        if (high < 0 || low < 0) return {};
        out.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return out;
}

std::string bytesToHex(const std::vector<unsigned char>& data) {
    std::string out;
    Korvex::BinData2HexStr(data, out);
    return out;
}

bool hasControlCharacter(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

} // namespace VessaSim
