// Fuzz target: the infobox file parser, and the writer on what was parsed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "formats/InfoboxFS.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Korvex::ByteArray file(data, size);
    LibInfobox::InfoboxFS fs;
    const bool parsed = fs.ParseInfoboxData(file);

    // A complete file without padding must come back byte for byte (apart
    // from the version byte); anything parsed must survive a round trip,
    // except an empty last entry: its four bytes end a file, and fewer than
    // five bytes are never read as an entry.
    Korvex::ByteArray written = fs.GetCompleteFile();
    LibInfobox::InfoboxFS reread;
    std::vector<unsigned char> expectedTags = fs.GetTagList();
    if (!fs.GetEntries().empty() && fs.GetEntries().back()->GetData().empty())
        expectedTags.pop_back();
    if (!reread.ParseInfoboxData(written) || reread.GetTagList() != expectedTags)
        std::abort();
    if (parsed && written.size() == size && size >= 4) {
        for (size_t i = 0; i < size; ++i) {
            if (i != 3 && written.data()[i] != data[i])
                std::abort();
        }
    }
    for (unsigned char tag : fs.GetTagList()) {
        unsigned char type = 0;
        Korvex::ByteArray content;
        if (!fs.GetEntry(tag, type, content) || LibInfobox::InfoboxFS::TagToLabel(tag).empty())
            std::abort();
    }
    return 0;
}
