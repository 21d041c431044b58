#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/tavResourceStatus.h"

/// What the host's network commands print, and what it means. Pure functions of text: any text will
/// do, and none of them logs, blocks or throws.
namespace tav {

/// Columns of `localcli network nic list`.
enum NicColumn : std::size_t {
    NIC_COLUMN_NAME = 0,
    NIC_COLUMN_PCI = 1,
    NIC_COLUMN_LINK = 4,
    NIC_COLUMN_SPEED = 5,
    NIC_COLUMN_MAC = 7,
    NIC_COLUMN_DESCRIPTION = 9,
};
inline constexpr std::size_t nicColumns = 10;

/// The rows of the list behind its header and separator lines, each of exactly nicColumns words;
/// the last one holds the rest of the line, its words joined by single blanks. Lines with fewer
/// words are dropped.
std::vector<std::vector<std::string>> parseNicList(std::string_view text);

struct NicLink {
    std::string name;
    std::string status;
};

/// The two-column list of names and link statuses. Lines of another form are dropped.
std::vector<NicLink> parseNicLinks(std::string_view text);

/// The first line of an interface's details that contains `label` and a colon: what stands behind
/// its first colon and the one blank that follows it. Empty when there is no such line.
std::optional<std::string> nicDetail(std::string_view details, std::string_view label);

/// Whether the text can be the name of an interface, so that it may stand in a command: at most 15
/// letters, digits, '_', '-', '.' and ':', and a first one that no option or hidden file begins
/// with.
bool isInterfaceName(std::string_view name);

/// Whether the text holds the digits and separators of a PCI address alone.
bool isPciAddressText(std::string_view address);

/// What an adapter's link status amounts to; the codes are those of get_adapter_status().
enum class AdapterStatus { Running = 1, Failed = 2, Down = 3, Other = 4 };

struct AdapterCondition {
    AdapterStatus status;
    TAV_RESOURCE_STATE state;
    TAV_RESOURCE_HEALTH health;
};

/// By code, in their order.
inline constexpr std::array adapterConditions = {
    AdapterCondition{AdapterStatus::Running, TAV_STATE_RUNNING, TAV_HEALTH_OK},
    AdapterCondition{AdapterStatus::Failed, TAV_STATE_FAILED, TAV_HEALTH_CRITICAL},
    AdapterCondition{AdapterStatus::Down, TAV_STATE_DOWN, TAV_HEALTH_UNKNOWN},
    AdapterCondition{AdapterStatus::Other, TAV_STATE_OTHER, TAV_HEALTH_UNKNOWN},
};

constexpr const AdapterCondition& conditionOf(AdapterStatus status) {
    return adapterConditions[static_cast<std::size_t>(status) - 1];
}

/// The status by the text of the link status, whatever its case. A link that is neither up, down
/// nor unknown runs when a cable type is known: when `cableType` holds more than blanks.
AdapterStatus adapterStatus(std::string_view linkStatus, std::string_view cableType);

/// Whether the status by that text differs with the cable type.
bool hangsOnCable(std::string_view linkStatus);

/// The spare-part number of an adapter with that description, or "".
const char* nicPartNumber(std::string_view description);

}  // namespace tav
