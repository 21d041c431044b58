#include "hwlib/sysfs/SysFsPath.h"

#include <algorithm>

std::string tav::plainPath(std::string_view path) {
    std::string plain(path.starts_with('/') ? "/" : "");
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(component.size() + 1, path.size()));
        if (component.empty() || component == ".") continue;
        if (!plain.empty() && plain.back() != '/') plain += '/';
        plain += component;
    }
    return plain;
}

tav::Answer<std::string_view> tav::pathBelow(std::string_view root, std::string_view path) {
    if (path == root) return std::string_view();
    if (root.empty()) return path.starts_with('/') ? Answer<std::string_view>(Lack::Absent) : path;
    if (!path.starts_with(root)) return Lack::Absent;
    path.remove_prefix(root.size());
    if (root == "/") return path;
    if (!path.starts_with('/')) return Lack::Absent;
    return path.substr(1);
}
