// Command APDU interpreter of the simulated chip (short APDUs only).
#include "sim/Apdu.h"

#include <openssl/rand.h>
#include <openssl/sha.h>

namespace VessaSim {

namespace {

constexpr unsigned short kMasterFile = 0x3F00;
constexpr unsigned short kCardDataDf = 0xDF71;
constexpr unsigned short kCardNumberEf = 0xD001;

using Bytes = std::vector<unsigned char>;

Bytes status(unsigned short word) {
    return {static_cast<unsigned char>(word >> 8), static_cast<unsigned char>(word & 0xFF)};
}

Bytes withStatus(Bytes data, unsigned short word) {
    data.push_back(static_cast<unsigned char>(word >> 8));
    data.push_back(static_cast<unsigned char>(word & 0xFF));
    return data;
}

struct Command {
    unsigned char cla, ins, p1, p2;
    Bytes data;
    bool hasLe = false;
    size_t le = 0;  // 0 with hasLe means 256
};

// Short APDU cases 1 to 4; false when the length bytes do not add up.
bool parseCommand(const unsigned char* raw, size_t length, Command& out) {
    if (length < 4) return false;
    out.cla = raw[0];
    out.ins = raw[1];
    out.p1 = raw[2];
    out.p2 = raw[3];
    if (length == 4) return true;
    if (length == 5) {
        out.hasLe = true;
        out.le = raw[4] == 0 ? 256 : raw[4];
        return true;
    }
    size_t lc = raw[4];
    if (lc == 0) return false;  // extended length is not supported
    if (length == 5 + lc) {
        out.data.assign(raw + 5, raw + 5 + lc);
        return true;
    }
    if (length == 6 + lc) {
        out.data.assign(raw + 5, raw + 5 + lc);
        out.hasLe = true;
        out.le = raw[5 + lc] == 0 ? 256 : raw[5 + lc];
        return true;
    }
    return false;
}

// File control parameters for SELECT with P2 = 00.
Bytes controlParameters(unsigned short file, bool dedicated, size_t size) {
    Bytes fcp = {0x83, 0x02, static_cast<unsigned char>(file >> 8), static_cast<unsigned char>(file & 0xFF)};
    if (dedicated) {
        fcp.insert(fcp.end(), {0x82, 0x01, 0x38});
    } else {
        fcp.insert(fcp.end(), {0x82, 0x01, 0x01, 0x80, 0x02, static_cast<unsigned char>(size >> 8),
                               static_cast<unsigned char>(size & 0xFF)});
    }
    Bytes out = {0x62, static_cast<unsigned char>(fcp.size())};
    out.insert(out.end(), fcp.begin(), fcp.end());
    return out;
}

Bytes select(Card& card, const Command& command) {
    if (command.p1 == 0x04) return status(0x6A82);  // no application by that name
    if (command.p1 != 0x00 || (command.p2 != 0x0C && command.p2 != 0x00)) return status(0x6A86);
    if (command.data.size() != 2) return status(0x6700);
    const unsigned short file = static_cast<unsigned short>(command.data[0] << 8 | command.data[1]);
    bool dedicated = true;
    if (file == kMasterFile) {
        card.selectedFile = kMasterFile;
        card.elementaryFileSelected = false;
    } else if (file == kCardDataDf) {
        card.selectedFile = kCardDataDf;
        card.elementaryFileSelected = false;
    } else if (file == kCardNumberEf && card.selectedFile == kCardDataDf && !card.elementaryFileSelected) {
        card.elementaryFileSelected = true;
        dedicated = false;
    } else if (file == kCardNumberEf && card.elementaryFileSelected) {
        dedicated = false;  // reselecting the current EF
    } else {
        return status(0x6A82);
    }
    if (command.p2 == 0x0C) return status(0x9000);
    return withStatus(controlParameters(file, dedicated, cardNumberFile(card).size()), 0x9000);
}

Bytes readBinary(Card& card, const Command& command) {
    if (command.p1 & 0x80) return status(0x6981);  // short EF identifiers are not offered
    if (!card.elementaryFileSelected) return status(0x6986);
    if (!command.data.empty()) return status(0x6700);
    const Bytes content = cardNumberFile(card);
    const size_t offset = static_cast<size_t>(command.p1) << 8 | command.p2;
    if (offset > content.size()) return status(0x6B00);
    const size_t wanted = command.hasLe ? command.le : 256;
    const size_t available = content.size() - offset;
    Bytes data(content.begin() + static_cast<long>(offset),
               content.begin() + static_cast<long>(offset + std::min(wanted, available)));
    // Le 00 means "up to 256"; a smaller explicit Le that runs past the end
    // is answered with what there is and a warning.
    const bool shortRead = wanted > available && command.le != 256;
    return withStatus(data, shortRead ? 0x6282 : 0x9000);
}

Bytes verify(Card& card, const Command& command) {
    if (command.p1 != 0x00) return status(0x6A86);
    PinIndex index;
    switch (command.p2) {
    case 0x81: index = PinSignature; break;
    case 0x82: index = PinEncryption; break;
    case 0x83: index = PinIdentityLink; break;
    default: return status(0x6A88);
    }
    if (command.data.empty()) {
        const PinState& pin = card.pin(index);
        if (pin.locked()) return status(0x6983);
        return status(static_cast<unsigned short>(0x63C0 | (pin.tries & 0x0F)));
    }
    const std::string entered(command.data.begin(), command.data.end());
    CK_RV rv = CKR_OK;
    card.updateState([&] {
        PinState& pin = card.pin(index);
        const int before = pin.tries;
        rv = verifyPin(pin, entered);
        return pin.tries != before;
    });
    const PinState& pin = card.pin(index);
    switch (rv) {
    case CKR_OK: return status(0x9000);
    case CKR_PIN_LOCKED: return status(0x6983);
    case CKR_PIN_LEN_RANGE: return status(0x6A80);
    default: return status(static_cast<unsigned short>(0x63C0 | (pin.tries & 0x0F)));
    }
}

Bytes getChallenge(const Command& command) {
    if (command.p1 != 0 || command.p2 != 0) return status(0x6A86);
    if (!command.hasLe || !command.data.empty()) return status(0x6700);
    Bytes random(command.le);
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) return status(0x6F00);
    return withStatus(random, 0x9000);
}

} // namespace

Bytes cardNumberFile(const Card& card) {
    Bytes content = hexToBytes(card.serial());
    content.resize(8, 0);
    // The chip serial is a fixed function of the card number here.
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(content.data(), content.size(), digest);
    content.insert(content.end(), digest, digest + 8);
    return content;
}

Bytes processApdu(Card& card, const unsigned char* raw, size_t length) {
    Command command;
    if (!parseCommand(raw, length, command)) return status(0x6700);
    if (command.cla != 0x00) return status(0x6E00);
    switch (command.ins) {
    case 0xA4: return select(card, command);
    case 0xB0: return readBinary(card, command);
    case 0x20: return verify(card, command);
    case 0x84: return getChallenge(command);
    case 0xC0: return status(0x6985);  // nothing pending
    default: return status(0x6D00);
    }
}

} // namespace VessaSim
