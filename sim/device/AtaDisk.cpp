#include "sim/device/AtaDisk.h"

#include <algorithm>
#include <numeric>

namespace tav::sim {
namespace {

constexpr std::size_t sectorSize = 512;

/// A sector of little-endian numbers.
class Sector {
 public:
    void put(std::size_t at, std::uint64_t value, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i, value >>= 8U)
            bytes_[at + i] = static_cast<std::uint8_t>(value);
    }

    void putWords(std::size_t word, std::uint64_t value, std::size_t words) {
        put(2 * word, value, 2 * words);
    }

    void putWord(std::size_t word, std::uint64_t value) { putWords(word, value, 1); }

    /// The first character of each pair goes into the word's high byte.
    void putText(std::size_t word, const std::string& text, std::size_t words) {
        const DiskBytes characters = field(text, 2 * words);
        for (std::size_t i = 0; i < characters.size(); ++i)
            bytes_[2 * word + (i ^ 1U)] = characters[i];
    }

    /// The last byte makes the sum of all bytes 0 modulo 256.
    void addChecksum() {
        const unsigned sum = std::accumulate(bytes_.begin(), bytes_.end() - 1, 0U);
        bytes_.back() = static_cast<std::uint8_t>(0U - sum);
    }

    /// A valid statistic of the Device Statistics log.
    void putStatistic(std::size_t at, std::int64_t value, std::size_t size) {
        constexpr std::uint8_t supportedAndValid = 0xC0;
        put(at, static_cast<std::uint64_t>(value), size);
        bytes_[at + 7] = supportedAndValid;
    }

    DiskBytes take() { return std::move(bytes_); }

 private:
    DiskBytes bytes_ = DiskBytes(sectorSize);
};

/// IDENTIFY DEVICE data (ACS-3, 7.12.7).
DiskBytes identify(const DiskFacts& disk) {
    const std::string contradiction = disk.text("identify");
    if (contradiction == "ones") return DiskBytes(sectorSize, 0xFF);
    if (contradiction == "zeros") return DiskBytes(sectorSize);
    if (contradiction == "short") return DiskBytes(20);
    constexpr std::uint64_t throughAcs3 = 0x07F0;
    constexpr std::uint64_t checksumFollows = 0xA5;
    const auto sectors = static_cast<std::uint64_t>(disk.number("capacity", 0));
    Sector sector;
    sector.putWord(0, 0x0040);
    const std::string own = disk.text("identifySerial");
    sector.putText(10, own.empty() ? disk.text("serial") : own, 10);
    sector.putText(23, disk.text("revision"), 4);
    sector.putText(27, disk.text("model"), 20);
    sector.putWord(49, 0x0F00);
    sector.putWords(60, std::min<std::uint64_t>(sectors, 0x0FFFFFFF), 2);
    sector.putWord(80, throughAcs3);
    sector.putWord(82, 0x0021);  // SMART, general purpose logging
    sector.putWord(85, 0x0021);
    sector.putWords(100, sectors, 4);
    sector.putWord(
        217, static_cast<std::uint64_t>(disk.number("rotation", disk.isSolidState() ? 1 : 7200)));
    sector.putWord(255, checksumFollows);
    sector.addChecksum();
    return sector.take();
}

Sector statisticsPage(std::uint8_t page) {
    Sector sector;
    sector.put(0, 1, 2);
    sector.put(2, page, 1);
    return sector;
}

/// Device Statistics log (ACS-3, A.5): the list of its pages, and the pages.
std::optional<DiskBytes> deviceStatistics(const DiskFacts& disk, std::uint8_t page) {
    Sector sector = statisticsPage(page);
    switch (page) {
        case 0:
            sector.put(8, disk.isSolidState() ? 4 : 3, 1);
            sector.put(9, 0x07050100, 4);
            break;
        case 1:
            sector.putStatistic(8, 12, 4);
            sector.putStatistic(16, disk.number("hours", 1000), 4);
            break;
        case 5:
            sector.putStatistic(8, disk.number("temperature", 30), 1);
            sector.putStatistic(88, disk.number("maximumTemperature", 60), 1);
            break;
        case 7:
            if (!disk.isSolidState()) return std::nullopt;
            sector.putStatistic(8, disk.number("wear", 0), 1);
            break;
        default:
            return std::nullopt;
    }
    return sector.take();
}

/// Extended Comprehensive SMART error log (ACS-3, A.7), without its entries.
DiskBytes errorLog(const DiskFacts& disk) {
    const auto errors = static_cast<std::uint64_t>(disk.number("errors", 0));
    constexpr std::size_t errorCount = 500;
    Sector sector;
    sector.put(0, 1, 1);
    sector.put(2, errors, 2);
    sector.put(errorCount, errors, 2);
    sector.addChecksum();
    return sector.take();
}

/// SCT Status (ACS-3, 8.2): format version 3, temperatures.
DiskBytes sctStatus(const DiskFacts& disk) {
    Sector sector;
    sector.put(0, 3, 2);
    sector.put(200, static_cast<std::uint64_t>(disk.number("temperature", 30)), 1);
    return sector.take();
}

}  // namespace

std::optional<DiskBytes> readAtaSector(const DiskFacts& disk, const AtaCommand& command) {
    constexpr std::uint8_t identifyDevice = 0xEC;
    constexpr std::uint8_t readLogExt = 0x2F;
    constexpr std::uint8_t smart = 0xB0;
    constexpr std::uint8_t smartReadLog = 0xD5;
    constexpr std::uint8_t errorLogAddress = 0x03;
    constexpr std::uint8_t deviceStatisticsAddress = 0x04;
    constexpr std::uint8_t sctStatusAddress = 0xE0;
    if (command.command == identifyDevice) return identify(disk);
    if (command.command == readLogExt) {
        if (command.lbaLow == errorLogAddress) return errorLog(disk);
        if (command.lbaLow == deviceStatisticsAddress)
            return deviceStatistics(disk, command.lbaMid);
    }
    const bool isSmart = command.command == smart && command.lbaMid == 0x4F &&
                         command.lbaHigh == 0xC2 && command.features == smartReadLog;
    if (isSmart && command.lbaLow == sctStatusAddress) return sctStatus(disk);
    return std::nullopt;
}

}  // namespace tav::sim
