// The card set of the refresh benchmarks: `count` readers, each with a card
// of the seven generations in turn. The serials are the same for every
// benchmark, so they share the simulator's store of generated keys.
#pragma once

#include <cstdio>
#include <fstream>
#include <string>

inline void WriteBenchCardSet(const std::string& path, int count)
{
    static const char* const kGenerations[] = {"ACOS-A03", "ACOS-A04",  "ACOS-A05", "ECARD-G2",
                                               "ECARD-G3A", "ECARD-G3B", "ECARD-G4"};
    std::ofstream out(path, std::ios::trunc);
    out << "<cardset>\n";
    for (int i = 0; i < count; ++i) {
        char serial[17];
        std::snprintf(serial, sizeof(serial), "98%d%013d", i % 7, i);
        out << "<reader name=\"Bench " << i << "\"><card generation=\"" << kGenerations[i % 7]
            << "\" serial=\"" << serial << "\" given=\"Bench\" family=\"Holder" << i << "\"/></reader>\n";
    }
    out << "</cardset>\n";
}
