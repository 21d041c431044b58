/// Any bytes as vital product data.
#include <cstdint>
#include <cstdlib>

#include "hwlib/pci/pci_vpd.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto vpd = std::as_bytes(std::span(data, size));
    const auto name = pci_get_vpdname(vpd);
    PciVpdList list = pci_get_vpdtags(vpd);
    if (list != nullptr && !name) std::abort();
    std::size_t records = 0;
    for (const auto* entry = list.get(); entry != nullptr; entry = entry->next.get())
        ++records;
    if (records * 4 > size) std::abort();
    const auto whole = tav::parsePciVpd(vpd);
    if (whole ? whole->name != name : name.has_value()) std::abort();
    if (whole) whole->find("SN");
    pci_free_vpdtags(std::move(list));
    return 0;
}
