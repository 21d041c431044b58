#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tav::sim {

/// What is known of a simulated disk: "key=value" lines, as tav-sim-server writes them. What a disk
/// reports and the lines do not tell is that of a healthy SATA disk that rotates.
class DiskFacts {
 public:
    explicit DiskFacts(const std::string& lines);

    std::string text(std::string_view key, const std::string& otherwise = "") const;
    /// The value as a decimal number that may be negative; `otherwise` where there is none.
    std::int64_t number(std::string_view key, std::int64_t otherwise) const;

    bool isSas() const { return text("protocol") == "SAS"; }
    bool isSolidState() const { return text("media") == "SSD"; }
    /// Whether the disk is plugged in, and whether it answers commands.
    bool isPresent() const { return text("present") != "no"; }
    bool answers() const { return text("answers") != "no"; }

 private:
    std::map<std::string, std::string, std::less<>> values_;
};

/// A disk's answer to a command: data, or the sense data of a check condition.
struct DiskAnswer {
    std::vector<std::uint8_t> data;
    std::vector<std::uint8_t> sense;
};

/// What the disk answers: as a SAS disk does by SPC-4 and SBC-3, or as a SATA disk behind a
/// translation layer does by SAT-3 and ACS-3. Data is cut to the command's allocation length.
DiskAnswer answerCommand(const DiskFacts& disk, std::span<const std::uint8_t> command);

}  // namespace tav::sim
