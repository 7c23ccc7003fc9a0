// Key numbers as text: "digest <sha256 of the PEM>", "type RSA|EC", then one
// "<parameter> <hex>" line per number (EC: the group name as text).
#include "sim/KeyNumbers.h"

#include "sim/SimPaths.h"

#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/sha.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>

namespace VessaSim {

namespace {

const char* const kRsaNumbers[] = {
    OSSL_PKEY_PARAM_RSA_N,        OSSL_PKEY_PARAM_RSA_E,        OSSL_PKEY_PARAM_RSA_D,
    OSSL_PKEY_PARAM_RSA_FACTOR1,  OSSL_PKEY_PARAM_RSA_FACTOR2,  OSSL_PKEY_PARAM_RSA_EXPONENT1,
    OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1,
};

std::string hexOf(const unsigned char* data, size_t size) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0x0F];
    }
    return text;
}

bool bytesOf(const std::string& hex, std::vector<unsigned char>& out) {
    if (hex.size() % 2 != 0) return false;
    out.clear();
    for (size_t i = 0; i < hex.size(); i += 2) {
        const std::string pair = hex.substr(i, 2);
        char* end = nullptr;
        const unsigned long value = std::strtoul(pair.c_str(), &end, 16);
        if (end != pair.c_str() + 2) return false;
        out.push_back(static_cast<unsigned char>(value));
    }
    return true;
}

std::string digestOf(const std::vector<unsigned char>& pem) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(pem.data(), pem.size(), digest);
    return hexOf(digest, sizeof(digest));
}

std::string bignumHex(EVP_PKEY* key, const char* name) {
    BIGNUM* number = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &number) != 1) return "";
    BignumPtr owned(number);
    char* hex = BN_bn2hex(number);
    std::string text = hex != nullptr ? hex : "";
    OPENSSL_free(hex);
    return text;
}

struct ParamBuildFree {
    void operator()(OSSL_PARAM_BLD* p) const { OSSL_PARAM_BLD_free(p); }
    void operator()(OSSL_PARAM* p) const { OSSL_PARAM_free(p); }
};

} // namespace

PkeyPtr loadKeyNumbers(const std::string& path, const std::vector<unsigned char>& pem) {
    std::string text;
    if (!readWholeFile(path, text)) return nullptr;
    std::map<std::string, std::string> fields;
    std::istringstream lines(text);
    for (std::string name, value; lines >> name >> value;) fields[name] = value;
    if (fields["digest"] != digestOf(pem)) return nullptr;

    const std::string type = fields["type"];
    std::unique_ptr<OSSL_PARAM_BLD, ParamBuildFree> build(OSSL_PARAM_BLD_new());
    std::vector<BignumPtr> numbers;
    std::vector<unsigned char> point;
    if (!build) return nullptr;
    auto pushNumber = [&](const char* name) {
        BIGNUM* number = nullptr;
        if (fields[name].empty() || BN_hex2bn(&number, fields[name].c_str()) == 0) return false;
        numbers.emplace_back(number);
        return OSSL_PARAM_BLD_push_BN(build.get(), name, number) == 1;
    };
    if (type == "RSA") {
        for (const char* name : kRsaNumbers)
            if (!pushNumber(name)) return nullptr;
    } else if (type == "EC") {
        const std::string& group = fields[OSSL_PKEY_PARAM_GROUP_NAME];
        if (group.empty() || !pushNumber(OSSL_PKEY_PARAM_PRIV_KEY) ||
            !bytesOf(fields[OSSL_PKEY_PARAM_PUB_KEY], point) || point.empty() ||
            OSSL_PARAM_BLD_push_utf8_string(build.get(), OSSL_PKEY_PARAM_GROUP_NAME, group.c_str(), 0) != 1 ||
            OSSL_PARAM_BLD_push_octet_string(build.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size()) != 1)
            return nullptr;
    } else {
        return nullptr;
    }
    std::unique_ptr<OSSL_PARAM, ParamBuildFree> params(OSSL_PARAM_BLD_to_param(build.get()));
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, type.c_str(), nullptr));
    EVP_PKEY* key = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_KEYPAIR, params.get()) != 1)
        return nullptr;
    return PkeyPtr(key);
}

void saveKeyNumbers(const std::string& path, EVP_PKEY* key, const std::vector<unsigned char>& pem) {
    std::ostringstream text;
    text << "digest " << digestOf(pem) << '\n';
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA) {
        text << "type RSA\n";
        for (const char* name : kRsaNumbers) {
            const std::string hex = bignumHex(key, name);
            if (hex.empty()) return;
            text << name << ' ' << hex << '\n';
        }
    } else if (EVP_PKEY_get_base_id(key) == EVP_PKEY_EC) {
        char group[80] = {};
        size_t groupLength = 0;
        unsigned char point[256];
        size_t pointLength = 0;
        const std::string priv = bignumHex(key, OSSL_PKEY_PARAM_PRIV_KEY);
        if (EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof(group), &groupLength) != 1 ||
            EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point, sizeof(point), &pointLength) != 1 ||
            priv.empty())
            return;
        text << "type EC\n"
             << OSSL_PKEY_PARAM_GROUP_NAME << ' ' << group << '\n'
             << OSSL_PKEY_PARAM_PRIV_KEY << ' ' << priv << '\n'
             << OSSL_PKEY_PARAM_PUB_KEY << ' ' << hexOf(point, pointLength) << '\n';
    } else {
        return;
    }
    writeFileAtomically(path, text.str());
}

} // namespace VessaSim
