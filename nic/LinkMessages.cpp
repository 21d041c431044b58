#include "nic/LinkMessages.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace tav {
namespace {

constexpr std::size_t headerSize = sizeof(nlmsghdr);
constexpr std::size_t linkSize = NLMSG_ALIGN(headerSize) + sizeof(ifinfomsg);

struct NonPhysical {
    std::string_view part;  ///< of the link's target
    const char* kind;
};
constexpr std::array nonPhysicals = {
    NonPhysical{"virtual", "virtual"},
    NonPhysical{"ib", "infiniband"},
    NonPhysical{"bond", "bond"},
    NonPhysical{"vlan", "vlan"},
};

}  // namespace

std::vector<LinkMessage> decodeLinkMessages(std::span<const std::byte> batch) {
    std::vector<LinkMessage> messages;
    while (batch.size() >= headerSize) {
        nlmsghdr header{};
        std::memcpy(&header, batch.data(), headerSize);
        if (header.nlmsg_len < headerSize || header.nlmsg_len > batch.size()) break;
        if (header.nlmsg_type == RTM_NEWLINK && header.nlmsg_len >= linkSize) {
            ifinfomsg link{};
            std::memcpy(&link, batch.data() + NLMSG_ALIGN(headerSize), sizeof link);
            messages.push_back({link.ifi_index, link.ifi_flags});
        }
        const std::size_t next = NLMSG_ALIGN(static_cast<std::size_t>(header.nlmsg_len));
        batch = batch.subspan(std::min(next, batch.size()));
    }
    return messages;
}

const char* nonPhysicalKind(std::string_view linkTarget) {
    const auto* const found =
        std::find_if(nonPhysicals.begin(), nonPhysicals.end(), [&](const NonPhysical& candidate) {
            return linkTarget.find(candidate.part) != std::string_view::npos;
        });
    return found == nonPhysicals.end() ? nullptr : found->kind;
}

bool isTransient(unsigned flags) {
    return (flags & IFF_UP) != 0 && (flags & IFF_RUNNING) == 0;
}

const char* linkTextOf(unsigned flags) {
    return (flags & IFF_UP) != 0 && (flags & IFF_RUNNING) != 0 ? "Up" : "Down";
}

}  // namespace tav
