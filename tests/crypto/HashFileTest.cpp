// HashFile: chunked reading of streams, read errors and the size protocol.
#include "crypto/Hash.h"
#include "crypto/LibCrypto.h"
#include "CryptoTestSupport.h"

#include <cstdio>
#include <cstring>

using namespace Korvex;
using CryptoTest::LogCapture;

namespace {

std::vector<unsigned char> Pattern(size_t size)
{
    std::vector<unsigned char> data(size);
    for (size_t i = 0; i < size; ++i)
        data[i] = static_cast<unsigned char>(i * 31 + 7);
    return data;
}

std::vector<unsigned char> Sha256(const std::vector<unsigned char>& data, size_t from = 0)
{
    std::vector<unsigned char> digest(32);
    unsigned long len = digest.size();
    static const unsigned char none = 0;
    EXPECT_TRUE(Hash(data.size() > from ? data.data() + from : &none, data.size() - from,
                     digest.data(), len, HashSha256));
    return digest;
}

// A stream over memory that records the size of every read and can fail
// once a number of bytes has been delivered.
struct ScriptedStream {
    std::vector<unsigned char> data;
    size_t position = 0;
    size_t failAfter = SIZE_MAX;
    std::vector<ssize_t> reads; // bytes returned by every read

    static ssize_t Read(void* cookie, char* buf, size_t size)
    {
        auto* self = static_cast<ScriptedStream*>(cookie);
        ssize_t result;
        if (self->position >= self->failAfter) {
            result = -1;
        } else {
            const size_t end = std::min(self->data.size(), self->failAfter);
            const size_t n = std::min(size, end - self->position);
            std::memcpy(buf, self->data.data() + self->position, n);
            self->position += n;
            result = static_cast<ssize_t>(n);
        }
        self->reads.push_back(result);
        return result;
    }

    FILE* Open()
    {
        cookie_io_functions_t io = {Read, nullptr, nullptr, nullptr};
        FILE* f = fopencookie(this, "r", io);
        // A buffer larger than any test stream: each read takes all that is
        // left, so the reads seen here follow the freads one to one.
        setvbuf(f, nullptr, _IOFBF, 1 << 16);
        return f;
    }
};

class HashFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        LogCapture::Lines().clear();
        LibCrypto::acPKCS11_SetErrorLoggingFunc(LogCapture::Hook);
    }
    void TearDown() override { LibCrypto::acPKCS11_SetErrorLoggingFunc(nullptr); }
};

} // namespace

TEST_F(HashFileTest, DigestsMatchAcrossChunkBoundaries)
{
    for (size_t size : {0, 1, 5011, 5012, 5013, 10024, 100000}) {
        SCOPED_TRACE(size);
        const std::vector<unsigned char> data = Pattern(size);
        FILE* f = tmpfile();
        ASSERT_NE(f, nullptr);
        if (!data.empty()) {
            ASSERT_EQ(fwrite(data.data(), 1, data.size(), f), data.size());
        }
        rewind(f);
        std::vector<unsigned char> out = {0x55};
        ASSERT_TRUE(HashFile(f, out, HashSha256));
        ASSERT_EQ(out.size(), 33u);
        EXPECT_EQ(out[0], 0x55);
        EXPECT_EQ(std::vector<unsigned char>(out.begin() + 1, out.end()), Sha256(data));
        EXPECT_EQ(fclose(f), 0); // the stream is left open for the caller
    }
}

TEST_F(HashFileTest, ReadsFromCurrentPositionAndAtEndGivesEmptyDigest)
{
    const std::vector<unsigned char> data = Pattern(7000);
    FILE* f = tmpfile();
    ASSERT_EQ(fwrite(data.data(), 1, data.size(), f), data.size());
    fseek(f, 100, SEEK_SET);
    unsigned char out[32];
    unsigned long outLen = sizeof(out);
    ASSERT_TRUE(HashFile(f, out, outLen, HashSha256));
    EXPECT_EQ(std::vector<unsigned char>(out, out + 32), Sha256(data, 100));

    // Already at the end: the empty message.
    ASSERT_TRUE(HashFile(f, out, outLen, HashSha256));
    EXPECT_EQ(std::vector<unsigned char>(out, out + 32), Sha256(data, data.size()));
    fclose(f);
}

TEST_F(HashFileTest, ExactChunkIsOneReadThenAnEmptyRead)
{
    ScriptedStream stream;
    stream.data = Pattern(5012);
    FILE* f = stream.Open();
    std::vector<unsigned char> out;
    ASSERT_TRUE(HashFile(f, out, HashSha256));
    EXPECT_EQ(out, Sha256(stream.data));
    EXPECT_EQ(stream.reads, (std::vector<ssize_t>{5012, 0}));
    fclose(f);
}

TEST_F(HashFileTest, ReadErrorLogsAndLeavesDigestOfWhatWasRead)
{
    ScriptedStream stream;
    stream.data = Pattern(20000);
    stream.failAfter = 5012;
    FILE* f = stream.Open();
    unsigned char out[32] = {};
    unsigned long outLen = sizeof(out);
    EXPECT_FALSE(HashFile(f, out, outLen, HashSha256));
    EXPECT_EQ(LogCapture::Lines(), std::vector<std::string>{"PKCS11 file read error"});
    EXPECT_EQ(std::vector<unsigned char>(out, out + 32),
              Sha256(std::vector<unsigned char>(stream.data.begin(), stream.data.begin() + 5012)));

    // The vector form appends nothing on failure.
    std::vector<unsigned char> vec;
    EXPECT_FALSE(HashFile(f, vec, HashSha256));
    EXPECT_TRUE(vec.empty());
    fclose(f);
}

TEST_F(HashFileTest, ArgumentChecks)
{
    unsigned char out[64];
    unsigned long outLen = sizeof(out);
    EXPECT_FALSE(HashFile(nullptr, out, outLen, HashSha1));
    FILE* f = tmpfile();
    EXPECT_FALSE(HashFile(f, nullptr, outLen, HashSha1));
    outLen = 47;
    EXPECT_FALSE(HashFile(f, out, outLen, HashSha384));
    EXPECT_EQ(outLen, 47u);
    EXPECT_FALSE(HashFile(f, out, outLen, HashNone));
    EXPECT_EQ(LogCapture::Lines(),
              (std::vector<std::string>{"PKCS11 infile is NULL", "PKCS11 output == NULL",
                                        "PKCS11 outputsize ist zu klein"}));
    outLen = 48;
    EXPECT_TRUE(HashFile(f, out, outLen, HashSha384));
    EXPECT_EQ(outLen, 48u);
    fclose(f);
}
