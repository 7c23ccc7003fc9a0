// Builds the PKCS#11 objects of a personalised card from its keys,
// certificates and data files.
#pragma once

#include "sim/CardData.h"
#include "sim/KeyFactory.h"
#include "sim/SimObject.h"

#include <string>
#include <vector>

namespace VessaSim {

// SK.CH.SIG, PK.CH.SIG, C.CH.SIG, SK.CH.EKEY, PK.CH.EKEY, C.CH.EKEY.
std::vector<SimObject> buildKeyObjects(const CardKeys& keys);

SimObject makeDataObject(const std::string& label, ObjectRole role, const Bytes& value, bool isPrivate);
SimObject makeInfoboxEntryObject(unsigned char tag, unsigned char type, const Bytes& content);
// "0x" and the tag as two lower-case hex digits.
std::string infoboxEntryLabel(unsigned char tag);

} // namespace VessaSim
