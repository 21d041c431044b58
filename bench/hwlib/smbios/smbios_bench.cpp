/// Finding, copying and walking a table of 1,290 structures: against a program that makes the same
/// system calls, copies and walks; and, as most of it are the calls that find the table, against
/// copying and walking alone.
/// Needs memory of its own: sim/enter .../smbios_bench
#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include <sys/mman.h>

#include "bench/Measure.h"
#include "hwlib/smbios/smbios.h"
#include "tests/support/MadeUpSysfs.h"

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

/// What it takes to see a part of memory.
class Mapped {
 public:
    Mapped(int memory, std::size_t address, std::size_t length)
        : length_(length),
          pages_(::mmap(nullptr, length, PROT_READ, MAP_SHARED, memory,
                        static_cast<off_t>(address))) {}
    Mapped(const Mapped&) = delete;
    Mapped& operator=(const Mapped&) = delete;
    ~Mapped() { ::munmap(pages_, length_); }

    const char* begin() const { return static_cast<const char*>(pages_); }
    const char* end() const { return begin() + length_; }

 private:
    std::size_t length_;
    void* pages_;
};

/// The system calls without which the table's place cannot be known.
bool findTheTable(int memory, std::size_t searched) {
    for (const char* const name : {"/sys/firmware/efi/systab", "/proc/efi/systab"}) {
        const int systab = ::open(name, O_RDONLY | O_CLOEXEC);
        if (systab < 0) continue;
        std::array<char, 4096> text;
        const ssize_t count = ::read(systab, text.data(), text.size());
        ::close(systab);
        if (count > 0) break;
    }
    return *Mapped(memory, entryAddress, searched).begin() == '_';
}

void copyAndWalk(std::size_t length, std::size_t searched) {
    const int memory = ::open("/dev/mem", O_RDONLY | O_CLOEXEC);
    if (searched != 0 && !findTheTable(memory, searched)) std::abort();
    const Mapped mapped(memory, tableAddress, length);
    ::close(memory);
    walkOnce(std::vector<char>(mapped.begin(), mapped.end()));
}

/// `searched`: how many bytes have to be looked through for the entry point.
void found(bench::Report& report, const char* where, std::size_t length, std::size_t searched) {
    const auto ours = [] { return bench::secondsPerCall(20, findCopyAndWalk); };
    const auto copying = [&] { return bench::secondsPerCall(20, [&] { copyAndWalk(length, 0); }); };
    const auto finding = [&] {
        return bench::secondsPerCall(20, [&] { copyAndWalk(length, searched); });
    };
    const std::string what = std::string("SMBIOS table found ") + where;
    report.ratio(what.c_str(), "the same calls, copied and walked",
                 bench::leastOf(50, ours, finding), 1.2);
    bench::Report::ratio(what.c_str(), "copied and walked from a known place",
                         bench::leastOf(50, ours, copying));
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
    report.ratio("SMBIOS table copied and walked, in memory", "the same by hand",
                 bench::leastOf(
                     50, [&] { return bench::secondsPerCall(20, ours); },
                     [&] { return bench::secondsPerCall(20, floor); }),
                 1.2);
}

}  // namespace

int main() {
    if (std::filesystem::exists("/dev/mem") || std::filesystem::exists("/sys/firmware")) {
        std::fputs(
            "smbios_bench: NOT MEASURED: needs a private root without /dev/mem and "
            "/sys/firmware: sim/enter .../smbios_bench\n",
            stderr);
        return 2;
    }
    const std::string table = makeTable();
    const std::string entry = makeEntryPoint(table.size());
    std::string memory(tableAddress + table.size(), '\0');
    memory.replace(tableAddress, table.size(), table);
    memory.replace(entryAddress, entry.size(), entry);
    tav::test::writeFile("/dev/mem", memory);

    bench::Report report;
    std::printf("%d structures, %zu bytes\n", structures, table.size());
    found(report, "in low memory", table.size(), 0x10000);
    tav::test::writeFile("/sys/firmware/efi/systab", "SMBIOS=0xf0000\n");
    found(report, "by the firmware", table.size(), 32);
    decodingAlone(report, table);
    return report.exitStatus();
}
