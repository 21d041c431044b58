/// Whatever `mdadm --detail-platform` prints: a version is only ever paired with a controller that
/// comes after it.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "storage/kernel/imsm_version.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view output(reinterpret_cast<const char*>(data), size);
    const auto platforms = tav::parseImsmPlatforms(output);
    require(platforms.size() <= 10);
    std::size_t at = 0;
    for (const tav::ImsmPlatform& platform : platforms) {
        require(platform.controller.find('\n') == std::string::npos);
        for (const auto& [mark, text] :
             {std::pair<std::string_view, std::string_view>("Version : ", platform.version),
              {"Controller : ", platform.controller}}) {
            at = output.find(std::string(mark).append(text), at);
            require(at != std::string_view::npos);
            at += mark.size();
        }
    }
    return 0;
}
