#include "sim/device/DiskModel.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <optional>
#include <sstream>

#include "sim/device/AtaDisk.h"
#include "sim/device/DiskBytes.h"

namespace tav::sim {
namespace {

using Command = std::span<const std::uint8_t>;
/// Empty: the command asks for something that the disk does not have.
using Data = std::optional<DiskBytes>;

constexpr std::uint8_t illegalRequest = 5;
constexpr std::uint8_t abortedCommand = 0x0B;

/// Fixed format (SPC-4, 4.5.3).
DiskAnswer refusal(std::uint8_t senseKey, std::uint8_t additionalSenseCode) {
    DiskAnswer answer;
    answer.sense = {0x70, 0, senseKey, 0, 0, 0, 0, 10, 0, 0, 0, 0, additionalSenseCode,
                    0,    0, 0,        0, 0};
    return answer;
}

std::uint32_t numberAt(Command command, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : command.subspan(at, size))
        value = value << 8U | byte;
    return value;
}

std::uint8_t byteOf(std::int64_t value) {
    return static_cast<std::uint8_t>(value);
}

// --- INQUIRY ------------------------------------------------------------------------------------

DiskBytes standardInquiry(const DiskFacts& disk) {
    constexpr std::uint8_t lengthBehind = 91;
    return joined({{0x00, 0x00, 0x06, 0x12, lengthBehind, 0, 0, 0x02},
                   field(disk.isSas() ? disk.text("vendor") : "ATA", 8),
                   field(disk.text("model"), 16),
                   field(disk.text("revision"), 4),
                   field(disk.text("serial"), 20),
                   DiskBytes(40)});
}

/// One NAA designator of the logical unit, made of the serial number.
DiskBytes deviceIdentification(const DiskFacts& disk) {
    constexpr std::uint64_t naa5 = 5ULL << 60U;
    const std::uint64_t unique = std::hash<std::string>()(disk.text("serial")) & ~(15ULL << 60U);
    return joined({{0x01, 0x03, 0x00, 8}, bigEndian(naa5 | unique, 8)});
}

Data vitalProductData(const DiskFacts& disk, std::uint8_t page) {
    switch (page) {
        case 0x00:
            return lengthCounted(0, page, {0x00, 0x80, 0x83, 0xB1});
        case 0x80: {
            const std::string serial = disk.text("serial");
            return lengthCounted(0, page, {serial.begin(), serial.end()});
        }
        case 0x83:
            return lengthCounted(0, page, deviceIdentification(disk));
        case 0xB1: {
            const std::int64_t rate = disk.number("rotation", disk.isSolidState() ? 1 : 7200);
            return lengthCounted(
                0, page, joined({bigEndian(static_cast<std::uint64_t>(rate), 2), DiskBytes(58)}));
        }
        default:
            return std::nullopt;
    }
}

Data inquiry(const DiskFacts& disk, Command command) {
    constexpr std::uint8_t evpd = 0x01;
    if ((command[1] & evpd) != 0) return vitalProductData(disk, command[2]);
    return command[2] == 0 ? Data(standardInquiry(disk)) : std::nullopt;
}

// --- Mode pages ---------------------------------------------------------------------------------

Data modePage(const DiskFacts& disk, std::uint8_t page) {
    constexpr std::uint8_t sas = 6;
    constexpr std::uint8_t ata = 8;
    switch (page) {
        case 0x19:
            return DiskBytes{0x19, 6, disk.isSas() ? sas : ata, 0, 0, 0, 0, 0};
        case 0x1C:
            return joined({{0x9C, 10, 0x00, 0x06}, DiskBytes(8)});
        case 0x04: {
            if (!disk.isSas() || disk.isSolidState()) return std::nullopt;
            const auto rate = static_cast<std::uint64_t>(disk.number("rotation", 7200));
            return joined({{0x84, 22}, DiskBytes(18), bigEndian(rate, 2), DiskBytes(2)});
        }
        default:
            return std::nullopt;
    }
}

/// The short form of a block descriptor: density, number of blocks, reserved, block length.
DiskBytes blockDescriptor(const DiskFacts& disk, bool disabled) {
    if (disabled) return {};
    const auto blocks = static_cast<std::uint64_t>(disk.number("capacity", 0));
    return joined({bigEndian(std::min<std::uint64_t>(blocks, 0xFFFFFFFF), 4), bigEndian(512, 4)});
}

constexpr std::uint8_t pageCode = 0x3F;
constexpr std::uint8_t disableBlockDescriptors = 0x08;

Data modeSense6(const DiskFacts& disk, Command command) {
    const Data page = modePage(disk, command[2] & pageCode);
    if (!page) return std::nullopt;
    const DiskBytes descriptor = blockDescriptor(disk, (command[1] & disableBlockDescriptors) != 0);
    const DiskBytes rest =
        joined({{0, 0, byteOf(std::int64_t(descriptor.size()))}, descriptor, *page});
    return joined({bigEndian(rest.size(), 1), rest});
}

Data modeSense10(const DiskFacts& disk, Command command) {
    const Data page = modePage(disk, command[2] & pageCode);
    if (!page) return std::nullopt;
    const DiskBytes descriptor = blockDescriptor(disk, (command[1] & disableBlockDescriptors) != 0);
    const DiskBytes rest =
        joined({DiskBytes(4), bigEndian(descriptor.size(), 2), descriptor, *page});
    return joined({bigEndian(rest.size(), 2), rest});
}

// --- Log pages ----------------------------------------------------------------------------------

DiskBytes logParameter(std::uint64_t code, const DiskBytes& value) {
    constexpr std::uint8_t binaryList = 0x03;
    return joined({bigEndian(code, 2), {binaryList, byteOf(std::int64_t(value.size()))}, value});
}

DiskBytes informationalExceptions(const DiskFacts& disk) {
    constexpr std::uint8_t failurePrediction = 0x5D;
    constexpr std::uint8_t generalHardDriveFailure = 0x10;
    const bool failing = disk.number("errors", 0) > 0;
    return logParameter(0, {failing ? failurePrediction : std::uint8_t{0},
                            failing ? generalHardDriveFailure : std::uint8_t{0},
                            byteOf(disk.number("temperature", 30)), 0});
}

DiskBytes temperature(const DiskFacts& disk) {
    return joined({logParameter(0, {0, byteOf(disk.number("temperature", 30))}),
                   logParameter(1, {0, byteOf(disk.number("maximumTemperature", 60))})});
}

DiskBytes backgroundScan(const DiskFacts& disk) {
    const auto minutes = static_cast<std::uint64_t>(disk.number("hours", 1000)) * 60;
    return logParameter(0, joined({bigEndian(minutes, 4), DiskBytes(8)}));
}

Data logSense(const DiskFacts& disk, Command command) {
    const std::uint8_t page = command[2] & pageCode;
    switch (page) {
        case 0x2F:
            return lengthCounted(page, 0, informationalExceptions(disk));
        case 0x0D:
            return lengthCounted(page, 0, temperature(disk));
        case 0x11:
            if (!disk.isSolidState()) return std::nullopt;
            return lengthCounted(page, 0,
                                 logParameter(1, {0, 0, 0, byteOf(disk.number("wear", 0))}));
        case 0x15:
            return lengthCounted(page, 0, backgroundScan(disk));
        default:
            return std::nullopt;
    }
}

// --- Capacity and defects -----------------------------------------------------------------------

Data readCapacity10(const DiskFacts& disk, Command /*command*/) {
    const auto last = static_cast<std::uint64_t>(disk.number("capacity", 1)) - 1;
    return joined({bigEndian(std::min<std::uint64_t>(last, 0xFFFFFFFF), 4), bigEndian(512, 4)});
}

Data readCapacity16(const DiskFacts& disk, Command command) {
    constexpr std::uint8_t serviceAction = 0x10;
    if ((command[1] & 0x1F) != serviceAction) return std::nullopt;
    const auto last = static_cast<std::uint64_t>(disk.number("capacity", 1)) - 1;
    return joined({bigEndian(last, 8), bigEndian(512, 4), DiskBytes(20)});
}

/// The lists as asked for, with as many descriptors of physical sectors as the disk has errors.
Data readDefectData(const DiskFacts& disk, Command command) {
    constexpr std::size_t descriptorSize = 8;
    const auto defects =
        static_cast<std::size_t>(std::clamp<std::int64_t>(disk.number("errors", 0), 0, 1000));
    return lengthCounted(0, command[2] & 0x1F, DiskBytes(defects * descriptorSize));
}

// --- Command table ------------------------------------------------------------------------------

struct Operation {
    std::uint8_t code;
    std::size_t allocationAt;
    std::size_t allocationSize;  ///< 0: the command has none
    bool onlySas;
    Data (*run)(const DiskFacts& disk, Command command);
};

constexpr std::array operations = {
    Operation{0x12, 3, 2, false, inquiry},        Operation{0x1A, 4, 1, false, modeSense6},
    Operation{0x5A, 7, 2, false, modeSense10},    Operation{0x4D, 7, 2, true, logSense},
    Operation{0x25, 0, 0, false, readCapacity10}, Operation{0x9E, 10, 4, false, readCapacity16},
    Operation{0x37, 7, 2, true, readDefectData},
};

/// The commands' lengths by their group (SPC-4, 4.2.5.1).
std::size_t commandLength(std::uint8_t code) {
    constexpr std::array<std::size_t, 8> byGroup = {6, 10, 10, 0, 16, 12, 0, 0};
    return byGroup[code >> 5U];
}

DiskAnswer answerPassThrough(const DiskFacts& disk, Command command) {
    constexpr unsigned pioDataIn = 4;
    constexpr std::uint8_t oneSectorFromDevice = 0x0E;
    constexpr std::uint8_t invalidField = 0x24;
    const bool understood = (command[1] >> 1U & 0x0FU) == pioDataIn &&
                            command[2] == oneSectorFromDevice && command[6] == 1;
    if (!understood) return refusal(illegalRequest, invalidField);
    const auto sector =
        readAtaSector(disk, {command[14], command[4], command[8], command[10], command[12]});
    return sector ? DiskAnswer{*sector, {}} : refusal(abortedCommand, 0);
}

}  // namespace

DiskFacts::DiskFacts(const std::string& lines) {
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) values_[line.substr(0, equals)] = line.substr(equals + 1);
    }
}

std::string DiskFacts::text(std::string_view key, const std::string& otherwise) const {
    const auto found = values_.find(key);
    return found == values_.end() ? otherwise : found->second;
}

std::int64_t DiskFacts::number(std::string_view key, std::int64_t otherwise) const {
    const std::string digits = text(key);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc() && end != digits.data() ? value : otherwise;
}

DiskAnswer answerCommand(const DiskFacts& disk, std::span<const std::uint8_t> command) {
    constexpr std::uint8_t ataPassThrough16 = 0x85;
    constexpr std::uint8_t invalidOperationCode = 0x20;
    constexpr std::uint8_t invalidField = 0x24;
    if (command.empty() || command.size() < commandLength(command[0])) {
        return refusal(illegalRequest, invalidField);
    }
    if (command[0] == ataPassThrough16 && !disk.isSas()) return answerPassThrough(disk, command);
    const auto* const operation =
        std::find_if(operations.begin(), operations.end(),
                     [&](const Operation& candidate) { return candidate.code == command[0]; });
    if (operation == operations.end() || (operation->onlySas && !disk.isSas())) {
        return refusal(illegalRequest, invalidOperationCode);
    }
    Data data = operation->run(disk, command);
    if (!data) return refusal(illegalRequest, invalidField);
    if (operation->allocationSize != 0) {
        const std::size_t allocation =
            numberAt(command, operation->allocationAt, operation->allocationSize);
        data->resize(std::min(data->size(), allocation));
    }
    return {std::move(*data), {}};
}

}  // namespace tav::sim
