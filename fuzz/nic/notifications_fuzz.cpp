#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nic/LinkLedgers.h"
#include "nic/LinkMessages.h"
#include "nic/NicTables.h"
#include "nic/NotificationSlots.h"

namespace {

constexpr std::size_t links = 2;
constexpr std::size_t smallestMessage = 32;
const tav::NicCondition running{"Running", "OK"};
const tav::NicCondition down{"Down", "Unknown"};

void require(bool holds) {
    if (!holds) std::abort();
}

std::string nameOf(std::size_t link) {
    return "eth" + std::to_string(link);
}

/// What the host lists: every link, in the given condition.
std::vector<tav::FoundInterface> listOf(const std::array<tav::NicCondition, links>& conditions) {
    std::vector<tav::FoundInterface> found(links);
    for (std::size_t link = 0; link < links; ++link) {
        found[link].adapter.setIntfName(nameOf(link));
        found[link].adapter.setState(conditions[link].state);
        found[link].adapter.setHealth(conditions[link].health);
    }
    return found;
}

/// What the ledgers must say, told in another way.
struct Expected {
    std::array<tav::NicCondition, links> now{running, running};
    std::array<bool, links> hasRecovered{};

    void look(std::size_t link, const tav::NicCondition& found) {
        if (!(now[link] == found)) hasRecovered[link] = found == running;
        now[link] = found;
    }
};

void apply(const tav::LinkMessage& message, tav::LinkLedgers& ledgers, Expected& expected) {
    if (tav::isTransient(message.flags)) return;
    const auto status = tav::adapterStatus(tav::linkTextOf(message.flags), "");
    const tav::NicCondition found = status == tav::AdapterStatus::Running ? running : down;
    const auto link = static_cast<unsigned>(message.interfaceIndex) % (links + 1);
    const auto place = ledgers.takeCondition(nameOf(link), found);
    if (link == links) {
        require(!place);  // none of the inventory's
        return;
    }
    require(place.has_value() == !(expected.now[link] == found));
    require(!place || *place == link);
    expected.look(link, found);
}

/// Cuts the input into batches: each begins with its length.
void postAll(std::span<const std::byte> input, tav::NotificationSlots& slots) {
    while (input.size() > 1) {
        const std::size_t length =
            std::min(std::to_integer<std::size_t>(input[0]), input.size() - 1);
        require(slots.post({input.begin() + 1, input.begin() + 1 + static_cast<long>(length)}));
        input = input.subspan(1 + length);
    }
}

}  // namespace

/// Whatever bytes the notifications hold, the slots hand them on in order, and the ledgers say of
/// each link what the last message that counts said of it, and report each recovery once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > tav::NotificationSlots::slotSize) return 0;
    static const tav::LinkLedgers allRunning = [] {
        tav::LinkLedgers ledgers;
        require(ledgers.takeList(listOf(Expected().now), tav::LookClock::now()).recovered.empty());
        return ledgers;
    }();
    tav::LinkLedgers ledgers = allRunning;
    Expected expected;
    const auto beforeAll = tav::LookClock::now();

    tav::NotificationSlots slots;
    slots.reportMissed();  // so that there is work even without a batch
    postAll(std::as_bytes(std::span(data, size)), slots);
    const tav::NotificationSlots::Work work = slots.take();
    require(work.missed && work.notifications.size() <= tav::NotificationSlots::slotCount);
    for (const tav::Notification& notification : work.notifications) {
        const auto messages = tav::decodeLinkMessages(notification);
        require(messages.size() <= notification.size() / smallestMessage);
        for (const tav::LinkMessage& message : messages)
            apply(message, ledgers, expected);
    }

    // A list that was read before undoes nothing.
    const auto news = ledgers.takeList(listOf({down, running}), beforeAll - std::chrono::hours(1));
    const auto due = std::count(expected.hasRecovered.begin(), expected.hasRecovered.end(), true);
    require(news.recovered.size() == static_cast<std::size_t>(due));
    for (std::size_t link = 0; link < links; ++link)
        require(ledgers.conditionOfLink(nameOf(link)) == std::optional(expected.now[link]));
    require(ledgers.takeList(listOf(expected.now), tav::LookClock::now()).recovered.empty());
    return 0;
}
