#include "nic/NICPhysicalAdapter.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <mutex>

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/FileDescriptor.h"
#include "base/ScratchFile.h"
#include "base/StopSignal.h"
#include "core/Command.h"
#include "core/Log.h"
#include "core/TimelyQuestion.h"
#include "core/tavUtils.h"
#include "hwlib/location/tavPhyLoc.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "nic/LinkMessages.h"
#include "nic/NicTables.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"NIC_CTRL"};

constexpr const char* detailsFile = "/opt/orn/tav/data/tav_nicAddDetails.txt";
constexpr std::size_t detailsLimit = 1U << 20U;
constexpr const char* unknownLocation = "FFFFFFFFFFFFFFFF";
constexpr std::size_t slotIndex = 2;  // of a geographic identity

/// The details of one interface as the host prints them. None when they cannot be had.
std::optional<std::string> readDetails(const std::string& name) {
    if (!tav::isInterfaceName(name)) {
        logger.warning(here(), "Refusing the interface name \"%s\".", name.c_str());
        return std::nullopt;
    }
    const tav::ScratchFile scratch(detailsFile);
    if (!scratch.isOpen()) return std::nullopt;
    const std::string command = "localcli network nic get -n " + name + " >> " + detailsFile;
    if (!tav::runShell(command).succeeded()) return std::nullopt;
    return scratch.read(detailsLimit);
}

/// Where an adapter sits: in a PCIe slot, or, without one, at a LAN port of the chassis that its
/// PCI function numbers.
std::string locationOf(const std::string& pciAddress) {
    const std::vector<std::string> geo = tavUtils().getGeoIDInfo(pciAddress);
    if (geo.size() <= slotIndex) return unknownLocation;
    if (std::strtol(geo[slotIndex].c_str(), nullptr, 10) > 0) {
        return tavPhyLoc::getPhyLocOrNone(geo, PHYSLOC_PCIE_SLOT, "NA");
    }
    const std::size_t function = pciAddress.rfind('.');
    return tavPhyLoc::getPhyLocOrNone(
        geo, PHYSLOC_CHASSIS_LAN,
        function == std::string::npos ? "0" : pciAddress.substr(function + 1));
}

std::string pciDescription(const std::string& pciAddress) {
    return "PCI " + pciAddress + ' ' + tavUtils().getGeoIDStr(pciAddress);
}

int speedOf(const std::string& text) {
    int speed = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), speed);
    if (parsed.ec != std::errc()) {
        logger.warning(here(), "Error occurred in identifying the speed");
        return 0;
    }
    return speed;
}

/// A request for the interface of that name; longer names are cut.
ifreq requestFor(const char* name) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    return request;
}

/// The socket that driver and flag requests go through, kept open from the first use on. -1 when
/// there is none; errno then tells why.
int driverSocket() {
    struct Kept {
        std::mutex lock;
        tav::FileDescriptor socket;
    };
    static Kept& kept = *new Kept;  // outlives every thread
    const std::lock_guard<std::mutex> held(kept.lock);
    if (!kept.socket.isOpen()) kept.socket.reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return kept.socket.get();
}

/// What a driver tells of itself, or why it does not.
struct DriverAnswer {
    int error = 0;
    ethtool_drvinfo info{};
};

/// In time: a driver may hang, with the kernel's one lock of all interfaces in its hands.
DriverAnswer askDriver(const char* name) {
    static auto& question =  // outlives every thread
        *new tav::TimelyQuestion<DriverAnswer>("tav-ethtool", "The question to a network driver");
    const int socket = driverSocket();
    const auto answer = question.ask([socket, request = requestFor(name)]() mutable {
        DriverAnswer told;
        told.info.cmd = ETHTOOL_GDRVINFO;
        request.ifr_data = reinterpret_cast<char*>(&told.info);
        if (::ioctl(socket, SIOCETHTOOL, &request) != 0) told = {errno, {}};
        return told;
    });
    return answer.value_or(DriverAnswer{ETIMEDOUT, {}});
}

/// Fixed-size text of a driver record, which need not be terminated.
template <std::size_t Size>
std::string fieldText(const char (&field)[Size]) {
    return {field, ::strnlen(field, Size)};
}

/// What follows the first ": " of a command's output, without the last character, its line end.
std::string valueInListing(const std::string& output) {
    const std::size_t colon = output.find(": ");
    if (colon == std::string::npos || output.size() < colon + 3) return {};
    return output.substr(colon + 2, output.size() - colon - 3);
}

}  // namespace

int NICPhysicalAdapter::discoverPhyAdapterInventory(PhyAdapterInventory& record,
                                                    const std::vector<std::string>& row) {
    const std::string none;
    const auto column = [&](std::size_t index) -> const std::string& {
        return index < row.size() ? row[index] : none;
    };
    const std::string& name = column(tav::NIC_COLUMN_NAME);
    const std::string& pciAddress = column(tav::NIC_COLUMN_PCI);
    const std::string& linkStatus = column(tav::NIC_COLUMN_LINK);
    const std::string& description = column(tav::NIC_COLUMN_DESCRIPTION);

    std::string firmwareVersion;
    getFWVersion(name, firmwareVersion);
    if (tav::stopRequested()) return 0;  // it ended the command; nothing is to be made of that
    logger.debug(here(), "Getting adapter status for %s", name.c_str());
    const auto status = static_cast<tav::AdapterStatus>(get_adapter_status(linkStatus.c_str()));
    const tav::AdapterCondition& condition = tav::conditionOf(status);

    record.setIntfName(name);
    record.setDeviceName(name);
    record.setSpeed(speedOf(column(tav::NIC_COLUMN_SPEED)));
    record.setMACAddress(column(tav::NIC_COLUMN_MAC));
    record.setPCIDescription(pciDescription(pciAddress));
    record.setFirmVersion(firmwareVersion);
    record.setState(tav::displayText(condition.state));
    record.setHealth(tav::displayText(condition.health));
    record.setPhyLocation(locationOf(pciAddress));
    record.setNICModel(description);
    record.setPartNumber(getPartNumValue(description));
    record.setSerialNumber("");
    record.setLinkStatus(linkStatus);
    return 0;
}

void NICPhysicalAdapter::getFWVersion(const std::string& name, std::string& version) {
    const std::optional<std::string> details = readDetails(name);
    std::optional<std::string> found;
    cableType_.reset();
    hasDetails_ = details.has_value();
    if (details) {
        found = tav::nicDetail(*details, "Firmware Version");
        cableType_ = tav::nicDetail(*details, "Cable ").value_or("");
    }
    if (!found && !tav::stopRequested()) {
        logger.warning(here(), "Error occurred in identifying fw version.");
    }
    version = found.value_or("");
}

int NICPhysicalAdapter::get_adapter_status(const char* linkStatus) {
    if (!cableType_) logger.warning(here(), "Error occurred in identifying status of NIC.");
    const std::string cableType = cableType_.value_or("");
    cableType_.reset();
    logger.debug(here(), "Cable Type: %s", cableType.c_str());
    logger.debug(here(), "Cable Type value: %s length %d", cableType.c_str(),
                 static_cast<int>(cableType.size()));
    return static_cast<int>(tav::adapterStatus(linkStatus, cableType));
}

std::tuple<std::string, std::string, std::string, std::string> NICPhysicalAdapter::get_ethtool_info(
    const char* name) {
    const std::optional<unsigned> flags = linkFlags(name);
    if (!flags) return {};
    if (driverSocket() < 0) {
        logger.error(here(), "Socket call to obtain ethtool information failed : %s",
                     std::strerror(errno));
        return {};
    }
    const auto [error, driver] = askDriver(name);
    if (error != 0) {
        logger.warning(here(),
                       "ioctl call failed while obtaining firmware_version and bus_info : %s",
                       std::strerror(error));
        if (error == ENODEV) return {};
    }
    // Whether a link is up or down needs no cable type, so the interface's details are not asked.
    const tav::AdapterCondition& condition =
        tav::conditionOf(tav::adapterStatus(tav::linkTextOf(*flags), ""));
    return {fieldText(driver.fw_version), fieldText(driver.bus_info),
            tav::displayText(condition.health), tav::displayText(condition.state)};
}

std::optional<unsigned> NICPhysicalAdapter::linkFlags(const char* name) {
    ifreq request = requestFor(name);
    if (::ioctl(driverSocket(), SIOCGIFFLAGS, &request) != 0) return std::nullopt;
    return static_cast<unsigned short>(request.ifr_flags);
}

std::tuple<std::string, std::string, std::string> NICPhysicalAdapter::getOemValues(
    const std::string& name) {
    const std::string address = std::get<1>(get_ethtool_info(name.c_str()));
    if (address.empty()) return {"NotAvailable", "PCI", unknownLocation};
    return {name, pciDescription(address), locationOf(address)};
}

std::string NICPhysicalAdapter::getPartNumValue(const std::string& description) {
    return tav::nicPartNumber(description);
}

std::string NICPhysicalAdapter::getMACAddress(const std::string& name) {
    const tav::FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen()) {
        logger.error(here(), "Socket call to obtain MAC address of the ethernet device failed: %s",
                     std::strerror(errno));
        return {};
    }
    ifreq request = requestFor(name.c_str());
    if (::ioctl(socket.get(), SIOCGIFHWADDR, &request) != 0) {
        logger.error(here(),
                     "ioctl call failed while obtaining MAC address of the ethernet device: %s",
                     std::strerror(errno));
        return {};
    }
    std::array<unsigned char, 6> bytes{};
    std::memcpy(bytes.data(), request.ifr_hwaddr.sa_data, bytes.size());
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X", bytes[0], bytes[1],
                  bytes[2], bytes[3], bytes[4], bytes[5]);
    return text.data();
}

unsigned NICPhysicalAdapter::getSpeedMbps(const char* name) {
    if (!tav::isInterfaceName(name)) return 0;
    constexpr std::uint32_t notKnown = 0xFFFF;
    const std::string path = std::string("/sys/class/net/") + name + "/speed";
    const std::uint32_t speed = get_sysfs_uint(path.c_str());
    return (speed & notKnown) == notKnown ? 0 : speed;
}

std::tuple<std::string, std::string> NICPhysicalAdapter::get_lspci_info(
    const std::string& pciAddress) {
    if (!tav::isPciAddressText(pciAddress)) {
        logger.warning(here(), "Refusing the PCI address \"%s\".", pciAddress.c_str());
        return {};
    }
    const std::string command = "lspci -vv -s " + pciAddress + " | grep ";
    const std::string product = tav::runShell(command + "\"Product Name\"").output;
    if (product.empty()) logger.warning(here(), "Unable to obtain the Product Name");
    const tav::CommandResult serial = tav::runShell(command + "\"Serial number\"");
    if (!serial.finished) {
        logger.warning(here(), "File pointer returns null value while obtaining Serial Number");
    }
    return {valueInListing(product), valueInListing(serial.output)};
}

std::vector<std::string> NICPhysicalAdapter::discoverEthDir() {
    logger.debug(here(), "Discovering ethernet instances list");
    std::vector<std::string> names;
    tavUtils().dirList("/sys/class/net", names);
    return names;
}
