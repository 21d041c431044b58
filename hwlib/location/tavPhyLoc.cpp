#include "hwlib/location/tavPhyLoc.h"

#include <cstdlib>

namespace {

constexpr const char* presetCode = "FFFFFFFFFFFFFF00";
constexpr const char* noCode = "FFFFFFFFFFFFFFFF";

std::uint8_t lowByte(const std::string& text, int base) {
    return static_cast<std::uint8_t>(std::strtoull(text.c_str(), nullptr, base));
}

std::string toHex(const physloc_code_t& code) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text(2 * sizeof code.byte, '\0');
    auto next = text.rbegin();
    for (const std::uint8_t byte : code.byte) {
        *next++ = digits[byte & 0x0F];
        *next++ = digits[byte >> 4];
    }
    return text;
}

}  // namespace

std::string tavPhyLoc::getPhyLoc(const std::vector<std::string>& geo, physloc_type_t type,
                                 const std::string& instance) {
    physloc_data_t data;
    physloc_init_data(&data, 0);
    data.type = type;
    if (!geo.empty()) data.rack = lowByte(geo[0], 10);
    if (geo.size() > 1) data.u_position = lowByte(geo[1], 10);
    if (geo.size() > 2) data.slot = lowByte(geo[2], 10);
    if (instance != "NA") data.instance = lowByte(instance, 0);

    // A refused record leaves the preset code, which is what is then shown.
    physloc_code_t code;
    physloc_encode(&data, &code);
    return toHex(code);
}

std::string tavPhyLoc::getPhyLocOrNone(const std::vector<std::string>& geo, physloc_type_t type,
                                       const std::string& instance) {
    const std::string code = getPhyLoc(geo, type, instance);
    return code == presetCode ? noCode : code;
}
