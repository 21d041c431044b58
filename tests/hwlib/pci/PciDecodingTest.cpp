#include <algorithm>
#include <cstring>

#include <gmock/gmock.h>

#include "hwlib/pci/PciAddress.h"
#include "hwlib/pci/PciIdDatabase.h"
#include "hwlib/pci/pci_config.h"
#include "hwlib/pci/pci_vpd.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;

std::span<const std::byte> bytes(std::string_view text) {
    return std::as_bytes(std::span(text));
}

TEST(PciAddressText, OnlyTheWholeAddressCounts) {
    EXPECT_EQ(tav::parsePciAddress("0000:3b:1f.7"), (PciAddress{0, 0x3B, 0x1F, 7}));
    EXPECT_EQ(tav::parsePciAddress("ABCD:0:a.0"), (PciAddress{0xABCD, 0, 0xA, 0}));
    EXPECT_EQ(tav::parsePciDevice("0001:3b:00"), (PciAddress{1, 0x3B, 0, 0}));
    EXPECT_EQ(tav::parsePciDevice("0001:3b:00.1"), (PciAddress{1, 0x3B, 0, 1}));
    for (const char* text :
         {"", "0000:3b:20.0", "0000:3b:00.8", "0000:3b:00", "0000:3b:00.", "10000:00:00.0",
          "0000:3b:00.0:pcie001", "0000:3b:00.00", " 0000:3b:00.0", "0x00:3b:00.0", "pci0000:3b",
          "0000:-1:00.0", "0000::00.0", "0000:3b:00.0x"})
        EXPECT_FALSE(tav::parsePciAddress(text)) << text;
    for (const char* text : {"0000:00:001f.2", "0001:3b:00.0.0", "host3", "0000:000000000000000"})
        EXPECT_FALSE(tav::parsePciDevice(text)) << text;
    EXPECT_EQ(tav::textOf({0x1, 0xA, 0x1F, 3}), "0001:0a:1f.3");
}

class PciConfigSpace : public testing::Test {
 protected:
    PciConfigSpace() { set(0x06, 0x10); }
    void set(std::size_t at, unsigned value) { config[at] = static_cast<std::byte>(value); }
    void capability(std::size_t at, unsigned id, unsigned next) {
        set(at, id);
        set(at + 1, next);
    }

    std::array<std::byte, 256> config{};
};

TEST_F(PciConfigSpace, CapabilitiesFollowTheList) {
    set(0x34, 0x43);  // the two low bits are reserved
    capability(0x40, 0x01, 0x50);
    capability(0x50, 0x10, 0xFC);
    capability(0xFC, 0x20, 0x60);
    capability(0x60, 0x21, 0x64);
    capability(0x64, 0x00, 0x00);
    EXPECT_EQ(pci_get_caps(config), 1U << 0 | 1U << 15 | 1U << 31);
    set(0x06, 0xEF);
    EXPECT_EQ(pci_get_caps(config), 0U) << "the status bit says that there is no list";
}

TEST_F(PciConfigSpace, ListsThatLoopOrLeaveTheSpaceEnd) {
    set(0x34, 0x40);
    capability(0x40, 0x05, 0x50);
    capability(0x50, 0x11, 0x40);
    EXPECT_EQ(pci_get_caps(config), 1U << 4 | 1U << 16);
    capability(0x50, 0x11, 0x3C);
    EXPECT_EQ(pci_get_caps(config), 1U << 4 | 1U << 16) << "below 0x40 is the header";
    EXPECT_EQ(pci_get_caps(std::span(config).first(0x50)), 1U << 4) << "cut off";
    EXPECT_EQ(pci_get_caps(std::span(config).first(0x06)), 0U);
    capability(0x40, 0xFF, 0x50);
    EXPECT_EQ(pci_get_caps(config), 0U) << "nothing is behind what is not there";
    std::ranges::fill(config, std::byte{0xFF});
    EXPECT_EQ(pci_get_caps(config), 0U) << "a function that is gone reads as ones";
    EXPECT_EQ(pci_get_lnkwidth(config), 2);
}

TEST_F(PciConfigSpace, CardBusBridgesKeepTheListElsewhere) {
    set(0x0E, 0x82);
    set(0x14, 0x40);
    set(0x34, 0x50);
    capability(0x40, 0x01, 0);
    capability(0x50, 0x05, 0);
    EXPECT_EQ(pci_get_caps(config), 1U);
}

TEST_F(PciConfigSpace, LinkWidthIsTheSlotWidthCode) {
    EXPECT_EQ(pci_get_lnkwidth(config), 2);
    set(0x34, 0x40);
    capability(0x40, 0x10, 0);
    constexpr std::array<std::uint8_t, 16> codes{2, 8, 9, 2, 10, 2, 2, 2, 11, 2, 2, 2, 12, 2, 2, 2};
    for (unsigned width = 0; width < codes.size(); ++width) {
        set(0x52, width << 4 | 3);
        EXPECT_EQ(pci_get_lnkwidth(config), codes[width]) << width;
    }
    capability(0xF0, 0x10, 0);
    set(0x34, 0xF0);
    EXPECT_EQ(pci_get_lnkwidth(config), 2) << "the link status would lie behind the space";
}

std::string resource(unsigned tag, const std::string& content) {
    return static_cast<char>(tag) +
           std::string{static_cast<char>(content.size() & 0xFF),
                       static_cast<char>(content.size() >> 8)} +
           content;
}

std::string record(const char* keyword, const std::string& value) {
    return keyword + std::string(1, static_cast<char>(value.size())) + value;
}

std::vector<std::string> keywordsOf(const std::string& vpd) {
    std::vector<std::string> texts;
    const PciVpdList list = pci_get_vpdtags(bytes(vpd));
    for (const auto* entry = list.get(); entry != nullptr; entry = entry->next.get())
        texts.push_back(std::string(entry->keyword.data(), 2) + "=" + entry->value);
    return texts;
}

TEST(PciVpd, RecordsOfBothSectionsInOrder) {
    const std::string name = resource(0x82, "Quad adapter");
    const std::string readOnly =
        resource(0x90, record("PN", "7051") + record("SN", "") + record("RV", "\0\1"s));
    const std::string readWrite = resource(0x91, record("ZQ", std::string(255, 'z')));
    const std::string end = "\x78";
    EXPECT_EQ(pci_get_vpdname(bytes(name)), "Quad adapter");
    EXPECT_THAT(keywordsOf(name + readOnly + resource(0x85, "other") + readWrite + end),
                ElementsAre("PN=7051", "RV=", "ZQ=" + std::string(255, 'z')));
    EXPECT_THAT(keywordsOf(name + end + readOnly), ElementsAre());
    EXPECT_THAT(keywordsOf(readOnly), ElementsAre()) << "must start with the identifier string";
}

TEST(PciVpd, WhatDoesNotFitIsAbsent) {
    const std::string name = resource(0x82, "Quad adapter");
    std::string cut = name + resource(0x90, record("PN", "7051") + record("SN", "12345678"));
    cut.resize(cut.size() - 1);
    EXPECT_THAT(keywordsOf(cut), ElementsAre("PN=7051"));
    std::string overlong = name + resource(0x90, record("PN", "7051") + "SN\xFF") +
                           resource(0x91, record("YA", "tag"));
    EXPECT_THAT(keywordsOf(overlong), ElementsAre("PN=7051", "YA=tag"))
        << "a record cannot reach into the next section";
    for (std::size_t length = 0; length < name.size(); ++length)
        EXPECT_EQ(pci_get_vpdname(bytes(name).first(length)), std::nullopt) << length;
    EXPECT_EQ(pci_get_vpdname(bytes(std::string(64, '\xFF'))), std::nullopt);
}

/// Reads of a text, at most `piece` bytes at a time.
tav::PciIdDatabase::Read readsOf(const std::string& text, std::size_t piece) {
    return [&text, piece](std::span<char> room, std::uint64_t position) -> std::size_t {
        if (position >= text.size()) return 0;
        return text.copy(room.data(), std::min(room.size(), piece),
                         static_cast<std::size_t>(position));
    };
}

std::string nameOf(const PciIdEntryPtr& entry) {
    return entry == nullptr ? "none" : entry->name;
}

const std::string idText =
    "# comment\n\n"
    "1000  Maker  \n"
    "\t0001  Plain\n"
    "# in between\n"
    "\t0002  With subsystems\r\n"
    "\t\t1000 0001  First\n"
    "\t\tbroken\n"
    "# more\n"
    "\t\t8086 0002  Second\n"
    "\tnonsense\n"
    "\t\t8086 0003  Not of the device above\n"
    "\t0003  Long" +
    std::string(3000, 'g') +
    "\n"
    "\t\t1000 0001  Of the long one\n"
    "8086 Other maker\n"
    "\t0001  Other\n"
    "S nothing of the kind\n"
    "\t0009  Of nobody\n"
    "C 01  Storage\n"
    "\t04  RAID\n"
    "\t\t01  Interface\n"
    "C 0c  Serial\n"
    "0fff  " +
    std::string(1'000'000, 'L') +
    "\n"
    "\t0001  After the long line\n"
    "0ff0  Out of order\n"
    "\t0002  Last, without newline";

TEST(PciIdDatabase, FindsNamesHoweverTheTextIsCut) {
    for (const std::size_t piece : {idText.size(), std::size_t{1000}, std::size_t{7}}) {
        tav::PciIdDatabase ids(readsOf(idText, piece));
        EXPECT_EQ(nameOf(ids.vendor(0x1000)), "Maker");
        EXPECT_EQ(nameOf(ids.vendor(0x8086)), "Other maker");
        EXPECT_EQ(nameOf(ids.vendor(0x1001)), "none");
        EXPECT_EQ(nameOf(ids.device(0x1000, 1)), "Plain");
        EXPECT_EQ(nameOf(ids.device(0x8086, 1)), "Other");
        EXPECT_EQ(nameOf(ids.device(0x8086, 2)), "none");
        EXPECT_EQ(nameOf(ids.device(0x8086, 9)), "none") << "stands in no vendor's section";
        EXPECT_EQ(nameOf(ids.subsystem(0x1000, 2, 0x1000, 1)), "First");
        EXPECT_EQ(nameOf(ids.subsystem(0x1000, 2, 0x8086, 2)), "Second");
        EXPECT_EQ(nameOf(ids.subsystem(0x1000, 2, 0x8086, 3)), "none");
        EXPECT_EQ(nameOf(ids.subsystem(0x1000, 1, 0x1000, 1)), "none");
        EXPECT_EQ(nameOf(ids.deviceClass(0x010401)), "RAID");
        EXPECT_EQ(nameOf(ids.deviceClass(0x018000)), "Storage");
        EXPECT_EQ(nameOf(ids.deviceClass(0x0C0400)), "Serial") << "the RAID of another class";
        EXPECT_EQ(nameOf(ids.deviceClass(0x020000)), "none");
        EXPECT_EQ(nameOf(ids.device(0x1000, 3)), "none") << "too long for a name";
        EXPECT_EQ(nameOf(ids.vendor(0x0FFF)), "none");
        EXPECT_EQ(nameOf(ids.device(0x0FFF, 1)), "After the long line");
        EXPECT_EQ(nameOf(ids.device(0x0FF0, 2)), "Last, without newline");
    }
}

TEST(PciIdDatabase, ATextWrittenOverGivesNoWrongNames) {
    std::string text = idText;
    tav::PciIdDatabase ids(readsOf(text, text.size()));
    EXPECT_EQ(nameOf(ids.device(0x1000, 2)), "With subsystems");
    text.insert(0, "\t0001  Shifted\n");
    EXPECT_EQ(nameOf(ids.device(0x1000, 1)), "none");
    EXPECT_EQ(nameOf(ids.subsystem(0x1000, 2, 0x1000, 1)), "none");
    EXPECT_EQ(nameOf(ids.device(0x1000, 2)), "With subsystems") << "read before";
    text.clear();
    EXPECT_EQ(nameOf(ids.vendor(0x8086)), "none");
}

}  // namespace
