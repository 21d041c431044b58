#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tav::sim {

/// Vendor and device names from the public PCI id database, where the machine has one. Otherwise
/// the numbers stand for the names.
class PciNames {
 public:
    /// `database` is the text of a pci.ids file.
    explicit PciNames(std::string_view database);

    /// Ids as sysfs shows them: "0x8086".
    std::string vendor(const std::string& vendorId) const;
    std::string device(const std::string& vendorId, const std::string& deviceId) const;

 private:
    std::map<std::string, std::string> names_;  ///< by "8086" and "8086:1572"
};

/// The text of the machine's database; empty when there is none.
std::string pciIdDatabase();

}  // namespace tav::sim
