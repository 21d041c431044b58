#pragma once

#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/hostcmds/PciNames.h"

/// What the hypervisor's commands print, from the facts of a Linux machine.
namespace tav::sim {

/// "   Label: value", as the hypervisor prints one fact of several.
std::string row(const std::string& label, const std::string& value);

/// A table as the hypervisor prints it: a heading (the first row), a line of dashes, then the rows.
std::string table(const std::vector<std::vector<std::string>>& rows);

/// `localcli system version get`. `osRelease` is the text of /etc/os-release; the kernel's release
/// stands for the build, and for the version of a system that has none.
std::string systemVersion(std::string_view osRelease, const std::string& kernelRelease);

struct PciFunction {
    std::string address;                                                    ///< "0000:3b:00.0"
    std::string vendorId, deviceId, subVendorId, subDeviceId, deviceClass;  ///< "0x8086"
    std::string driver;                                                     ///< empty: none
    std::string slot;  ///< name of the physical slot; empty: on board
};

/// The PCI functions of this machine, by address.
std::vector<PciFunction> readPciFunctions();

/// `localcli hardware pci list`.
std::string pciList(std::span<const PciFunction> functions, const PciNames& names);

struct ScsiHost {
    std::string name;    ///< "host0"
    std::string driver;  ///< "ahci"
    std::string pciAddress;
};

/// The SCSI hosts of this machine that are PCI devices, in the order of their names.
std::vector<ScsiHost> readScsiHosts();

/// `localcli storage core adapter list`.
std::string adapterList(std::span<const ScsiHost> hosts, std::span<const PciFunction> functions,
                        const PciNames& names);

/// One batch sample of `esxtop`: a row of counter names and a row of values, every field in double
/// quotes with a comma after it, so that a row's first field begins with the line feed. `meminfo`
/// is the text of /proc/meminfo.
std::string memorySample(const std::string& host, const std::string& moment,
                         std::string_view meminfo);

/// One line of the hypervisor's summary log. The stamp is local time although a "Z" follows it.
struct SummaryLine {
    long time = 0;
    std::string text;
};
std::string summaryLog(std::vector<SummaryLine> lines);

/// The last component of the path that is a PCI address ("0000:00:1f.2"); empty when there is none.
std::string pciAddressIn(const std::filesystem::path& path);

/// The value of `key` in "key=value" or "key: value" lines, without quotes; empty when not there.
std::string valueOf(std::string_view text, std::string_view key, char separator);

}  // namespace tav::sim
