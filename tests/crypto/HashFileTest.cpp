// HashFile: chunked reading of streams, read errors and the size protocol.
#include "crypto/Hash.h"
#include "crypto/LibCrypto.h"
#include "CryptoTestSupport.h"

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

// A stream over memory that records what every read returned and fails once
// failAfter bytes have been delivered. Its buffer is larger than any stream
// here, so every read takes all that is left.
struct ScriptedStream {
    explicit ScriptedStream(Bytes bytes, size_t fail = SIZE_MAX) : data(bytes), failAfter(fail) {}
    Bytes data;
    size_t failAfter, position = 0;
    std::vector<ssize_t> reads;

    static ssize_t Read(void* cookie, char* buf, size_t size)
    {
        auto* self = static_cast<ScriptedStream*>(cookie);
        const size_t end = std::min(self->data.size(), self->failAfter);
        const ssize_t n = self->position < self->failAfter ? std::min(size, end - self->position) : -1;
        if (n > 0)
            std::memcpy(buf, &self->data[self->position], n), self->position += n;
        self->reads.push_back(n);
        return n;
    }
    FILE* Open()
    {
        FILE* f = fopencookie(this, "r", cookie_io_functions_t{Read, nullptr, nullptr, nullptr});
        setvbuf(f, nullptr, _IOFBF, 1 << 16);
        return f;
    }
};

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

TEST(HashFile, ReadErrorFailsButLeavesDigestOfWhatWasRead)
{
    LogCapture log(LibCrypto::acPKCS11_SetErrorLoggingFunc);
    ScriptedStream stream{Pattern(20000), 5012};
    FILE* f = stream.Open();
    unsigned char out[32] = {};
    unsigned long outLen = sizeof(out);
    EXPECT_FALSE(HashFile(f, out, outLen, HashSha256));
    EXPECT_EQ(Bytes(out, out + 32), Sha256(stream.data, 0, 5012));
    Bytes vec;
    EXPECT_FALSE(HashFile(f, vec, HashSha256));
    EXPECT_TRUE(vec.empty());

    // Argument checks log their own texts.
    outLen = 47;
    EXPECT_FALSE(HashFile(nullptr, out, outLen, HashSha1));
    EXPECT_FALSE(HashFile(f, nullptr, outLen, HashSha1));
    EXPECT_FALSE(HashFile(f, out, outLen, HashSha384));
    EXPECT_EQ(outLen, 47u);
    EXPECT_FALSE(HashFile(f, out, outLen, HashNone));
    EXPECT_EQ(LogCapture::all(),
              (std::vector<std::string>{"PKCS11 file read error", "PKCS11 file read error",
                                        "PKCS11 infile is NULL", "PKCS11 output == NULL",
                                        "PKCS11 outputsize ist zu klein"}));
    fclose(f);
}
