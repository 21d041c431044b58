#include "sim/replay/Memory.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>

#include "sim/hostcmds/Files.h"
#include "sim/hostcmds/HostCommands.h"
#include "sim/replay/Unpacking.h"

namespace tav::sim {
namespace {

namespace fs = std::filesystem;

/// What the kernel finds tables by (DSP0134, "SMBIOS 2.1 (32-bit) Entry Point").
constexpr std::size_t entryPointSize = 31;
constexpr std::size_t tableAddressOffset = 24;
/// Where it is looked for when the firmware does not tell.
constexpr std::uint64_t biosEntryPoint = 0xF0000;
constexpr std::uint64_t biosEnd = 0x100000;
/// Addresses beyond this are none of a table.
constexpr std::uint64_t mostAddress = std::uint64_t{1} << 36U;

std::uint64_t tableAddress(const std::string& entryPoint) {
    std::uint64_t address = 0;
    for (std::size_t i = 4; i-- > 0;)
        address = address << 8U | static_cast<unsigned char>(entryPoint[tableAddressOffset + i]);
    return address;
}

/// None: the firmware has a table of its own, in which SMBIOS is not.
std::uint64_t entryPointAddress(const fs::path& root) {
    const fs::path systab = root / "sys/firmware/efi/systab";
    if (!fs::is_regular_file(systab)) return biosEntryPoint;
    return std::strtoull(valueOf(fileText(systab), "SMBIOS", '=').c_str(), nullptr, 0);
}

}  // namespace

void makeMemory(const fs::path& root) {
    const fs::path recorded = root / (recordedDirectory + 1);
    const std::string entryPoint = fileText(recorded / "smbios_entry_point");
    const std::string table = fileText(recorded / "DMI");
    if (entryPoint.size() < entryPointSize || !entryPoint.starts_with("_SM_")) return;
    const std::uint64_t places[] = {entryPointAddress(root), tableAddress(entryPoint)};
    if (places[0] == 0 || std::max(places[0], places[1]) > mostAddress) return;
    std::ofstream memory(recorded / memoryFile, std::ios::binary | std::ios::trunc);
    memory.seekp(static_cast<std::streamoff>(places[0]));
    memory << entryPoint;
    memory.seekp(static_cast<std::streamoff>(places[1]));
    memory << table;
    memory.close();
    constexpr std::uint64_t page = 4096;
    const std::uint64_t end = std::max(biosEnd, fs::file_size(recorded / memoryFile));
    fs::resize_file(recorded / memoryFile, (end + page - 1) / page * page);
}

}  // namespace tav::sim
