// Case-blind comparison, trimming, replacing and line-end helpers. All work
// byte by byte with the "C" locale rules, whatever locale the program set.
#include "base/Conversion.h"

#include <cstring>
#include <stdexcept>

namespace Korvex {

namespace {

bool IsSpaceC(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

char ToLowerC(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

char ToUpperC(char c)
{
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

} // namespace

std::string Str2Upper(std::string s)
{
    for (char& c : s)
        c = ToUpperC(c);
    return s;
}

std::string Str2Lower(std::string s)
{
    for (char& c : s)
        c = ToLowerC(c);
    return s;
}

int nocase_cmp(const std::string& a, const std::string& b, int n)
{
    const std::string la = Str2Lower(a);
    const std::string lb = Str2Lower(b);
    if (n >= 1)
        return std::strncmp(la.c_str(), lb.c_str(), static_cast<std::size_t>(n));
    return std::strcmp(la.c_str(), lb.c_str());
}

std::string::size_type nocase_find(const std::string& hay, const std::string& needle, int pos)
{
    return Str2Lower(hay).find(Str2Lower(needle), static_cast<std::string::size_type>(pos));
}

bool nocase_StartsWith(const std::string& s, const std::string& prefix)
{
    // The case-sensitive pre-test makes "ABC"/"a" false but "abc"/"A" true;
    // that asymmetry is long-standing behaviour and kept.
    if (prefix.compare(s) > 0)
        return false;
    const std::string head = Str2Lower(s.substr(0, prefix.size()));
    return std::strcmp(head.c_str(), Str2Lower(prefix).c_str()) == 0;
}

bool nocase_EndsWith(const std::string& s, const std::string& suffix)
{
    if (suffix.compare(s) > 0)
        return false;
    if (suffix.size() > s.size())
        throw std::out_of_range("nocase_EndsWith: suffix longer than text");
    const std::string tail = Str2Lower(s.substr(s.size() - suffix.size()));
    return std::strcmp(tail.c_str(), Str2Lower(suffix).c_str()) == 0;
}

std::string stripXMLRequest(std::string s)
{
    const std::string::size_type first = s.find('<');
    if (first != std::string::npos)
        s.erase(0, first);
    const std::string::size_type last = s.rfind('>');
    if (last != std::string::npos)
        s.erase(last + 1);
    return s;
}

std::string TrimSpaces(std::string s)
{
    // Range-checked on purpose: an empty or all-blank text throws.
    while (IsSpaceC(s.at(0)))
        s.erase(0, 1);
    while (IsSpaceC(s.at(s.size() - 1)))
        s.erase(s.size() - 1);
    return s;
}

void RemoveTrailingSpaces(std::string& s)
{
    std::string::size_type keep = s.size();
    while (keep > 0 && IsSpaceC(s[keep - 1]))
        --keep;
    s.erase(keep);
}

std::string replaceAll(std::string s, std::string from, std::string to)
{
    if (from.empty())
        return s;
    std::string::size_type pos = 0;
    while ((pos = s.find(from, pos)) != std::string::npos) {
        s = s.substr(0, pos) + to + s.substr(pos + from.size());
        pos += to.size();
    }
    return s;
}

void Do_LF_LineEnding(std::string& s)
{
    s = replaceAll(s, "\r\n", "\n");
}

void Do_CR_LF_LineEnding(std::string& s)
{
    Do_LF_LineEnding(s);
    s = replaceAll(s, "\n", "\r\n");
}

} // namespace Korvex
