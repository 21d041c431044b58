/// Any text as the firmware's table of addresses, beside a slow reading of it line by line.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>

#include "hwlib/smbios/SmbiosTable.h"

namespace {

tav::Answer<std::uint64_t> addressIn(const std::string& line) {
    if (line.size() > 62 || line.rfind("SMBIOS=", 0) != 0) return tav::Lack::Absent;
    try {
        return std::stoull(line.substr(7), nullptr, 0);
    } catch (const std::logic_error&) {
        return tav::Lack::Malformed;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string systab(reinterpret_cast<const char*>(data), size);
    std::istringstream lines(systab);
    tav::Answer<std::uint64_t> expected = tav::Lack::Absent;
    for (std::string line; !expected && std::getline(lines, line);)
        expected = addressIn(line);
    const auto found = tav::smbiosAddressInSystab(systab);
    const bool isSame = expected ? found == *expected : !found;
    if (!isSame) std::abort();
    return 0;
}
