#include "storage/scsi/scsi_sysfs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "base/DirectoryListing.h"
#include "base/FileReading.h"
#include "base/OwnedCopies.h"
#include "base/Trim.h"
#include "core/Log.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/scsi/scsi_info.h"
#include "storage/scsi/scsi_replies.h"

namespace {

using tav::here;

constexpr tav::ModuleLog logger{"SCSI_INFO"};

/// A path with a name put into it. A name too long for the room makes a path that leads nowhere:
/// the empty one.
class Path {
 public:
    Path(const char* before, const char* name, const char* after) {
        const int length = std::snprintf(text_.data(), text_.size(), "%s%s%s", before, name, after);
        if (length < 0 || static_cast<std::size_t>(length) >= text_.size()) text_[0] = '\0';
    }
    operator const char*() const { return text_.data(); }

 private:
    std::array<char, 255> text_;
};

Path ofDevice(const char* link, const char* attribute) {
    return {"/sys/class/scsi_device/", link, attribute};
}

using Prefixes = std::span<const std::string_view>;

/// The alphabetically first entry of a directory that begins with one of the prefixes; empty for
/// none.
std::string firstEntry(const char* directory, Prefixes prefixes) {
    std::string first;
    tav::forEachEntry(directory, 0, [&](const tav::DirectoryEntry& entry) {
        const std::string_view name = entry.name;
        const bool fits =
            std::any_of(prefixes.begin(), prefixes.end(),
                        [&](std::string_view begin) { return name.starts_with(begin); });
        if (fits && (first.empty() || name < first)) first = name;
    });
    return first;
}

constexpr std::string_view oldBlockPrefix = "block:";

std::uint64_t sectorsOf(const std::string& blockDirectory) {
    const std::uint64_t sectors = get_sysfs_ullong((blockDirectory + "/size").c_str());
    constexpr std::uint64_t unreadable = ~std::uint64_t{0};
    return sectors == unreadable ? 0 : sectors;
}

/// An attribute's bytes; none when it cannot be read.
class RawAttribute {
 public:
    explicit RawAttribute(const char* path) : text_(tav::readAttribute(path, room_)) {}
    RawAttribute(const RawAttribute&) = delete;
    RawAttribute& operator=(const RawAttribute&) = delete;

    bool isRead() const { return static_cast<bool>(text_); }
    tav::scsi::Bytes all() const {
        return text_ ? std::as_bytes(std::span(*text_)) : tav::scsi::Bytes();
    }
    std::size_t size() const { return all().size(); }
    unsigned at(std::size_t index) const {
        return index < size() ? std::to_integer<unsigned>(all()[index]) : 0U;
    }

 private:
    std::array<char, tav::attributeLimit> room_;
    tav::Answer<std::string_view> text_;
};

RawAttribute unitSerialPage(const char* link) {
    return RawAttribute(ofDevice(link, "/device/vpd_pg80"));
}

std::optional<std::string_view> serialOn(const RawAttribute& page) {
    if (!page.isRead()) {
        logger.debug(here(), "Unable to retrieve sysfs VPD page 80.");
        return std::nullopt;
    }
    const auto serial = tav::scsi::unitSerialNumber(page.all());
    if (!serial) {
        logger.debug(here(),
                     "Unable to extract disk serial number from sysfs VPD page 80. (%zu, %u)",
                     page.size(), page.at(1));
    }
    return serial;
}

}  // namespace

std::string tav::scsi::genericName(const char* link) {
    constexpr std::array<std::string_view, 2> prefixes = {"sg", "scsi_generic:"};
    return firstEntry(ofDevice(link, "/device/scsi_generic"), prefixes);
}

std::string tav::scsi::unitSerial(const char* link) {
    const RawAttribute page = unitSerialPage(link);
    const std::string_view serial = serialOn(page).value_or("");
    return std::string(tav::trimBoth(serial.substr(0, serial.find('\0'))));
}

char* get_DiskModel(const char* link) {
    return get_sysfs_str(ofDevice(link, "/device/model"));
}

char* get_sas_DiskRev(const char* link) {
    return get_sysfs_str(ofDevice(link, "/device/rev"));
}

char* get_DiskVendor(const char* link) {
    return get_sysfs_str(ofDevice(link, "/device/vendor"));
}

char* get_DiskState(const char* link) {
    return get_sysfs_str(ofDevice(link, "/device/state"));
}

char* get_DiskType(const char* link) {
    return get_sysfs_str(ofDevice(link, "/device/type"));
}

bool is_direct_access_block_device(const char* link) {
    return (get_sysfs_lhex(ofDevice(link, "/device/type")) & 0xFFFFU) == 0;
}

char* get_ScsiGeneric(const char* link) {
    const std::string name = tav::scsi::genericName(link);
    return name.empty() ? nullptr : tav::newText(name);
}

/// Old kernels link to the block device from the device's own directory, by the name "block:sda".
tavBlockDevice get_BlockDevice(const char* link) {
    constexpr std::array<std::string_view, 2> prefixes = {oldBlockPrefix, "sd"};
    for (const char* const place : {"/device/", "/device/block/"}) {
        const Path directory = ofDevice(link, place);
        std::string entry = firstEntry(directory, prefixes);
        if (entry.empty()) continue;
        const std::uint64_t sectors = sectorsOf(std::string(directory) + entry);
        if (entry.starts_with(oldBlockPrefix)) entry.erase(0, oldBlockPrefix.size());
        return {std::move(entry), sectors};
    }
    return {};
}

std::uint64_t get_BlockSize(const char* link) {
    return get_BlockDevice(link).sectors;
}

char* get_unit_sn_from_sysfs_vpd_pg80(const char* link) {
    const RawAttribute page = unitSerialPage(link);
    const auto serial = serialOn(page);
    return serial ? tav::newText(*serial) : nullptr;
}

char* get_unit_sn_from_sysfs_inquiry(const char* link) {
    const RawAttribute inquiry(ofDevice(link, "/device/inquiry"));
    if (const auto serial = tav::scsi::inquirySerialNumber(inquiry.all())) {
        return tav::newText(*serial);
    }
    logger.debug(here(), "Unable to extract disk serial number from sysfs inquiry. (%zu, %u)",
                 inquiry.size(), inquiry.at(4));
    return nullptr;
}

char* get_durableName_from_block_vpd_pg83(const char* block) {
    const RawAttribute page(Path("/sys/block/", block, "/device/vpd_pg83"));
    const auto name = tav::scsi::durableName(page.all());
    return name ? tav::newText(*name) : nullptr;
}
