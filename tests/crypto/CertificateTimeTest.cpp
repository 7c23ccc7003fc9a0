// Certificate times: the field-wise conversion with its local-time and sign
// rules, the validity queries and SubStrToInt.
#include "CryptoTestSupport.h"

#include <openssl/asn1.h>
#include <openssl/x509.h>

using namespace Korvex;
using namespace CryptoTest;

namespace {

time_t Convert(int type, const std::string& text)
{
    ASN1_STRING* s = ASN1_STRING_type_new(type);
    ASN1_STRING_set(s, text.data(), static_cast<int>(text.size()));
    const time_t result = ASN1_TIME_to_time_t(s);
    ASN1_STRING_free(s);
    return result;
}

time_t Utc(int y, int mo, int d, int h, int mi, int s)
{
    struct tm t = {};
    t.tm_year = y - 1900, t.tm_mon = mo - 1, t.tm_mday = d, t.tm_hour = h, t.tm_min = mi, t.tm_sec = s;
    return timegm(&t);
}

} // namespace

TEST(CertificateTime, UtcTime)
{
    EXPECT_EQ((std::vector<int>{SubStrToInt("20300101", 0, 4), SubStrToInt("2030010100", 0, 5),
                                SubStrToInt("12", 1, 4), SubStrToInt("12", 7, 2), SubStrToInt("+0130", 0, 2)}),
              (std::vector<int>{2030, 0, 2, 0, 0})); // at most 4 characters, clipped, "+0"
    TimeZoneGuard zone("UTC0");
    // Two-digit years below 70 belong to this century.
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "491231235959Z"), Utc(2049, 12, 31, 23, 59, 59));
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "690101000000Z"), Utc(2069, 1, 1, 0, 0, 0));
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "991231235959Z"), Utc(1999, 12, 31, 23, 59, 59));
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "2001020304Z"), Utc(2020, 1, 2, 3, 4, 0));
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "200102030"), 0); // shorter than 10
    // The sign is the character before the "+" or "-": a digit, so no offset.
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "200101000000+0130"), Utc(2020, 1, 1, 0, 0, 0));
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "200101000000-0130"), Utc(2020, 1, 1, 0, 0, 0));
    // Here it is "-": hours read from "+0" (0), minutes from "13".
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "2001010000-+0130"), Utc(2020, 1, 1, 0, 0, 0) - 13 * 60);
}

TEST(CertificateTime, GeneralizedTime)
{
    TimeZoneGuard zone("UTC0");
    EXPECT_EQ(Convert(V_ASN1_GENERALIZEDTIME, "20300101000000Z"), Utc(2030, 1, 1, 0, 0, 0));
    EXPECT_EQ(Convert(V_ASN1_GENERALIZEDTIME, "300102030405"), Utc(2030, 1, 2, 3, 4, 5));
    EXPECT_EQ(Convert(V_ASN1_GENERALIZEDTIME, "20300101000000+0130"), Utc(2030, 1, 1, 0, 0, 0));
    // Only the 23-character layout carries an offset, added for "+".
    EXPECT_EQ(Convert(V_ASN1_GENERALIZEDTIME, "20300101000000.000+0130"), Utc(2030, 1, 1, 1, 30, 0));
    EXPECT_EQ(Convert(V_ASN1_GENERALIZEDTIME, "20300101000000.000-0130"), Utc(2029, 12, 31, 22, 30, 0));
    EXPECT_EQ(Convert(V_ASN1_GENERALIZEDTIME, "20300101000000.000x0130"), Utc(2030, 1, 1, 0, 0, 0));
    // Unusable: no time type, longer than 32, cut short by a zero byte.
    EXPECT_EQ(ASN1_TIME_to_time_t(nullptr), 0);
    EXPECT_EQ(Convert(V_ASN1_OCTET_STRING, "20300101000000Z"), 0);
    EXPECT_EQ(Convert(V_ASN1_GENERALIZEDTIME, std::string(40, '1')), 0);
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, std::string("20010100\0" "00Z", 12)), 0);
}

TEST(CertificateTime, LocalStandardOffsetShiftsTheShownTime)
{
    slCertificate ee = Load("ee-rsa"), ec = Load("ee-ec", ".pem");
    {
        TimeZoneGuard zone("UTC0");
        EXPECT_EQ(ee.ValidFrom(), "2020-01-01 00:00:00");
        EXPECT_EQ(ee.ValidTo(), "2049-12-31 23:59:59");
        EXPECT_EQ(ec.ValidTo(), "2050-01-01 00:00:00"); // GeneralizedTime
    }
    {
        TimeZoneGuard zone("XST-1"); // one hour east of UTC
        EXPECT_EQ(ee.ValidFrom(), "2019-12-31 23:00:00");
        unsigned short y, mo, d, h, mi, s;
        ee.ValidTo(y, mo, d, h, mi, s);
        EXPECT_EQ(std::vector<int>({y, mo, d, h, mi, s}), std::vector<int>({2049, 12, 31, 22, 59, 59}));
    }
    {
        TimeZoneGuard zone("CET-1CEST,M3.5.0,M10.5.0/3"); // summer time never applies
        EXPECT_EQ(ec.ValidFrom(), "2020-06-15 11:30:45");
    }
    unsigned short y = 9, mo = 9, d = 9, h = 9, mi = 9, s = 9;
    slCertificate().ValidFrom(y, mo, d, h, mi, s);
    EXPECT_EQ(std::vector<int>({y, mo, d, h, mi, s}), std::vector<int>(6, 0));
}

TEST(CertificateTime, IsValidIncludesBothEnds)
{
    TimeZoneGuard zone("XST-1");
    slCertificate ec = Load("ee-ec");
    const long from = ASN1_TIME_to_time_t(X509_get0_notBefore(ec.GetX509()));
    const long to = ASN1_TIME_to_time_t(X509_get0_notAfter(ec.GetX509()));
    EXPECT_EQ(from, Utc(2020, 6, 15, 11, 30, 45));
    EXPECT_EQ(to, Utc(2049, 12, 31, 23, 0, 0));
    EXPECT_TRUE(ec.IsValid(from) && ec.IsValid(to));
    EXPECT_FALSE(ec.IsValid(from - 1) || ec.IsValid(to + 1));
}
