// The infobox file: several data objects of the card kept in one file. The
// file starts with "AIK" and a version byte; each entry is a tag, a type
// byte, a 16-bit little-endian length and the data. A zero tag (or fewer
// than five bytes left) ends the list. InfoboxFS holds the entries in file
// order, parses a file read from the card and writes the list back.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/ByteArray.h"
#include "formats/InfoboxFSEntry.h"

namespace LibInfobox {

class InfoboxFS {
public:
    using EntryList = std::vector<std::shared_ptr<InfoboxFSEntry>>;

    InfoboxFS() = default;
    virtual ~InfoboxFS();
    InfoboxFS(const InfoboxFS&) = delete;
    InfoboxFS& operator=(const InfoboxFS&) = delete;

    // Checks the header and appends the file's entries to those already held
    // (the list is not cleared). False for a bad header or an entry that runs
    // past the end; the entries read before it are kept.
    bool ParseInfoboxData(const Korvex::ByteArray& data);
    // Reads the entry at offset and all that follow it.
    bool ReadDataField(const Korvex::ByteArray& data, unsigned long offset);

    // Appends the whole file (header with version 1, then every entry) to out.
    // Only the low 16 bits of a data length are written, so entries must stay
    // below 64 KiB.
    bool GetCompleteFile(Korvex::ByteArray& out) const;
    Korvex::ByteArray GetCompleteFile() const;

    // Replaces type and data of the first entry with that tag, or appends a
    // new entry at the end.
    bool AddEntry(unsigned char tag, unsigned char type, const Korvex::ByteArray& data);
    // First entry with the tag: its type and a copy of its data. Outputs are
    // untouched when there is none.
    bool GetEntry(unsigned char tag, unsigned char& type, Korvex::ByteArray& data) const;
    // Index of the first entry with the tag, or the entry count if none.
    bool GetEntryId(unsigned char tag, unsigned long& index) const;
    bool HasEntry(unsigned char tag) const;
    bool HasEntry(std::string label) const;
    unsigned long GetEntryCount() const;
    std::vector<unsigned char> GetTagList() const;
    const EntryList& GetEntries() const { return m_entries; }

    // "PERSONENBINDUNG" for 1, "RFU1" for 2, "RFU2" for anything else.
    static std::string TagToLabel(unsigned char tag);
    // 1 for "PERSONENBINDUNG", 2 for "RFU", 0 otherwise. Not the inverse of
    // TagToLabel: "RFU1" and "RFU2" both give 0. Kept so on purpose.
    static unsigned char LabelToTag(std::string label);

    void Clear();

private:
    EntryList m_entries;
};

} // namespace LibInfobox
