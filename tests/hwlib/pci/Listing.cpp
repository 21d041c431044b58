#include "tests/hwlib/pci/Listing.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>

#include "hwlib/pci/pci_slots.h"
#include "tests/support/MadeUpPci.h"

namespace tav::test {
namespace {

using Listings = std::map<PciAddress, std::string>;

std::string field(const char* tag, const PciIdEntryPtr& entry, const char* kind,
                  const Answer<std::uint16_t>& id) {
    const std::string name = entry == nullptr ? kind : entry->name;
    return std::string(tag) + ":\t" + name + " [" + hex(id.valueOr(0xFFFF), 4) + "]\n";
}

std::string listingOfNode(const PciNode& node) {
    std::string text = "Slot:\t" + textOf(node.address) + "\n";
    text += field("Class", node.classEntry, "Class",
                  static_cast<std::uint16_t>(node.classCode.valueOr(0xFFFFFF) >> 8));
    text += field("Vendor", node.vendorEntry, "Vendor", node.vendor);
    text += field("Device", node.deviceEntry, "Device", node.device);
    if (node.subsystemVendor.valueOr(0) != 0) {
        text += field("SVendor", node.subsystemVendorEntry, "Unknown vendor", node.subsystemVendor);
        text += field("SDevice", node.subsystemEntry, "Device", node.subsystemDevice);
    }
    if (const auto slot = get_pcislot(node.address)) text += "PhySlot:\t" + *slot + "\n";
    if (node.revision.valueOr(0) != 0) text += "Rev:\t" + hex(*node.revision, 2) + "\n";
    return text;
}

void collect(const PciNode& node, Listings& listings) {
    for (const auto& child : node.children) {
        listings[child->address] = listingOfNode(*child);
        collect(*child, listings);
    }
}

bool isCompared(const std::string& line) {
    static constexpr std::array tags{
        "Slot:", "Class:", "Vendor:", "Device:", "SVendor:", "SDevice:", "PhySlot:", "Rev:"};
    return std::ranges::any_of(tags, [&](const char* tag) { return line.starts_with(tag); });
}

}  // namespace

std::string outlineOf(const PciNode& root, int depth) {
    std::string text;
    for (const auto& child : root.children) {
        text += std::string(static_cast<std::size_t>(depth), ' ') + textOf(child->address) + "\n" +
                outlineOf(*child, depth + 1);
    }
    return text;
}

std::string listingOf(const PciNode& root) {
    Listings listings;
    collect(root, listings);
    std::string text;
    for (const auto& [address, listing] : listings)
        text += listing;
    return text;
}

std::optional<std::string> listingOfTool() {
    const std::unique_ptr<FILE, int (*)(FILE*)> tool(
        ::popen("lspci -O hwdb.disable=1 -D -vmmnn", "r"), ::pclose);
    std::array<char, 4096> line;
    std::string text;
    while (std::fgets(line.data(), line.size(), tool.get()) != nullptr) {
        if (isCompared(line.data())) text += line.data();
    }
    return text.empty() ? std::nullopt : std::optional(text);
}

}  // namespace tav::test
