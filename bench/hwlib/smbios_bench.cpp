/// Finding, copying and walking a table of 1,290 structures against copying and walking it once.
/// Needs memory of its own: sim/enter .../smbios_bench
#include <cstdlib>
#include <cstring>
#include <fstream>

#include <sys/mman.h>

#include "bench/Measure.h"
#include "hwlib/smbios.h"
#include "tests/hwlib/MadeUpSysfs.h"

namespace {

constexpr int structures = 1290;
constexpr std::size_t tableAddress = 0x100000;
constexpr std::size_t entryAddress = 0xF0000;

std::string makeTable() {
    std::string table;
    for (int i = 0; i < structures; ++i) {
        std::string slot(17, '\0');
        slot[0] = 9;
        slot[1] = 17;
        slot[2] = slot[9] = static_cast<char>(i & 0xFF);
        slot[3] = slot[10] = static_cast<char>(i >> 8);
        table.append(slot).append("PCIe Slot ").append(std::to_string(i % 100));
        table.append(" riser").append(2, '\0');
    }
    return table;
}

std::string makeEntryPoint(std::size_t length) {
    std::string bytes(31, '\0');
    bytes.replace(0, 4, "_SM_");
    bytes[5] = 31;
    bytes[6] = 2;
    bytes[7] = 8;
    for (std::size_t i = 0; i < 2; ++i)
        bytes[22 + i] = static_cast<char>(length >> 8 * i);
    for (std::size_t i = 0; i < 4; ++i)
        bytes[24 + i] = static_cast<char>(tableAddress >> 8 * i);
    unsigned sum = 0;
    for (const char byte : bytes)
        sum += static_cast<unsigned char>(byte);
    bytes[4] = static_cast<char>(0 - sum);
    return bytes;
}

void findCopyAndWalk() {
    if (!InitSMBIOS()) std::abort();
    const SMBIOS_RECORD* record = nullptr;
    int count = 0;
    while (SmbGetRecord(&record))
        ++count;
    if (count != structures) std::abort();
}

void walkOnce(const std::vector<char>& table) {
    int count = 0;
    for (const char* at = table.data(); at < table.data() + table.size(); ++count) {
        at += static_cast<unsigned char>(at[1]);
        while (at[0] != '\0' || at[1] != '\0')
            ++at;
        at += 2;
    }
    if (count != structures) std::abort();
}

void copyAndWalkOnce(std::size_t length) {
    const int memory = ::open("/dev/mem", O_RDONLY | O_CLOEXEC);
    void* const mapped = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, memory, tableAddress);
    ::close(memory);
    const std::vector<char> table(static_cast<const char*>(mapped),
                                  static_cast<const char*>(mapped) + length);
    ::munmap(mapped, length);
    walkOnce(table);
}

/// Without the reading: what the table itself costs.
void decodingAlone(bench::Report& report, const std::string& table) {
    const auto ours = [&] {
        const std::vector<char> copy(table.begin(), table.end());
        const tav::SmbiosTable records(std::as_bytes(std::span(copy)));
        int count = 0;
        for (const auto* at = records.first(); at != nullptr; at = records.next(at))
            ++count;
        if (count != structures) std::abort();
    };
    const auto floor = [&] {
        const std::vector<char> copy(table.begin(), table.end());
        walkOnce(copy);
    };
    report.ratio("copied and walked, in memory",
                 bench::leastOf(
                     50, [&] { return bench::secondsPerCall(20, ours); },
                     [&] { return bench::secondsPerCall(20, floor); }),
                 1.2);
}

}  // namespace

int main() {
    if (std::filesystem::exists("/dev/mem") || std::filesystem::exists("/sys/firmware")) return 2;
    const std::string table = makeTable();
    const std::string entry = makeEntryPoint(table.size());
    std::string memory(tableAddress + table.size(), '\0');
    memory.replace(tableAddress, table.size(), table);
    memory.replace(entryAddress, entry.size(), entry);
    tav::test::writeFile("/dev/mem", memory);

    bench::Report report;
    const auto floor = [&] {
        return bench::secondsPerCall(20, [&] { copyAndWalkOnce(table.size()); });
    };
    const auto ours = [] { return bench::secondsPerCall(20, findCopyAndWalk); };
    std::printf("%d structures, %zu bytes\n", structures, table.size());
    report.ratio("found in low memory / copied and walked", bench::leastOf(50, ours, floor), 1.2);
    tav::test::writeFile("/sys/firmware/efi/systab", "SMBIOS=0xf0000\n");
    report.ratio("found by the firmware / copied and walked", bench::leastOf(50, ours, floor), 1.2);
    decodingAlone(report, table);
    return report.exitStatus();
}
