#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "base/Export.h"
#include "nic/PhyAdapterInventory.h"

/// Asks the host about one Ethernet interface. Cheap to make; one object belongs to one thread. The
/// host's answers are foreign: a probe that fails is logged and gives an empty or default value.
class TAV_API NICPhysicalAdapter {
 public:
    /// Fills every field of the record from one row of the interface list (see tav::parseNicList;
    /// columns that are missing read as empty) and from the interface's details; fills
    /// none when the thread is asked to stop meanwhile. Always 0.
    int discoverPhyAdapterInventory(PhyAdapterInventory& record,
                                    const std::vector<std::string>& row);

    /// The firmware version of the interface; empty when it is not known. Runs the host command
    /// that prints the interface's details, and keeps the cable type for get_adapter_status().
    void getFWVersion(const std::string& name, std::string& version);

    /// Status code 1 to 4 (see tav::AdapterStatus) of a link status text, with the cable type that
    /// the last getFWVersion() found; that is used once.
    int get_adapter_status(const char* linkStatus);

    /// Firmware version, bus address, health text and state text from the interface's driver and
    /// flags. Health and state are empty when there is no such interface (any more).
    std::tuple<std::string, std::string, std::string, std::string> get_ethtool_info(
        const char* name);

    /// Device name, PCI description and location code of an interface by what its driver says.
    /// "NotAvailable", "PCI" and "FFFFFFFFFFFFFFFF" where it says nothing.
    std::tuple<std::string, std::string, std::string> getOemValues(const std::string& name);

    /// The interface's flags (IFF_UP, IFF_RUNNING, ...); none when there is no such interface.
    static std::optional<unsigned> linkFlags(const char* name);

    /// Whether the details of the interface that was asked last could be had.
    bool hasDetails() const { return hasDetails_; }

    /// Spare-part number, or "".
    std::string getPartNumValue(const std::string& description);

    /// "02:00:00:00:00:01"; empty when it cannot be read.
    std::string getMACAddress(const std::string& name);

    /// 0 when it is not known.
    unsigned getSpeedMbps(const char* name);

    /// Product name and serial number of a PCI function; empty where it tells none.
    std::tuple<std::string, std::string> get_lspci_info(const std::string& pciAddress);

    /// The names of the system's network interfaces, sorted.
    std::vector<std::string> discoverEthDir();

 private:
    /// Of the interface that was asked last; none when the details could not be had.
    std::optional<std::string> cableType_;
    bool hasDetails_ = false;
};
