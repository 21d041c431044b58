#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "hwlib/pci/pci_slots.h"
#include "hwlib/smbios/smbios.h"
#include "tests/hwlib/MadeUpSysfs.h"
#include "tests/support/FastWaiting.h"

namespace {

using namespace std::string_literals;
using tav::test::makeLink;
using tav::test::writeFile;

/// A field of one, two or four bytes, as it stands in memory.
std::string le(std::uint32_t value, int size) {
    std::string bytes;
    for (; size > 0; --size, value >>= 8)
        bytes += static_cast<char>(value);
    return bytes;
}

/// `body` is the formatted part behind the header.
std::string structure(unsigned type, unsigned handle, const std::string& body,
                      const std::vector<std::string>& strings = {}) {
    std::string bytes =
        le(type, 1) + le(static_cast<std::uint32_t>(body.size() + 4), 1) + le(handle, 2) + body;
    for (const std::string& text : strings)
        bytes += text + '\0';
    if (strings.empty()) bytes += '\0';
    return bytes + '\0';
}

std::string slotStructure(unsigned handle, const char* name, unsigned id, unsigned bus,
                          unsigned deviceFunction = 0) {
    return structure(9, handle,
                     le(1, 1) + le(0xA5, 1) + le(0x0B, 1) + le(4, 1) + le(3, 1) + le(id, 2) +
                         le(0x0C, 1) + le(1, 1) + le(0, 2) + le(bus, 1) + le(deviceFunction, 1),
                     {name});
}

std::string onboardStructure(unsigned handle, unsigned instance, unsigned bus,
                             unsigned deviceFunction) {
    return structure(
        41, handle,
        le(1, 1) + le(0x85, 1) + le(instance, 1) + le(0, 2) + le(bus, 1) + le(deviceFunction, 1),
        {"Onboard LAN"});
}

std::string productStructure(unsigned handle, unsigned described, const char* name) {
    return structure(203, handle, le(described, 2) + std::string(24, '\0') + le(2, 1),
                     {"unused", name});
}

std::string firmwareStructure(unsigned handle, unsigned product, const char* version) {
    return structure(240, handle, le(product, 2) + std::string(4, '\0') + le(1, 1), {version});
}

const std::string table = structure(1, 0x0100, std::string(23, '\0')) +             //
                          slotStructure(0x0900, "not used", 9, 0xFF, 0xFF) +        //
                          slotStructure(0x0901, "SLOT1", 0x0105, 0x3B) +            //
                          slotStructure(0x0902, "SLOT2", 2, 0x5E) +                 //
                          slotStructure(0x0000, "handle 0", 3, 0x60) +              //
                          structure(9, 0x0904, le(1, 1) + le(0, 4) + le(77, 2)) +   //
                          onboardStructure(0x2901, 0x0A, 0x01, 0x1F << 3 | 2) +     //
                          productStructure(0xCB01, 0x0901, "Quad FC adapter") +     //
                          productStructure(0xCB02, 0x0901, "second of the slot") +  //
                          productStructure(0xCB03, 0x2901, "Onboard adapter") +     //
                          productStructure(0xCB04, 0x0000, "of nothing") +          //
                          structure(203, 0xCB05, le(0x0902, 2)) +                   //
                          firmwareStructure(0xF001, 0xCB02, "of the second") +      //
                          firmwareStructure(0xF002, 0xCB01, "12.8.1") + structure(127, 0x7F00, "");

constexpr unsigned tableAddress = 0xE1234;

std::string entryPoint(unsigned tableLength, unsigned minor = 8) {
    std::string bytes = "_SM_"s + le(0, 1) + le(31, 1) + le(2, 1) + le(minor, 1) +
                        std::string(8, '\0') + "_DMI_" + le(0, 1) + le(tableLength, 2) +
                        le(tableAddress, 4) + le(15, 2) + le(0x28, 1);
    const auto sumOf = [&](std::size_t from) {
        unsigned sum = 0;
        for (std::size_t i = from; i < bytes.size(); ++i)
            sum += static_cast<unsigned char>(bytes[i]);
        return sum;
    };
    bytes[0x15] = static_cast<char>(0 - sumOf(0x10));
    bytes[4] = static_cast<char>(0 - sumOf(0));
    return bytes;
}

/// Makes "/dev/mem" a file with `bytes` at a physical address.
void fillMemory(std::size_t address, const std::string& bytes) {
    const int memory = ::open("/dev/mem", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::ftruncate(memory, 64 << 20), 0);
    ASSERT_EQ(::pwrite(memory, bytes.data(), bytes.size(), static_cast<off_t>(address)),
              static_cast<ssize_t>(bytes.size()));
    ::close(memory);
}

class Smbios : public testing::Test {
 protected:
    void SetUp() override {
        fillMemory(tableAddress, table);
        fillMemory(0xF0010, entryPoint(static_cast<unsigned>(table.size())));
    }
    void TearDown() override { DeinitSMBIOS(); }
};

TEST_F(Smbios, TellsSlotsNamesAndVersions) {
    EXPECT_EQ(SmbGetPCIslot_bus(0x3B), 0) << "not initialised yet";
    ASSERT_TRUE(InitSMBIOS());
    EXPECT_TRUE(IsSMBIOSAvailable());
    EXPECT_EQ(SmbGetPCIslot_bus(0x3B), 0x0105);
    EXPECT_EQ(SmbGetPCIslot_bus(0x5E), 2);
    EXPECT_EQ(SmbGetPCIslot_bus(0x3C), 0);
    EXPECT_EQ(SmbGetPCIslot_bus(0xFF), 0) << "an empty slot is not at bus 255";
    EXPECT_STREQ(SmbGetPciName(0x3B, 0, 0), "Quad FC adapter");
    EXPECT_STREQ(SmbGetFwVer(0x3B, 0, 0), "12.8.1");
    EXPECT_STREQ(SmbGetPciName(0x01, 0x1F, 2), "Onboard adapter");
    EXPECT_EQ(SmbGetFwVer(0x01, 0x1F, 2), nullptr);
    EXPECT_EQ(SmbGetPciName(0x01, 0x1F, 1), nullptr);
    EXPECT_EQ(SmbGetPciName(0x5E, 0, 0), nullptr) << "the product structure is too short";
    EXPECT_EQ(SmbGetPciName(0x60, 0, 0), nullptr) << "handle 0 describes nothing";
    EXPECT_EQ(SmbGetChassisPort(0x01, 0x1F, 2), 2) << "three bits of the instance";
    EXPECT_EQ(SmbGetChassisPort(0x01, 0x1F, 3), 0);
    EXPECT_EQ(PciGetChassisPort_str("0000:01:1f.2"), 2);
    DeinitSMBIOS();
    EXPECT_FALSE(IsSMBIOSAvailable());
    EXPECT_EQ(SmbGetPciName(0x3B, 0, 0), nullptr);
}

TEST_F(Smbios, FindsRecordsAndStrings) {
    ASSERT_TRUE(ReinitSMBIOS());
    const SMBIOS_RECORD* record = nullptr;
    unsigned count = 0;
    while (SmbGetRecord(&record))
        ++count;
    EXPECT_EQ(count, 15U);
    EXPECT_EQ(record->type, 127) << "the last one stays";
    EXPECT_EQ(SmbGetRecordByType(9, 2)->handle, 0x0902);
    EXPECT_EQ(SmbGetRecordByType(9, 5), nullptr);
    EXPECT_TRUE(SmbGetRecordByHandle(0xCB03, &record));
    EXPECT_STREQ(SmbGetStringByNumber(record, 2), "Onboard adapter");
    EXPECT_STREQ(SmbGetStringByNumber(record, 0), "");
    EXPECT_EQ(SmbGetStringByNumber(record, 3), nullptr);
    EXPECT_FALSE(SmbGetRecordByHandle(0xCBFF, &record));
    EXPECT_TRUE(SmbGetRecordByNumber(1, &record));
    EXPECT_EQ(record->handle, 0x0900);
    EXPECT_FALSE(SmbGetRecordByNumber(15, &record));
    EXPECT_EQ(SmbGetStringByNumber(SmbGetRecordByType(1, 0), 1), nullptr);
    const SMBIOS_RECORD foreign{9, 4, 0};
    EXPECT_EQ(SmbGetStringByNumber(&foreign, 1), nullptr);
}

TEST_F(Smbios, SlotIsTheFirstOnTheWayFromTheRoot) {
    ASSERT_TRUE(InitSMBIOS());
    makeLink("/sys/bus/pci/devices/0000:5f:00.0",
             "../../../devices/pci0000:3a/0000:3a:00.0/0000:3b:00.0/0000:5e:08.0/0000:5f:00.0");
    makeLink("/sys/bus/pci/devices/0000:5f:00.1",
             "../../../devices/pci0000:5d/0000:5d:00.0/0000:5e:08.0/0000:5f:00.1");
    makeLink("/sys/bus/pci/devices/0000:00:00.0", "../../../devices/pci0000:00/0000:00:00.0");
    makeLink("/sys/class/scsi_host/host3",
             "../../devices/pci0000:5d/0000:5d:00.0/0000:5e:08.0/0000:5f:00.1/host3/scsi_host/"
             "host3");
    EXPECT_EQ(PciGetslot_str("0000:5f:00.0"), 0x0105);
    EXPECT_EQ(PciGetslot_str("0000:5f:00"), 0x0105);
    EXPECT_EQ(PciGetslot_str("0000:5f:00.1"), 2);
    EXPECT_EQ(PciGetslot_str("0000:00:00.0"), 0);
    EXPECT_EQ(PciGetslot_str("0000:77:00.0"), 0);
    EXPECT_EQ(PciGetslot_str(""), 0);
    EXPECT_EQ(pcislot_scsi_host("/sys/class/scsi_host/host3"), 2);
    EXPECT_EQ(pcislot_scsi_host("/sys/class/scsi_host/host4"), 0);
}

TEST_F(Smbios, ComesFromWhereTheFirmwareSays) {
    const std::string other = slotStructure(0x0901, "SLOT", 42, 0x3B);
    fillMemory(tableAddress, other + table);
    fillMemory(0x2345678, entryPoint(static_cast<unsigned>(other.size() + table.size())));
    writeFile("/sys/firmware/efi/systab", "SMBIOS3=0xF0010\nACPI20=0x7ffe014\n" +
                                              std::string(80, 'x') +
                                              "\nSMBIOS=0x2345678\nSMBIOS=0xF0010\n");
    ASSERT_TRUE(InitSMBIOS());
    EXPECT_EQ(SmbGetPCIslot_bus(0x3B), 42);
    writeFile("/sys/firmware/efi/systab", "ACPI20=0x7ffe014\nSMBIOS=here\n");
    EXPECT_FALSE(ReinitSMBIOS());
    EXPECT_FALSE(IsSMBIOSAvailable());
}

TEST_F(Smbios, AnEntryPointMustBeWholeAndRecent) {
    const auto length = static_cast<unsigned>(table.size());
    std::string wrongSum = entryPoint(length);
    wrongSum[4] = static_cast<char>(wrongSum[4] + 1);
    std::string tooLong = entryPoint(length);
    tooLong[5] = 127;
    for (const std::string& bytes :
         {wrongSum, tooLong, entryPoint(length, 0), " "s + entryPoint(length), ""s}) {
        fillMemory(0xF0010, bytes + std::string(64, '\0'));
        EXPECT_FALSE(InitSMBIOS());
    }
    fillMemory(0xFFFE0, entryPoint(length));
    EXPECT_TRUE(InitSMBIOS()) << "the last place that has room for one";
}

TEST(SmbiosMemory, IsWaitedForAndThenReportedMissing) {
    tav::test::clockSpeed = 100;
    testing::internal::CaptureStderr();
    const auto start = tav::test::fastNow();
    EXPECT_FALSE(InitSMBIOS());
    const auto taken = tav::test::fastNow() - start;
    EXPECT_GE(taken, std::chrono::seconds(25));
    EXPECT_LT(taken, std::chrono::seconds(30));
    ASSERT_EQ(::mkfifo("/dev/mem", 0600), 0) << "which can be opened, but not mapped";
    const int writer = ::open("/dev/mem", O_RDWR | O_CLOEXEC);
    EXPECT_FALSE(InitSMBIOS());
    ::close(writer);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: Failed to open /dev/mem\nERROR: Failed to map 0xf0000 0x10000\n");
}

TEST(SmbiosTable, WhateverIsCutOffIsNotThere) {
    for (std::size_t length = 0; length <= table.size(); ++length) {
        const std::string cut = table.substr(0, length);
        const tav::SmbiosTable part(std::as_bytes(std::span(cut)));
        std::size_t end = 0;
        for (const auto* record = part.first(); record != nullptr; record = part.next(record)) {
            end = static_cast<std::size_t>(reinterpret_cast<const char*>(record) - cut.data()) +
                  record->length;
            ASSERT_LE(end, length);
            for (unsigned number = 1; number < 4; ++number) {
                const char* const text = part.string(record, number);
                if (text == nullptr) continue;
                ASSERT_LT(text + std::strlen(text), cut.data() + length);
            }
        }
    }
    const std::string tooShort = le(9, 1) + le(3, 1) + std::string(20, '\0');
    EXPECT_EQ(tav::SmbiosTable(std::as_bytes(std::span(tooShort))).first(), nullptr);
}

TEST(SmbiosTable, StringsEndAtTwoNulsWhereverTheseStand) {
    const std::string structure = le(9, 1) + le(4, 1) + le(1, 2);
    for (std::size_t length = 0; length < 40; ++length) {
        for (const char character : {'\x01', '\x80', '\xFF'}) {
            const std::string text(length, character);
            for (const std::string& strings : {text, "A\0"s + text + "B"}) {
                std::string bytes = structure;
                bytes.append(strings).append(2, '\0').append(structure);
                const tav::SmbiosTable two(std::as_bytes(std::span(bytes)));
                const auto* const second = two.next(two.first());
                ASSERT_EQ(reinterpret_cast<const char*>(second),
                          bytes.data() + bytes.size() - structure.size());
                EXPECT_EQ(two.next(second), nullptr);
            }
        }
    }
}

std::optional<std::string> outputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> tool(::popen(command.c_str(), "r"), ::pclose);
    std::array<char, 4096> line;
    std::string text;
    while (std::fgets(line.data(), line.size(), tool.get()) != nullptr)
        text += line.data();
    return text.empty() ? std::nullopt : std::optional(text);
}

TEST_F(Smbios, StandardRecordsAgreeWithTheDecodingTool) {
    // The tool's dump format: the entry point at 0, the table where the entry point says.
    std::string entry = entryPoint(static_cast<unsigned>(table.size()));
    fillMemory(0xF0010, entry);
    std::string dump = entry + std::string(tableAddress - entry.size(), '\0') + table;
    writeFile("/tmp/dump", dump);
    const auto text = outputOf("PATH=$PATH:/usr/sbin dmidecode --from-dump /tmp/dump 2>/dev/null");
    if (!text) GTEST_SKIP() << "dmidecode is not installed";
    ASSERT_TRUE(InitSMBIOS());
    for (unsigned instance = 1; instance <= 2; ++instance) {
        const SMBIOS_RECORD* const slot = SmbGetRecordByType(9, instance);
        std::array<char, 512> expected;
        std::snprintf(expected.data(), expected.size(),
                      "Handle 0x%04X, DMI type 9, %d bytes\nSystem Slot Information\n"
                      "\tDesignation: %s\n",
                      slot->handle, slot->length, SmbGetStringByNumber(slot, 1));
        EXPECT_THAT(*text, testing::HasSubstr(expected.data()));
    }
    EXPECT_THAT(*text, testing::HasSubstr("Bus Address: 0000:3b:00.0"));
    EXPECT_THAT(*text, testing::HasSubstr("Bus Address: 0000:01:1f.2"));
    const SMBIOS_RECORD* record = nullptr;
    std::size_t count = 0;
    while (SmbGetRecord(&record))
        ++count;
    std::size_t toolCount = 0;
    for (std::size_t at = text->find("\nHandle 0x"); at != std::string::npos;
         at = text->find("\nHandle 0x", at + 1))
        ++toolCount;
    EXPECT_EQ(count, toolCount);
}

}  // namespace
