#include "storage/nvme/nvme_replies.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include "base/Trim.h"
#include "storage/nvme/nvme_records.h"

namespace tav::nvme {
namespace {

constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();

/// The reply as a layout; none where it tells nothing.
template <class Layout>
std::optional<Layout> whole(Bytes reply) {
    if (reply.size() < sizeof(Layout)) return std::nullopt;
    const Bytes told = reply.first(sizeof(Layout));
    const std::byte first = told.front();
    const bool isFilling = first == std::byte{0} || first == std::byte{0xFF};
    if (isFilling && std::all_of(told.begin(), told.end(), [=](std::byte b) { return b == first; }))
        return std::nullopt;
    Layout layout;
    std::memcpy(&layout, told.data(), sizeof layout);
    return layout;
}

/// The greatest number for one that has no place in it.
template <std::size_t Size>
std::uint64_t littleEndian(const LittleEndian<Size>& bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = Size; i-- > 0;) {
        if (value >> 56U != 0) return most;
        value = value << 8U | bytes[i];
    }
    return value;
}

template <std::size_t Size>
std::string textOf(const std::array<std::uint8_t, Size>& field) {
    const std::string_view text(reinterpret_cast<const char*>(field.data()), field.size());
    return std::string(trimBoth(text.substr(0, text.find('\0'))));
}

constexpr int kelvinsNotTold = 0xFFFF;

int threshold(const LittleEndian<2>& field) {
    constexpr int freezing = 273;
    const int kelvins = static_cast<int>(littleEndian(field));
    return kelvins > freezing && kelvins != kelvinsNotTold ? kelvins : 0;
}

int percentage(std::uint8_t field) {
    constexpr int all = 100;
    return field > all ? -1 : field;
}

}  // namespace

std::optional<ControllerIdentity> controllerIdentity(Bytes identify) {
    const auto data = whole<IdentifyController>(identify);
    if (!data) return std::nullopt;
    return ControllerIdentity{textOf(data->serialNumber), textOf(data->modelNumber),
                              textOf(data->firmwareRevision), threshold(data->warningTemperature),
                              threshold(data->criticalTemperature)};
}

std::optional<std::uint64_t> namespaceBytes(Bytes identify) {
    constexpr unsigned smallestShift = 9;  // smaller blocks are not allowed
    constexpr unsigned widest = 64;
    const auto data = whole<IdentifyNamespace>(identify);
    if (!data) return std::nullopt;
    const unsigned low = data->formattedLbaSize & 0x0FU;
    const unsigned high = data->formattedLbaSize >> 5U & 0x03U;
    const unsigned shift = data->lbaFormats.at(high << 4U | low).dataSize;
    if (shift < smallestShift || shift >= widest) return std::nullopt;
    const std::uint64_t blocks = littleEndian(data->size);
    return blocks > most >> shift ? std::nullopt : std::optional(blocks << shift);
}

std::optional<HealthLog> healthLog(Bytes log) {
    constexpr unsigned knownWarnings = spareBelowThreshold | temperatureBeyondThreshold |
                                       reliabilityDegraded | mediaReadOnly | volatileBackupFailed |
                                       persistentRegionUnreliable;
    const auto data = whole<HealthInformation>(log);
    if (!data) return std::nullopt;
    const int kelvins = static_cast<int>(littleEndian(data->compositeTemperature));
    HealthLog told;
    told.warnings = data->criticalWarning & knownWarnings;
    told.kelvins = kelvins == 0 || kelvins == kelvinsNotTold ? -1 : kelvins;
    told.spare = percentage(data->availableSpare);
    told.spareThreshold = percentage(data->availableSpareThreshold);
    told.used = data->percentageUsed;
    told.mediaErrors = littleEndian(data->mediaErrors);
    return told;
}

}  // namespace tav::nvme
