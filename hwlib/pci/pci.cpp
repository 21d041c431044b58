#include "hwlib/pci/pci.h"

#include "hwlib/pci/PciHost.h"
#include "hwlib/pci/PciScan.h"

bool fill_pci_node(PciNode& node, const char* dir) {
    return tav::PciScan(tav::defaultPciIds().get()).fill(node, dir);
}

int pci_node_scan(PciNode& node, const char* dir) {
    return tav::PciScan(tav::defaultPciIds().get()).addBelow(node, dir);
}

PciNodePtr PciGetnode(const PciAddress& address) {
    return tav::defaultPciHost().find(address).valueOr(nullptr);
}

PciNodePtr PciGetnode_str(const char* address) {
    const auto parsed = tav::parsePciDevice(address);
    return parsed ? PciGetnode(*parsed) : nullptr;
}

const char* PciGetVPDProductName(const PciNode* node) {
    const tav::PciVpd* const vpd = node == nullptr ? nullptr : node->keptVpd();
    return vpd == nullptr ? nullptr : vpd->name.c_str();
}

const char* PciGetVPDtag(const PciNode* node, const char* keyword) {
    const tav::PciVpd* const vpd = node == nullptr ? nullptr : node->keptVpd();
    const std::string* const value = vpd == nullptr ? nullptr : vpd->find(keyword);
    return value == nullptr ? nullptr : value->c_str();
}

const char* PciGetVPDataProductName(const PciNode* node) {
    return PciGetVPDtag(node, "ZQ");
}
