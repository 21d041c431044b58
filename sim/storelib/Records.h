#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

namespace tav::sim {

/// One record of the library, little-endian; what is not written is 0.
class RaidRecord {
 public:
    explicit RaidRecord(std::size_t size) : bytes_(size) {}

    /// A number of `width` bytes. Both writes pass over what does not lie within the record.
    void put(std::size_t offset, std::size_t width, std::int64_t value);
    /// Text of at most `width` bytes, the rest of them filled.
    void putText(std::size_t offset, std::size_t width, const std::string& text, char fill);

    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
    std::vector<std::uint8_t> bytes_;
};

// What the library tells of the "controllers" of a server's "raid" section.

RaidRecord controllerList(const Json::Value& raid);
RaidRecord controllerInformation(const Json::Value& controller);
RaidRecord pciInformation(const Json::Value& controller);
RaidRecord manufacturingRecord(const Json::Value& controller);
RaidRecord safeId(const Json::Value& controller);
RaidRecord driveList(const Json::Value& controller);
RaidRecord enclosureList(const Json::Value& controller);
RaidRecord volumeList(const Json::Value& controller);
RaidRecord driveInformation(const Json::Value& drive);
RaidRecord volumeInformation(const Json::Value& volume);
RaidRecord volumeDrives(const Json::Value& volume);
RaidRecord sequenceInformation(std::uint32_t newest);

/// An event of `controller` by its "code", "class", "locale", "type" and "text", and by the
/// "drive", with its "previous" and "new" state, or the "volume" that it is about.
RaidRecord eventDetail(const Json::Value& controller, const Json::Value& event,
                       std::uint32_t sequence);

/// The entry of `list` with this "id"; null when there is none.
const Json::Value& entryWithId(const Json::Value& list, std::int64_t id);

}  // namespace tav::sim
