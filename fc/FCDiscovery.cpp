#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <span>

#include <unistd.h>

#include "base/FileReading.h"
#include "core/Figures.h"
#include "core/Log.h"
#include "core/tavUtils.h"
#include "fc/FCAdapterTables.h"
#include "fc/FCPortQuestions.h"
#include "fc/FCPortText.h"
#include "fc/FCResourceManager.h"
#include "hwlib/location/tavPhyLoc.h"
#include "hwlib/pci/pci.h"
#include "hwlib/pci/pci_slots.h"
#include "hwlib/smbios/smbios.h"
#include "hwlib/sysfs/sysfs_readers.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"FC_RM"};

constexpr const char* fcHostClass = "/sys/class/fc_host/";
constexpr const char* scsiHostClass = "/sys/class/scsi_host/";
constexpr const char* networkClass = "/sys/class/net/";

constexpr std::size_t pathLimit = 1023;
constexpr const char* noPhysicalLocation = "FFFFFFFFFFFFFFFF";

// Names that the drivers give one attribute; the first that exists counts.
constexpr std::array serialNumberFiles = {"/serialnum", "/serial_num", "/serial_number"};
constexpr std::array firmwareVersionFiles = {"/fw_version", "/fwrev", "/firmware_version"};
constexpr std::array romVersionFiles = {"/option_rom_version", "/optrom_bios_version"};

constexpr const char* subsystemDeviceFile = "/device/../subsystem_device";
constexpr const char* subsystemVendorFile = "/device/../subsystem_vendor";

constexpr std::uint32_t subsystemKey(std::uint16_t device, std::uint16_t vendor) {
    return std::uint32_t{device} << 16U | vendor;
}

std::optional<std::string> readAttribute(const std::string& directory, const char* file) {
    const std::string path = directory + file;
    if (path.size() > pathLimit) return std::nullopt;
    const tav::OwnedText text(get_sysfs_str(path.c_str()));
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

std::string readFirst(const char* directory, std::span<const char* const> files) {
    for (const char* file : files) {
        if (auto text = readAttribute(directory, file)) return *std::move(text);
    }
    return tav::fcNotAvailable;
}

/// The names of a class' entries, sorted.
std::vector<std::string> listClass(const char* directory) {
    std::vector<std::string> names;
    tavUtils().dirList(directory, names);
    return names;
}

/// The PCI function behind a network interface, told by its device's link.
std::string functionOfInterface(const std::string& interface) {
    const std::string device = networkClass + interface + "/device";
    return tav::lastPciFunction(tav::linkTarget(device.c_str()).valueOr(""));
}

/// A plain adapter is a SCSI host of its own, with attributes of its own. Returns its key.
std::uint32_t readPlainAdapter(const std::string& scsiHost, const std::string& function,
                               tavFCDeviceInfo& port) {
    tavUtils utils;
    const tav::OwnedText slotText(getPCISlotString(scsiHost.c_str()));
    const std::vector<std::string> geo = utils.getGeoIDInfo(function);
    const std::string location = geo.empty() ? std::string() : utils.getGeoIDStr(function);
    port.settavFCDescription(std::string("PCI ") + slotText.get() + ' ' + location);
    port.settavFCSlot(geo.size() == 3 && !geo[2].empty() ? geo[2] : "0");
    port.settavFCSerialNumber(FCResourceManager::getFcHBASerialNum(scsiHost.c_str()));
    port.settavFCFirmwareVersion(FCResourceManager::getFcHBAFWVer(scsiHost.c_str()));
    port.settavFCRomVersion(FCResourceManager::getFcHBARomVer(scsiHost.c_str()));
    return subsystemKey(get_sysfs_shex((scsiHost + subsystemDeviceFile).c_str()),
                        get_sysfs_shex((scsiHost + subsystemVendorFile).c_str()));
}

/// Looking for SMBIOS may take long where there is none: it is done once, and only where an adapter
/// needs it.
int slotBySmbios(const std::string& function) {
    static std::once_flag prepared;
    std::call_once(prepared, [] {
        if (!IsSMBIOSAvailable()) InitSMBIOS();
    });
    return PciGetslot_str(function.c_str());
}

void setVitalProductData(const tav::PciVpd& vpd, tavFCDeviceInfo& port) {
    if (const std::string* const serial = vpd.find("SN")) port.settavFCSerialNumber(*serial);
    const std::string* version = vpd.find("VA");
    if (version == nullptr) version = vpd.find("V3");
    if (version != nullptr) port.settavFCFirmwareVersion(*version);
}

/// A converged adapter tells about itself in its PCI function's vital product data. Returns its
/// key, which is no adapter's when the function cannot be found.
std::uint32_t readConvergedAdapter(const std::string& function, tavFCDeviceInfo& port) {
    port.settavFCSlot(std::to_string(slotBySmbios(function)));
    const PciNodePtr node = PciGetnode_str(function.c_str());
    if (node == nullptr) return 0;
    if (const auto vpd = node->readVpd()) setVitalProductData(*vpd, port);
    return subsystemKey(node->subsystemDevice.valueOr(0xFFFF),
                        node->subsystemVendor.valueOr(0xFFFF));
}

std::string physicalLocation(const std::string& function) {
    const std::vector<std::string> geo = tavUtils().getGeoIDInfo(function);
    if (geo.size() != 3) return noPhysicalLocation;
    return tavPhyLoc::getPhyLocOrNone(geo, PHYSLOC_PCIE_SLOT, "NA");
}

/// Returns whether the state could be read.
bool readNamesAndState(const std::string& fcHost, tavFCDeviceInfo& port) {
    if (const auto name = readAttribute(fcHost, "/node_name")) {
        port.settavFCWWNN(FCResourceManager::portWWNtoString(name->c_str()));
    }
    if (const auto name = readAttribute(fcHost, "/port_name")) {
        port.settavFCWWPN(FCResourceManager::portWWNtoString(name->c_str()));
    }
    const auto text = readAttribute(fcHost, "/port_state");
    const TAV_RESOURCE_STATE state = tav::parsePortState(text.value_or(""));
    port.settavFCStatus(state, tav::healthOfPort(state));
    return text.has_value();
}

TAV_RESOURCE_STATE stateOf(const tav::FoundFcPort& port) {
    return port.info.gettavFCStatus().getFCDeviceState();
}

}  // namespace

std::string FCResourceManager::getFcHBASerialNum(const char* dir) {
    return readFirst(dir, serialNumberFiles);
}

std::string FCResourceManager::getFcHBAFWVer(const char* dir) {
    return readFirst(dir, firmwareVersionFiles);
}

std::string FCResourceManager::getFcHBARomVer(const char* dir) {
    return readFirst(dir, romVersionFiles);
}

bool FCResourceManager::fca_select(const std::string& entry,
                                   const std::vector<std::string>& fcaHosts) {
    return std::find(fcaHosts.begin(), fcaHosts.end(), entry) != fcaHosts.end();
}

std::optional<std::vector<tav::FoundFcPort>> FCResourceManager::discover() {
    const std::vector<std::string> fcaHosts = listClass(fcHostClass);
    if (fcaHosts.empty()) {
        logger.debug(here(), "no FC HBA found!!!! Cache build terminating!!!");
        return std::nullopt;
    }
    std::vector<std::string> scsiHosts = listClass(scsiHostClass);
    std::erase_if(scsiHosts, [&](const std::string& host) { return !fca_select(host, fcaHosts); });
    if (scsiHosts.empty()) {
        logger.debug(here(), "no scsi host found");
        return std::nullopt;
    }
    std::erase_if(scsiHosts, [](const std::string& host) { return !tav::parseHostName(host); });
    auto answers = questions_->ask(scsiHosts, readPort);
    std::vector<tav::FoundFcPort> found;
    for (const std::string& host : scsiHosts) {
        const auto answer = answers.find(host);
        auto port = answer == answers.end() ? silentPort(host) : std::move(answer->second);
        if (port) found.push_back(*std::move(port));
    }
    return found;
}

/// What is known of a port that does not answer, but for its state. Absent when it never has.
std::optional<tav::FoundFcPort> FCResourceManager::silentPort(const std::string& host) const {
    auto port = ports_.portOfHost(*tav::parseHostName(host));
    if (port) {
        port->info.settavFCStatus(TAV_STATE_UNKNOWN, tav::healthOfPort(TAV_STATE_UNKNOWN));
        port->hasState = false;
    }
    return port;
}

/// Absent when the port has gone since it was listed.
std::optional<tav::FoundFcPort> FCResourceManager::readPort(const std::string& host) {
    tavFCDeviceInfo port;
    const std::string scsiHost = scsiHostClass + host;
    const std::string target = tav::linkTarget(scsiHost.c_str()).valueOr("");
    const auto interface = tav::interfaceInTarget(target);
    std::string function = interface ? functionOfInterface(*interface) : std::string();
    if (function.empty()) function = tav::lastPciFunction(target);
    const std::uint32_t key = interface ? readConvergedAdapter(function, port)
                                        : readPlainAdapter(scsiHost, function, port);
    port.settavFCModel(std::string(tav::fcAdapterModel(key)));
    port.settavFCPartNumber(std::string(tav::fcAdapterPartNumber(key)));
    port.settavOemPhyLoc(physicalLocation(function));
    const std::string fcHost = fcHostClass + host;
    const bool hasState = readNamesAndState(fcHost, port);
    if (::access(fcHost.c_str(), F_OK) != 0) return std::nullopt;
    return tav::FoundFcPort{*tav::parseHostName(host), std::move(port), hasState};
}

/// Its state alone.
std::optional<tav::FoundFcPort> FCResourceManager::readState(const std::string& host) {
    const std::string fcHost = fcHostClass + host;
    const auto text = readAttribute(fcHost, "/port_state");
    if (!text) {
        logger.warning(here(), "Unable to fetch state of %s", (fcHost + "/port_state").c_str());
    }
    const TAV_RESOURCE_STATE state = tav::parsePortState(text.value_or(""));
    tavFCDeviceInfo port;
    port.settavFCStatus(state, tav::healthOfPort(state));
    return tav::FoundFcPort{*tav::parseHostName(host), std::move(port), text.has_value()};
}

/// Whether one of the first `limit` ports has another state than the inventory shows.
bool FCResourceManager::waitOnPortState(std::size_t limit) {
    const tav::Timed timed(tav::figuresOf(FIBRE_CHANNEL_DEVICES).polls);
    std::vector<std::string> hosts;
    for (const int number : ports_.hosts())
        hosts.push_back("host" + std::to_string(number));
    hosts.resize(std::min(hosts.size(), limit));
    const auto answers = questions_->ask(hosts, readState);
    return std::any_of(answers.begin(), answers.end(), [this](const auto& answer) {
        const auto known = ports_.portOfHost(answer.second->host);
        return known && stateOf(*known) != stateOf(*answer.second);
    });
}
