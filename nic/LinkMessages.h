#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "base/Export.h"

/// What the kernel says of links (rtnetlink(7)). Pure functions: any bytes and any text will do.
namespace tav {

struct LinkMessage {
    int interfaceIndex = 0;
    unsigned flags = 0;  ///< IFF_UP, IFF_RUNNING, ... (netdevice(7))
};

/// The link messages (RTM_NEWLINK) of one received batch, in their order. Other messages are passed
/// over; the first one whose length lies ends the batch.
TAV_API std::vector<LinkMessage> decodeLinkMessages(std::span<const std::byte> batch);

/// Why an interface is none of those that the inventory is about, by the target of its sysfs link:
/// "virtual", "infiniband", "bond", "vlan", or null.
TAV_API const char* nonPhysicalKind(std::string_view linkTarget);

/// Whether a link is neither up nor down: enabled, and not running yet.
TAV_API bool isTransient(unsigned flags);

/// The link status of an interface with these flags: "Up" or "Down".
TAV_API const char* linkTextOf(unsigned flags);

}  // namespace tav
