// Reading and writing of the infobox file.
#include "formats/InfoboxFS.h"

namespace LibInfobox {

namespace {
constexpr unsigned char kMagic[3] = {'A', 'I', 'K'};
constexpr unsigned char kWrittenVersion = 1;
constexpr unsigned char kHighestReadableVersion = 1;
constexpr unsigned long kHeaderSize = 4;
constexpr unsigned long kEntryHeaderSize = 4;
} // namespace

InfoboxFS::~InfoboxFS() = default;

bool InfoboxFS::ParseInfoboxData(const Korvex::ByteArray& data)
{
    if (data.size() < kHeaderSize)
        return false;
    const unsigned char* bytes = data.data();
    if (bytes[0] != kMagic[0] || bytes[1] != kMagic[1] || bytes[2] != kMagic[2])
        return false;
    if (bytes[3] > kHighestReadableVersion)
        return false;
    return ReadDataField(data, kHeaderSize);
}

bool InfoboxFS::ReadDataField(const Korvex::ByteArray& data, unsigned long offset)
{
    const unsigned long size = data.GetLength();
    const unsigned char* bytes = data.data();
    // One entry after the other; the list ends at a zero tag or when fewer
    // than five bytes are left (card files are padded at the end).
    while (offset < size && size - offset > kEntryHeaderSize && bytes[offset] != 0) {
        const unsigned char tag = bytes[offset];
        const unsigned char type = bytes[offset + 1];
        const unsigned long dataLen = bytes[offset + 2] | (static_cast<unsigned long>(bytes[offset + 3]) << 8);
        const unsigned long dataStart = offset + kEntryHeaderSize;
        if (dataLen > size - dataStart)
            return false;
        m_entries.push_back(
            std::make_shared<InfoboxFSEntry>(tag, type, Korvex::ByteArray(bytes + dataStart, dataLen)));
        offset = dataStart + dataLen;
    }
    return true;
}

bool InfoboxFS::GetCompleteFile(Korvex::ByteArray& out) const
{
    const unsigned char header[kHeaderSize] = {kMagic[0], kMagic[1], kMagic[2], kWrittenVersion};
    out.Add(header, kHeaderSize);
    for (const auto& entry : m_entries) {
        const Korvex::ByteArray& data = entry->GetData();
        const unsigned long dataLen = data.GetLength();
        const unsigned char entryHeader[kEntryHeaderSize] = {
            entry->GetTag(), entry->GetType(), static_cast<unsigned char>(dataLen & 0xFF),
            static_cast<unsigned char>((dataLen >> 8) & 0xFF)};
        out.Add(entryHeader, kEntryHeaderSize);
        out.Add(data.data(), dataLen);
    }
    return true;
}

Korvex::ByteArray InfoboxFS::GetCompleteFile() const
{
    Korvex::ByteArray out;
    GetCompleteFile(out);
    return out;
}

bool InfoboxFS::AddEntry(unsigned char tag, unsigned char type, const Korvex::ByteArray& data)
{
    unsigned long index = 0;
    if (GetEntryId(tag, index)) {
        m_entries[index]->SetType(type);
        m_entries[index]->SetData(data);
    } else {
        m_entries.push_back(std::make_shared<InfoboxFSEntry>(tag, type, data));
    }
    return true;
}

bool InfoboxFS::GetEntry(unsigned char tag, unsigned char& type, Korvex::ByteArray& data) const
{
    unsigned long index = 0;
    if (!GetEntryId(tag, index))
        return false;
    type = m_entries[index]->GetType();
    data = m_entries[index]->GetData();
    return true;
}

bool InfoboxFS::GetEntryId(unsigned char tag, unsigned long& index) const
{
    for (index = 0; index < m_entries.size(); ++index) {
        if (m_entries[index]->GetTag() == tag)
            return true;
    }
    return false;
}

bool InfoboxFS::HasEntry(unsigned char tag) const
{
    unsigned long index = 0;
    return GetEntryId(tag, index);
}

bool InfoboxFS::HasEntry(std::string label) const
{
    return HasEntry(LabelToTag(label));
}

unsigned long InfoboxFS::GetEntryCount() const
{
    return static_cast<unsigned long>(m_entries.size());
}

std::vector<unsigned char> InfoboxFS::GetTagList() const
{
    std::vector<unsigned char> tags;
    tags.reserve(m_entries.size());
    for (const auto& entry : m_entries)
        tags.push_back(entry->GetTag());
    return tags;
}

std::string InfoboxFS::TagToLabel(unsigned char tag)
{
    switch (tag) {
    case 1: return "PERSONENBINDUNG";
    case 2: return "RFU1";
    default: return "RFU2";
    }
}

unsigned char InfoboxFS::LabelToTag(std::string label)
{
    if (label == "PERSONENBINDUNG")
        return 1;
    // Only the three-letter stem is recognised for the reserved entries.
    if (label.size() == 3 && label.compare(0, 3, "RFU1", 3) == 0)
        return 2;
    return 0;
}

void InfoboxFS::Clear()
{
    m_entries.clear();
}

} // namespace LibInfobox
