/// Any bytes as configuration space. The words that are read from a device one by one must give the
/// same answers as the whole space.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include <unistd.h>

#include <sys/mman.h>

#include "base/FileDescriptor.h"
#include "hwlib/pci/pci_config.h"

namespace {

const tav::FileDescriptor& configFile() {
    static const tav::FileDescriptor file(::memfd_create("config", MFD_CLOEXEC));
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::byte> whole = std::as_bytes(std::span(data, size));
    const auto config = whole.first(std::min(size, pciConfigSize));
    const std::uint32_t capabilities = pci_get_caps(config);
    const std::uint8_t width = pci_get_lnkwidth(config);
    pci_get_revision(config);

    const int file = configFile().get();
    if (::ftruncate(file, 0) != 0 || ::pwrite(file, config.data(), config.size(), 0) < 0)
        std::abort();
    std::array<std::byte, pciConfigSize> used;
    if (config.size() != pciConfigSize || !tav::readConfigCapabilities(file, used)) return 0;
    if (pci_get_caps(used) != capabilities || pci_get_lnkwidth(used) != width) std::abort();
    return 0;
}
