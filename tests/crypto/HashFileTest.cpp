// HashFile: chunked reading of a stream from its current position.
#include "crypto/Hash.h"
#include "crypto/LibCrypto.h"
#include "CryptoTestSupport.h"

#include <cstring>

using namespace Korvex;
using namespace CryptoTest;

namespace {

Bytes Pattern(size_t size)
{
    Bytes data(size);
    for (size_t i = 0; i < size; ++i)
        data[i] = static_cast<unsigned char>(i * 31 + 7);
    return data;
}

Bytes Sha256(const Bytes& data, size_t from, size_t to)
{
    static const unsigned char none = 0;
    Bytes digest(32);
    unsigned long len = 32;
    EXPECT_TRUE(Hash(to > from ? &data[from] : &none, to - from, digest.data(), len, HashSha256));
    return digest;
}

} // namespace

TEST(HashFile, DigestsFromTheCurrentPositionAcrossChunkBoundaries)
{
    for (size_t size : {0, 5011, 5012, 5013, 10024, 100000}) {
        const Bytes data = Pattern(size + 100);
        FILE* f = tmpfile();
        ASSERT_EQ(fwrite(data.data(), 1, data.size(), f), data.size());
        fseek(f, 100, SEEK_SET);
        Bytes out = {0x55}, expected = {0x55};
        ASSERT_TRUE(HashFile(f, out, HashSha256));
        const Bytes digest = Sha256(data, 100, data.size());
        expected.insert(expected.end(), digest.begin(), digest.end());
        EXPECT_EQ(out, expected) << size;
        // Now at the end: the empty message. The stream stays open.
        unsigned char buf[32];
        unsigned long len = sizeof(buf);
        ASSERT_TRUE(HashFile(f, buf, len, HashSha256));
        EXPECT_EQ(Bytes(buf, buf + 32), Sha256(data, 0, 0));
        EXPECT_EQ(fclose(f), 0);
    }
}
