#pragma once

#include <string>
#include <vector>

namespace tav::sim {

/// One Ethernet adapter as the hypervisor's commands tell of it.
struct EthernetAdapter {
    std::string name;         ///< "eth0"
    std::string pciAddress;   ///< "0000:01:00.0"
    std::string driver;       ///< "igb"
    std::string macAddress;   ///< "02:00:00:00:00:01"
    std::string speed;        ///< Mbps
    std::string mtu;          ///< bytes
    std::string description;  ///< maker and device
    bool isEnabled = false;   ///< administratively
    bool hasLink = false;
};

/// What `localcli network nic get` tells beyond the list.
struct EthernetDetails {
    std::string firmwareVersion;
    std::string driverVersion;
    std::string cableType;  ///< "Twisted Pair", "FIBRE", ...; empty: none
};

/// This machine's adapters: its network interfaces that stand for a PCI function. A file of lines
/// "Key: value" in /run/sim/ethernet/ with an adapter's name tells what a simulated one cannot:
/// "Description", "Speed", "Firmware Version", "Cable Type".
std::vector<EthernetAdapter> readEthernetAdapters();
EthernetDetails readEthernetDetails(const std::string& name);

/// `localcli network nic list`.
std::string nicList(const std::vector<EthernetAdapter>& adapters);
/// `localcli network nic get -n NAME`.
std::string nicDetails(const EthernetAdapter& adapter, const EthernetDetails& details);

}  // namespace tav::sim
