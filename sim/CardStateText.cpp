// Reading and writing a card's state file (see CardStateText.h).
#include "sim/CardStateText.h"

#include "sim/Generation.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <algorithm>
#include <sstream>

namespace VessaSim {

namespace pt = boost::property_tree;

bool readCardState(const std::string& text, PinState (&pins)[PinCount], SavedDataObjects& objects) {
    pt::ptree tree;
    try {
        std::istringstream in(text);
        pt::read_xml(in, tree);
    } catch (const pt::ptree_error&) {
        return false;
    }
    const pt::ptree empty;
    for (const auto& child : tree.get_child("card", empty)) {
        const pt::ptree& attrs = child.second.get_child("<xmlattr>", empty);
        if (child.first == "pin") {
            const int index = attrs.get<int>("index", -1);
            if (index < 0 || index >= PinCount) continue;
            PinState& pin = pins[index];
            const std::string value = attrs.get<std::string>("value", pin.value);
            if (isPinFormat(value, pin.length)) pin.value = value;
            pin.tries = std::clamp(attrs.get<int>("tries", pin.tries), 0, pin.maxTries);
            pin.pukTries = std::clamp(attrs.get<int>("puk-tries", pin.pukTries), 0, pin.maxPukTries);
        } else if (child.first == "object") {
            const std::string label = attrs.get<std::string>("label", "");
            const std::vector<unsigned char> value = hexToBytes(attrs.get<std::string>("value", ""));
            if (label.empty() || hasControlCharacter(label) || value.size() > kMaxDataObjectSize) continue;
            SavedDataObject& saved = objects[label];
            saved.value = value;
            saved.isPrivate = attrs.get<bool>("private", false);
            saved.type = static_cast<unsigned char>(attrs.get<int>("type", 0) & 0xFF);
        }
    }
    return true;
}

std::string writeCardState(const std::string& serial, const PinState (&pins)[PinCount],
                           const SavedDataObjects& objects) {
    pt::ptree tree;
    pt::ptree& root = tree.add("card", "");
    root.put("<xmlattr>.serial", serial);
    for (int i = 0; i < PinCount; ++i) {
        pt::ptree& node = root.add("pin", "");
        node.put("<xmlattr>.index", i);
        node.put("<xmlattr>.value", pins[i].value);
        node.put("<xmlattr>.tries", pins[i].tries);
        node.put("<xmlattr>.puk-tries", pins[i].pukTries);
    }
    for (const auto& saved : objects) {
        pt::ptree& node = root.add("object", "");
        node.put("<xmlattr>.label", saved.first);
        node.put("<xmlattr>.private", saved.second.isPrivate);
        node.put("<xmlattr>.type", static_cast<int>(saved.second.type));
        node.put("<xmlattr>.value", bytesToHex(saved.second.value));
    }
    std::ostringstream out;
    pt::write_xml(out, tree);
    return out.str();
}

} // namespace VessaSim
