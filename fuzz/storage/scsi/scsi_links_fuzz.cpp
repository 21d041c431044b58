/// Any text as the target of a SCSI device's link: the PCI function and the numbers that are found
/// in it stand in it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "storage/model/storage_conditions.h"
#include "storage/model/storage_utils.h"
#include "storage/scsi/scsi_scan.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string target(reinterpret_cast<const char*>(data), size);
    const std::string location = tav::nearestPciLocation(target);
    require(location.size() <= 12);
    require(location.empty() || target.rfind('/' + location) != std::string::npos);
    for (const char* const part : {"/ata", "/host"}) {
        const int number = tav::numberBehind(target, part);
        require(number >= -1);
        require(number < 0 || (target.find(part) != std::string::npos &&
                               target.find(std::to_string(number)) != std::string::npos));
    }
    std::string text(target);
    char* const trimmed = trim_surrounding_whitespace(text.data());
    require(trimmed >= text.data() && trimmed <= text.data() + text.size());
    tav::stateOfText(target);

    // One word more than the data holds, from every word on.
    const auto bytes = std::as_bytes(std::span(data, size));
    std::string room(size + 2, '\0');
    for (std::size_t word = 0; word <= size / 2; ++word)
        require(get_ata_string(room.data(), bytes, word, size / 2 + 1) == 2 * (size / 2 - word));
    return 0;
}
