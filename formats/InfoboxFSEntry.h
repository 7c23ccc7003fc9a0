// One data object of the infobox file: a one-byte tag, an opaque type byte
// (its meaning belongs to whoever reads the entry) and the data.
#pragma once

#include "base/ByteArray.h"

namespace LibInfobox {

class InfoboxFSEntry {
public:
    InfoboxFSEntry(unsigned char tag, unsigned char type, const Korvex::ByteArray& data)
        : m_tag(tag), m_type(type), m_data(data)
    {
    }

    unsigned char GetTag() const { return m_tag; }
    unsigned char GetType() const { return m_type; }
    const Korvex::ByteArray& GetData() const { return m_data; }

    void SetType(unsigned char type) { m_type = type; }
    void SetData(const Korvex::ByteArray& data) { m_data = data; }

private:
    unsigned char m_tag;
    unsigned char m_type;
    Korvex::ByteArray m_data;
};

} // namespace LibInfobox
