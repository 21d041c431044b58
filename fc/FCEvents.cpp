#include "fc/FCEvents.h"

#include <algorithm>
#include <array>

namespace tav {
namespace {

struct PortEvent {
    TAV_RESOURCE_STATE state;
    int id;
    bool isService;
    const char* text;
};

constexpr std::array portEvents = {
    PortEvent{TAV_STATE_ONLINE, 384, false, ""},
    PortEvent{TAV_STATE_OFFLINE, 385, false,
              "The Fibre Channel device port has gone offline. Refer to /var/log/messages for "
              "further details."},
    PortEvent{TAV_STATE_LINKDOWN, 386, true,
              "Fibre channel device port has changed to a state of link down. Check the FC cabling "
              "to this port."},
    PortEvent{TAV_STATE_ERROR, 388, true,
              "The Fibre Channel device port has failed. Refer to /var/log/messages for further "
              "details."},
};
constexpr int injectedEvent = 0;

const PortEvent* findEvent(int id) {
    const auto* const row = std::find_if(portEvents.begin(), portEvents.end(),
                                         [id](const PortEvent& event) { return event.id == id; });
    return row == portEvents.end() ? nullptr : row;
}

bool isKnown(const std::string& name) {
    return name != fcNotAvailable;
}

bool isSameName(const std::string& a, const std::string& b) {
    return isKnown(a) && a == b;
}

bool isSameNode(const tavFCDeviceInfo& a, const tavFCDeviceInfo& b) {
    return isSameName(a.gettavFCWWNN(), b.gettavFCWWNN());
}

/// A node's name that could not be read for once does not make another port of it.
bool isSamePort(const tavFCDeviceInfo& a, const tavFCDeviceInfo& b) {
    const bool bothNodesKnown = isKnown(a.gettavFCWWNN()) && isKnown(b.gettavFCWWNN());
    return isSameName(a.gettavFCWWPN(), b.gettavFCWWPN()) && (isSameNode(a, b) || !bothNodesKnown);
}

/// The one port that matches; null for none and for several, which nothing tells apart.
template <class Matches>
const tavFCDeviceInfo* findOnly(const std::vector<tavFCDeviceInfo>& ports, Matches matches) {
    const auto first = std::find_if(ports.begin(), ports.end(), matches);
    if (first == ports.end()) return nullptr;
    return std::find_if(first + 1, ports.end(), matches) == ports.end() ? &*first : nullptr;
}

const tavFCDeviceInfo* findPort(const std::vector<tavFCDeviceInfo>& ports,
                                const tavFCDeviceInfo& wanted) {
    return findOnly(ports, [&](const tavFCDeviceInfo& port) { return isSamePort(port, wanted); });
}

const tavFCDeviceInfo* findOnlyPortOfNode(const std::vector<tavFCDeviceInfo>& ports,
                                          const tavFCDeviceInfo& wanted) {
    return findOnly(ports, [&](const tavFCDeviceInfo& port) { return isSameNode(port, wanted); });
}

}  // namespace

std::optional<int> fcEventOf(TAV_RESOURCE_STATE state) {
    for (const PortEvent& event : portEvents) {
        if (event.state == state) return event.id;
    }
    return std::nullopt;
}

bool isFcServiceEvent(int eventId) {
    const PortEvent* const event = findEvent(eventId);
    return event != nullptr && event->isService;
}

std::string fcEventText(int eventId) {
    if (eventId == injectedEvent) return "Injected Event";
    const PortEvent* const event = findEvent(eventId);
    return event == nullptr ? "" : event->text;
}

const tavFCDeviceInfo* findPreviousFcPort(const tavFCDeviceInfo& port,
                                          const std::vector<tavFCDeviceInfo>& previous,
                                          const std::vector<tavFCDeviceInfo>& current) {
    if (const tavFCDeviceInfo* const same = findPort(previous, port)) return same;
    const tavFCDeviceInfo* const only = findOnlyPortOfNode(previous, port);
    const bool isAnothers = only != nullptr && findPort(current, *only) != nullptr;
    return isAnothers ? nullptr : only;
}

}  // namespace tav
