// Any 8 bytes as a code, any 16 bytes as a description record: whatever is accepted must come back
// unchanged from the other direction, and have its texts.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "hwlib/location/physloc.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

int decode(const physloc_code_t& code, physloc_data_t* data) {
    return physloc_decode(physloc_word(code, 0), physloc_word(code, 1), data);
}

void checkTexts(const physloc_code_t& code) {
    for (int form = PHYSLOC_FORM_LONG; form <= PHYSLOC_FORM_SHORT; ++form) {
        char text[PHYSLOC_TEXT_SIZE];
        const int result =
            physloc_get_string(form, physloc_word(code, 0), physloc_word(code, 1), text);
        const bool mayBeMissing = form == PHYSLOC_FORM_SHORT;
        require(result == PHYSLOC_SUCCESS || (mayBeMissing && result == PHYSLOC_NOT_IMPLEMENTED));
        if (result == PHYSLOC_SUCCESS) require(std::memchr(text, '\0', sizeof text) != nullptr);
    }
}

void checkCode(const physloc_code_t& code) {
    physloc_data_t decoded;
    const int result = decode(code, &decoded);
    if (result != PHYSLOC_SUCCESS) {
        require(result == PHYSLOC_INVALID_PHYSLOC);
        return;
    }
    physloc_code_t again;
    require(physloc_encode(&decoded, &again) == PHYSLOC_SUCCESS && again == code);
    checkTexts(code);
}

void checkRecord(physloc_data_t data) {
    physloc_code_t code;
    if (physloc_encode(&data, &code) != PHYSLOC_SUCCESS) return;
    physloc_data_t decoded;
    require(decode(code, &decoded) == PHYSLOC_SUCCESS && decoded.type == data.type);
    checkCode(code);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size >= sizeof(physloc_code_t)) {
        physloc_code_t code;
        std::memcpy(&code, bytes, sizeof code);
        checkCode(code);
    }
    if (size >= sizeof(physloc_data_t)) {
        physloc_data_t data;
        std::memcpy(&data, bytes, sizeof data);
        checkRecord(data);
    }
    return 0;
}
