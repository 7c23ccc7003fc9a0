// Certificate times: the field-by-field conversion of ASN.1 times to seconds
// and the validity queries built on it.
//
// The conversion treats the fields as local standard time (mktime with no
// daylight saving) and the UTC breakdown afterwards does not undo that, so a
// time shows shifted by the local zone's standard offset; an offset written
// in the time is added for "+" and subtracted for "-". Logs and the token
// layer have always used these values, so the behaviour is kept as it is.
#include "crypto/slCertificate.h"

#include <openssl/asn1.h>
#include <openssl/x509.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Korvex {

namespace {

// The longest time text the conversion looks at.
constexpr int kTimeTextMax = 32;

struct TimeFields {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    char offsetSign = 0;
    int offsetHours = 0, offsetMinutes = 0;
};

int TwoDigitYear(const std::string& text)
{
    const int twoDigits = SubStrToInt(text, 0, 2);
    return twoDigits + 1900 < 1970 ? twoDigits + 2000 : twoDigits + 1900;
}

bool ReadUtcTime(const std::string& text, TimeFields& f)
{
    if (text.size() < 10)
        return false;
    f.year = TwoDigitYear(text);
    f.month = SubStrToInt(text, 2, 2);
    f.day = SubStrToInt(text, 4, 2);
    f.hour = SubStrToInt(text, 6, 2);
    f.minute = SubStrToInt(text, 8, 2);
    const char afterMinutes = text.size() > 10 ? text[10] : '\0';
    if (afterMinutes != 'Z' && afterMinutes != '+' && afterMinutes != '-')
        f.second = SubStrToInt(text, 10, 2);

    size_t sign = text.find('+');
    if (sign == std::string::npos)
        sign = text.find('-');
    // The sign is read from the character before the "+" or "-", which is a
    // digit in every well-formed time, so a UTCTime offset is in effect never
    // applied.
    if (sign != std::string::npos && sign > 0) {
        f.offsetSign = text[sign - 1];
        f.offsetHours = SubStrToInt(text, static_cast<int>(sign), 2);
        if (text.size() - (sign - 1) >= 5)
            f.offsetMinutes = SubStrToInt(text, static_cast<int>(sign) + 2, 2);
    }
    return true;
}

void ReadGeneralizedTime(const std::string& text, TimeFields& f)
{
    if (text.size() == 12) {
        f.year = TwoDigitYear(text);
        f.month = SubStrToInt(text, 2, 2);
        f.day = SubStrToInt(text, 4, 2);
        f.hour = SubStrToInt(text, 6, 2);
        f.minute = SubStrToInt(text, 8, 2);
        f.second = SubStrToInt(text, 10, 2);
    } else {
        f.year = SubStrToInt(text, 0, 4);
        f.month = SubStrToInt(text, 4, 2);
        f.day = SubStrToInt(text, 6, 2);
        f.hour = SubStrToInt(text, 8, 2);
        f.minute = SubStrToInt(text, 10, 2);
        f.second = SubStrToInt(text, 12, 2);
    }
    // Only the layout with three fraction digits carries an offset here.
    if (text.size() == 23) {
        f.offsetSign = text[18];
        f.offsetHours = SubStrToInt(text, 19, 2);
        f.offsetMinutes = SubStrToInt(text, 21, 2);
    }
}

void SetAllZero(unsigned short& year, unsigned short& month, unsigned short& day,
                unsigned short& hour, unsigned short& minute, unsigned short& second)
{
    year = month = day = hour = minute = second = 0;
}

} // namespace

int SubStrToInt(const std::string& text, int start, int len)
{
    if (len > 4 || len < 0 || start < 0 || static_cast<size_t>(start) >= text.size())
        return 0;
    const std::string digits = text.substr(static_cast<size_t>(start), static_cast<size_t>(len));
    return static_cast<int>(std::strtol(digits.c_str(), nullptr, 10));
}

time_t ASN1_TIME_to_time_t(const ASN1_STRING* time)
{
    if (!time)
        return 0;
    const int length = ASN1_STRING_length(time);
    const unsigned char* data = ASN1_STRING_get0_data(time);
    // No well-formed time is that long. The text comes from the card, so an
    // over-long one is refused instead of ending the program.
    if (length < 0 || length > kTimeTextMax || (length > 0 && !data))
        return 0;
    // The text ends at its first zero byte, as a C text would.
    char buffer[kTimeTextMax + 1] = {};
    if (length > 0)
        std::memcpy(buffer, data, static_cast<size_t>(length));
    const std::string text(buffer);

    TimeFields fields;
    switch (ASN1_STRING_type(time)) {
    case V_ASN1_UTCTIME:
        if (!ReadUtcTime(text, fields))
            return 0;
        break;
    case V_ASN1_GENERALIZEDTIME:
        ReadGeneralizedTime(text, fields);
        break;
    default:
        return 0;
    }

    struct tm broken = {};
    broken.tm_year = fields.year - 1900;
    broken.tm_mon = fields.month - 1;
    broken.tm_mday = fields.day;
    broken.tm_hour = fields.hour;
    broken.tm_min = fields.minute;
    broken.tm_sec = fields.second;
    broken.tm_isdst = 0;
    time_t seconds = mktime(&broken);

    const long offset = fields.offsetHours * 3600L + fields.offsetMinutes * 60L;
    if (fields.offsetSign == '-')
        seconds -= offset;
    else if (fields.offsetSign == '+')
        seconds += offset;
    return seconds;
}

void slCertificate::Asn1TimeToTimeParts(const ASN1_TIME* time, unsigned short& year,
                                        unsigned short& month, unsigned short& day,
                                        unsigned short& hour, unsigned short& minute,
                                        unsigned short& second) const
{
    SetAllZero(year, month, day, hour, minute, second);
    const time_t seconds = ASN1_TIME_to_time_t(time);
    struct tm broken = {};
    if (!gmtime_r(&seconds, &broken))
        return;
    year = static_cast<unsigned short>(broken.tm_year + 1900);
    month = static_cast<unsigned short>(broken.tm_mon + 1);
    day = static_cast<unsigned short>(broken.tm_mday);
    hour = static_cast<unsigned short>(broken.tm_hour);
    minute = static_cast<unsigned short>(broken.tm_min);
    second = static_cast<unsigned short>(broken.tm_sec);
}

std::string slCertificate::Asn1TimeToString(const ASN1_TIME* time) const
{
    unsigned short year, month, day, hour, minute, second;
    Asn1TimeToTimeParts(time, year, month, day, hour, minute, second);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour,
                  minute, second);
    return text;
}

void slCertificate::ValidFrom(unsigned short& year, unsigned short& month, unsigned short& day,
                              unsigned short& hour, unsigned short& minute,
                              unsigned short& second) const
{
    SetAllZero(year, month, day, hour, minute, second);
    if (m_x509)
        Asn1TimeToTimeParts(X509_get0_notBefore(m_x509), year, month, day, hour, minute, second);
}

void slCertificate::ValidTo(unsigned short& year, unsigned short& month, unsigned short& day,
                            unsigned short& hour, unsigned short& minute,
                            unsigned short& second) const
{
    SetAllZero(year, month, day, hour, minute, second);
    if (m_x509)
        Asn1TimeToTimeParts(X509_get0_notAfter(m_x509), year, month, day, hour, minute, second);
}

std::string slCertificate::ValidFrom() const
{
    return m_x509 ? Asn1TimeToString(X509_get0_notBefore(m_x509)) : "";
}

std::string slCertificate::ValidTo() const
{
    return m_x509 ? Asn1TimeToString(X509_get0_notAfter(m_x509)) : "";
}

bool slCertificate::IsValid(const long& now) const
{
    if (!m_x509)
        return false;
    // Both ends count as valid.
    return ASN1_TIME_to_time_t(X509_get0_notBefore(m_x509)) <= now &&
           ASN1_TIME_to_time_t(X509_get0_notAfter(m_x509)) >= now;
}

} // namespace Korvex
