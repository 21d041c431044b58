#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "hwlib/smbios/SmbiosStructures.h"
#include "hwlib/smbios/smbios.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/MadeUpSmbios.h"
#include "tests/support/MadeUpSysfs.h"

namespace {

using namespace tav::test;
using namespace std::string_literals;

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

TEST_F(Smbios, ComesFromWhereTheFirmwareSays) {
    const std::string other = slotStructure(0x0901, "SLOT", 42, 0x3B);
    fillMemory(tableAddress, other + table);
    fillMemory(0x2345678, entryPoint(static_cast<unsigned>(other.size() + table.size())));
    writeFile("/sys/firmware/efi/systab", "SMBIOS3=0xF0010\nACPI20=0x7ffe014\n" +
                                              std::string(80, 'x') +
                                              "\nSMBIOS=0x2345678\nSMBIOS=0xF0010\n");
    ASSERT_TRUE(InitSMBIOS());
    EXPECT_EQ(SmbGetPCIslot_bus(0x3B), 42);
    std::string manyLines;
    for (int line = 0; line < 1000; ++line)
        manyLines += "TABLE" + std::to_string(line) + "=0x7ffe014\n";
    writeFile("/sys/firmware/efi/systab", manyLines + "SMBIOS=0x2345678");
    ASSERT_TRUE(ReinitSMBIOS()) << "however far behind";
    EXPECT_EQ(SmbGetPCIslot_bus(0x3B), 42);
    writeFile("/sys/firmware/efi/systab", "ACPI20=0x7ffe014\nSMBIOS=here\n");
    EXPECT_FALSE(ReinitSMBIOS());
    EXPECT_FALSE(IsSMBIOSAvailable());
}

TEST(SmbiosSystab, TheFirstLineOfAtMost62CharactersThatIsANumber) {
    const std::string longest = "SMBIOS=" + std::string(54, '0') + "7";
    ASSERT_EQ(longest.size(), 62U);
    const struct {
        std::string text;
        tav::Answer<std::uint64_t> address;
    } cases[] = {
        {longest, 7U},
        {"SMBIOS=0" + longest.substr(7) + "\nSMBIOS=0x10", 0x10U},
        {"SMBIOS=0xfffffffffffffffff\nSMBIOS=010\nSMBIOS=9", 8U},
        {"SMBIOS= 9 of it\n", 9U},
        {" SMBIOS=9\nSMBIOS3=9\nSMBIOS 9\nSMBIOS=\nSMBIOS=x", tav::Lack::Absent},
        {"", tav::Lack::Absent},
    };
    for (const auto& [text, address] : cases)
        EXPECT_EQ(tav::smbiosAddressInSystab(text), address) << text;
}

TEST_F(Smbios, StructuresAreAValueOfTheirReader) {
    const auto first = tav::SmbiosStructures::read();
    ASSERT_TRUE(first);
    EXPECT_FALSE(IsSMBIOSAvailable()) << "nothing of it is shared";
    writeFile("/sys/firmware/efi/systab", "ACPI20=0x7ffe014\n");
    EXPECT_EQ(tav::SmbiosStructures::read().lack(), tav::Lack::Malformed);
    writeFile("/sys/firmware/efi/systab", "SMBIOS=0x100000\n");
    EXPECT_EQ(tav::SmbiosStructures::read().lack(), tav::Lack::Absent);
    const tav::SmbiosStructures kept = *first;
    EXPECT_EQ(kept.slotId(0x3B), 0x0105);
    EXPECT_EQ(kept.slotId(0x3C), tav::Lack::Absent);
    EXPECT_EQ(kept.onboardNumber(0x01, 0x1F, 2), 2);
    EXPECT_EQ(kept.onboardNumber(0x01, 0x1F, 3), tav::Lack::Absent);
    EXPECT_EQ(kept.productName(0x3B, 0, 0), "Quad FC adapter");
    EXPECT_EQ(kept.firmwareVersion(0x3B, 0, 0), "12.8.1");
    EXPECT_EQ(kept.firmwareVersion(0x01, 0x1F, 2), tav::Lack::Absent);
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
    // Version 2.1 gave its own length, 31 bytes, as 30.
    std::string old = entryPoint(length, 1);
    old[5] = 30;
    old[4] = static_cast<char>(old[4] + 1 + old[30]);
    fillMemory(0xF0010, old);
    EXPECT_TRUE(InitSMBIOS());
    old[5] = 29;
    old[4] = static_cast<char>(old[4] + 1 + old[29]);
    fillMemory(0xF0010, old);
    EXPECT_FALSE(InitSMBIOS());
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

TEST(SmbiosTable, AFieldIsThereWhenAllOfItIs) {
    const SMBIOS_RECORD header{9, 4, 0x0901};
    EXPECT_EQ(tav::smbiosByte(&header, 3), 0x09);
    EXPECT_EQ(tav::smbiosByte(&header, 4), tav::Lack::Absent);
    EXPECT_EQ(tav::smbiosWord(&header, 2), 0x0901);
    EXPECT_EQ(tav::smbiosWord(&header, 3), tav::Lack::Absent);
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
