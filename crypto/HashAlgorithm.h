// The digest selector shared by the hashing helpers, the certificate object
// and the token layer. The numbers are stored and passed between layers, so
// they never change (note the gap at 7 and SHA-384 after it).
#pragma once

namespace Korvex {

enum HashAlgorithm {
    HashSha1 = 0,
    HashRipemd160 = 1,
    HashSha224 = 2,
    HashSha256 = 3,
    HashSha512 = 4,
    HashMd5 = 5,
    HashMd4 = 6,
    HashNone = 7,
    HashSha384 = 8
    // Values above 8 select no digest. The token layer passes 10 for data
    // that arrives already hashed.
};

} // namespace Korvex
