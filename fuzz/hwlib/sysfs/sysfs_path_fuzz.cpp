/// Any two paths, one behind a newline, as the root of a mirror and as what is asked of it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "hwlib/sysfs/SysFsElement.h"
#include "hwlib/sysfs/SysFsPath.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

bool isPlain(std::string_view path) {
    const bool hasDot = path == "." || path.starts_with("./") || path.ends_with("/.") ||
                        path.find("/./") != std::string_view::npos;
    return !hasDot && path.find("//") == std::string_view::npos &&
           (path == "/" || !path.ends_with('/'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string_view given = text.substr(0, text.find('\n'));
    const std::string_view asked = text.substr(std::min(size, given.size() + 1));
    const std::string root = tav::plainPath(given);
    const std::string path = tav::plainPath(asked);
    for (const std::string& plain : {root, path}) {
        require(isPlain(plain));
        require(tav::plainPath(plain) == plain);
        require(tav::pathBelow(plain, plain) == "");
    }
    const auto below = tav::pathBelow(root, path);
    if (below) {
        require(below->empty() == (path == root));
        require(!below->starts_with('/'));
        // What is below the root is found under the root's name again.
        const std::string joined =
            root.empty() ? std::string(*below) : root + '/' + std::string(*below);
        require(tav::plainPath(joined) == path);
    }
    // An entry named by a path says that path, whatever the words.
    if (!asked.empty() && asked.find('/') == std::string_view::npos)
        require(SysFsAttrib(root, std::string(asked)).getName() == asked);
    const std::string pretty = tav::_makePretty(text);
    require(pretty.size() <= text.size() && tav::_makePretty(pretty) == pretty);
    return 0;
}
