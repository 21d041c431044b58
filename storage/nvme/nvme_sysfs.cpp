#include "storage/nvme/nvme_sysfs.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include <unistd.h>

#include "base/DirectoryListing.h"
#include "base/FileReading.h"
#include "base/Trim.h"
#include "hwlib/sysfs/sysfs_readers.h"

namespace tav::nvme {
namespace {

constexpr const char* controllers = "/sys/class/nvme";
const std::string subsystems = "/sys/class/nvme-subsystem/nvme-subsys";
constexpr std::string_view device = "nvme";

/// Takes `word` and the number behind it off the beginning of `text`; absent when they are not
/// there.
std::optional<unsigned> takeNumber(std::string_view word, std::string_view& text) {
    if (!text.starts_with(word)) return std::nullopt;
    const std::string_view digits = text.substr(word.size());
    unsigned number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || digits.starts_with('-')) return std::nullopt;
    text = digits.substr(static_cast<std::size_t>(end - digits.data()));
    return number;
}

std::optional<unsigned> controllerNumber(std::string_view name) {
    const auto number = takeNumber(device, name);
    return name.empty() ? number : std::nullopt;
}

template <class Visit>
void forEachName(const std::string& directory, Visit visit) {
    forEachEntry(directory.c_str(), 0, [&](const DirectoryEntry& entry) { visit(entry.name); });
}

/// The controllers that a directory names, by their numbers.
std::vector<std::string> controllersIn(const std::string& directory) {
    std::vector<unsigned> numbers;
    forEachName(directory, [&](std::string_view name) {
        if (const auto number = controllerNumber(name)) numbers.push_back(*number);
    });
    std::sort(numbers.begin(), numbers.end());
    std::vector<std::string> names;
    names.reserve(numbers.size());
    for (const unsigned number : numbers)
        names.push_back(std::string(device) + std::to_string(number));
    return names;
}

std::string namespaceDirectory(const std::string& controller, const std::string& name) {
    return controllerDirectory(controller) + '/' + name;
}

}  // namespace

std::optional<NamespaceName> parseNamespaceName(std::string_view name) {
    const auto subsystem = takeNumber(device, name);
    const bool isPath = subsystem && takeNumber("c", name);
    const auto head = takeNumber("n", name);
    if (!subsystem || !head || !name.empty()) return std::nullopt;
    return NamespaceName{
        std::string(device) + std::to_string(*subsystem) + 'n' + std::to_string(*head), *subsystem,
        isPath};
}

std::vector<std::string> listControllers() {
    return controllersIn(controllers);
}

std::string controllerDirectory(const std::string& controller) {
    return std::string(controllers) + '/' + controller;
}

std::optional<std::string> attribute(const std::string& directory, const char* name) {
    const OwnedText text(get_sysfs_str((directory + '/' + name).c_str()));
    if (!text) return std::nullopt;
    return std::string(trimBoth(text.get()));
}

std::string pciFunctionOf(const std::string& controller) {
    const std::string directory = controllerDirectory(controller);
    if (attribute(directory, "transport").value_or("pcie") != "pcie") return {};
    // The directory of its device is named by the function's address.
    const auto target = linkTarget((directory + "/device").c_str());
    if (!target) return {};
    const std::string name = target->substr(target->rfind('/') + 1);
    const bool isPci = attribute(directory + "/device", "vendor").has_value();
    return isPci ? name : std::string();
}

ControllerState stateOf(const std::string& controller) {
    const std::string directory = controllerDirectory(controller);
    if (auto word = attribute(directory, "state")) return controllerState(word);
    const bool exists = ::access(directory.c_str(), F_OK) == 0;
    return exists ? ControllerState::Unknown : ControllerState::Gone;
}

std::vector<ListedNamespace> listNamespaces(const std::string& controller) {
    std::vector<ListedNamespace> found;
    forEachName(controllerDirectory(controller), [&](std::string_view entry) {
        const auto parsed = parseNamespaceName(entry);
        if (!parsed) return;
        const std::string name(entry);
        const std::uint32_t id =
            get_sysfs_uint((namespaceDirectory(controller, name) + "/nsid").c_str());
        if (id == 0 || id == std::numeric_limits<std::uint32_t>::max()) return;
        found.push_back({name, parsed->blockDevice, parsed->isPath, id});
    });
    std::sort(found.begin(), found.end(),
              [](const ListedNamespace& a, const ListedNamespace& b) { return a.id < b.id; });
    return found;
}

std::vector<std::string> controllersOf(const std::string& controller,
                                       const std::string& namespaceName) {
    const auto parsed = parseNamespaceName(namespaceName);
    if (!parsed || !parsed->isPath) {
        const bool isListed =
            ::access(namespaceDirectory(controller, namespaceName).c_str(), F_OK) == 0;
        return isListed ? std::vector{controller} : std::vector<std::string>();
    }
    std::vector<std::string> candidates =
        controllersIn(subsystems + std::to_string(parsed->subsystem));
    if (std::find(candidates.begin(), candidates.end(), controller) == candidates.end())
        candidates.push_back(controller);
    std::erase_if(candidates, [&](const std::string& candidate) {
        const std::vector<ListedNamespace> listed = listNamespaces(candidate);
        return std::none_of(listed.begin(), listed.end(), [&](const ListedNamespace& one) {
            return one.blockDevice == parsed->blockDevice;
        });
    });
    return candidates;
}

std::uint64_t bytesOf(const std::string& controller, const std::string& namespaceName) {
    constexpr std::uint64_t sectorSize = 512;  // of the kernel's counts
    const std::uint64_t sectors =
        get_sysfs_ullong((namespaceDirectory(controller, namespaceName) + "/size").c_str());
    return sectors > std::numeric_limits<std::uint64_t>::max() / sectorSize ? 0
                                                                            : sectors * sectorSize;
}

}  // namespace tav::nvme
