#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "storage/nvme/nvme_conditions.h"

/// What /sys/class/nvme tells of controllers and their namespaces, without asking any. Any thread.
namespace tav::nvme {

/// The kernel's name of a namespace in the directory of one of its controllers: "nvme0n1" for the
/// block device itself; "nvme0c1n1" for the path that leads to it through controller 1 of those
/// that share it, where the block device is "nvme0n1".
struct NamespaceName {
    std::string blockDevice;
    unsigned subsystem = 0;  ///< the kernel's number of what shares it
    bool isPath = false;
};
/// Absent for what is no such name.
std::optional<NamespaceName> parseNamespaceName(std::string_view name);

/// The kernel's names of all controllers ("nvme0"), by their numbers.
std::vector<std::string> listControllers();

/// "/sys/class/nvme/nvme0"
std::string controllerDirectory(const std::string& controller);

/// A line of text of a controller's or namespace's directory, trimmed; absent when it cannot be
/// read.
std::optional<std::string> attribute(const std::string& directory, const char* name);

/// The PCI function of a controller ("0000:3b:00.0"); empty for one that is reached otherwise.
std::string pciFunctionOf(const std::string& controller);

ControllerState stateOf(const std::string& controller);

struct ListedNamespace {
    std::string name;  ///< of the path through this controller
    std::string blockDevice;
    bool isPath = false;
    std::uint32_t id = 0;  ///< NSID
};
/// The controller's namespaces by their ids. One that tells no id is left out.
std::vector<ListedNamespace> listNamespaces(const std::string& controller);

/// The controllers through which the kernel reaches a namespace, by their numbers: at most
/// `controller` itself, unless the namespace stands there as a path.
std::vector<std::string> controllersOf(const std::string& controller,
                                       const std::string& namespaceName);

/// 0 where it does not tell, or there is no such block device.
std::uint64_t bytesOf(const std::string& controller, const std::string& namespaceName);

}  // namespace tav::nvme
