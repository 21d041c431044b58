#include "sim/rmc/Injections.h"

#include <charconv>
#include <limits>

namespace tav::sim {
namespace {

constexpr std::string_view doorBellWord = "doorbell=";
constexpr std::string_view withdrawWord = "withdraw=";
constexpr std::size_t longestDoorBell = 254;

/// Decimal, or hexadecimal after "0x" or where `base` says so.
template <typename Number>
bool parseNumber(std::string_view text, Number& number, int base = 10) {
    if (text.substr(0, 2) == "0x") {
        text.remove_prefix(2);
        base = 16;
    }
    unsigned long value = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc{} || stopped != end) return false;
    if (value > std::numeric_limits<Number>::max()) return false;
    number = static_cast<Number>(value);
    return true;
}

template <typename Number>
bool parseNumber(std::string_view text, std::optional<Number>& number) {
    return parseNumber(text, number.emplace());
}

/// A number from 1, or 0 for `zeroWord`.
bool parseOrdinal(std::string_view text, std::string_view zeroWord, unsigned& number) {
    if (text == zeroWord) {
        number = 0;
        return true;
    }
    return parseNumber(text, number) && number > 0;
}

bool parseMilliseconds(std::string_view text, std::chrono::milliseconds& time) {
    std::uint32_t count = 0;
    if (!parseNumber(text, count)) return false;
    time = std::chrono::milliseconds(count);
    return true;
}

constexpr std::uint16_t requestKey(std::uint8_t netFn, std::uint8_t command) {
    return static_cast<std::uint16_t>(netFn << 8 | command);
}

bool parseRequest(std::string_view text, std::optional<std::uint16_t>& request) {
    const std::size_t slash = text.find('/');
    std::uint8_t netFn = 0;
    std::uint8_t command = 0;
    if (slash == std::string_view::npos || !parseNumber(text.substr(0, slash), netFn, 16) ||
        !parseNumber(text.substr(slash + 1), command, 16)) {
        return false;
    }
    request = requestKey(netFn, command);
    return true;
}

bool doesAnything(const Fault& fault) {
    return fault.status || fault.completionCode || fault.truncate || fault.lost ||
           fault.late.count() > 0;
}

}  // namespace

std::string Injections::parseWord(std::string_view word, Order& order) {
    const std::size_t equals = word.find('=');
    const std::string_view key = word.substr(0, equals);
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view() : word.substr(equals + 1);
    Fault& fault = order.fault;
    bool understood = false;
    if (word == "lost") {
        understood = fault.lost = true;
    } else if (key == "status") {
        understood = parseNumber(value, fault.status);
    } else if (key == "exit") {
        understood = parseNumber(value, fault.exitStatus);
    } else if (key == "code") {
        understood = parseNumber(value, fault.completionCode);
    } else if (key == "truncate") {
        understood = parseNumber(value, fault.truncate);
    } else if (key == "late") {
        understood = parseMilliseconds(value, fault.late);
    } else if (key == "command") {
        order.command = value;
        understood = !value.empty();
    } else if (key == "request") {
        understood = parseRequest(value, order.request);
    } else if (key == "nth") {
        understood = parseOrdinal(value, "all", order.nth);
    } else if (key == "frame") {
        understood = parseOrdinal(value, "last", order.frame);
    }
    return understood ? std::string() : "not understood: \"" + std::string(word) + '"';
}

std::string Injections::add(std::string_view order) {
    if (order.substr(0, doorBellWord.size()) == doorBellWord) {
        order.remove_prefix(doorBellWord.size());
        if (order.size() > longestDoorBell) return "a door bell has at most 254 bytes";
        doorBells_.emplace_back(order);
        return {};
    }
    if (order.substr(0, withdrawWord.size()) == withdrawWord) {
        return withdraw(order.substr(withdrawWord.size()));
    }
    Order parsed;
    parsed.fault.order = order;
    while (true) {
        const std::size_t comma = order.find(',');
        std::string fault = parseWord(order.substr(0, comma), parsed);
        if (!fault.empty()) return fault;
        if (comma == std::string_view::npos) break;
        order.remove_prefix(comma + 1);
    }
    if (!doesAnything(parsed.fault)) return "nothing to do is named";
    orders_.push_back(std::move(parsed));
    return {};
}

std::string Injections::withdraw(std::string_view order) {
    const auto isMeant = [order](const Order& given) {
        return order == "all" || given.fault.order == order;
    };
    const bool any = std::erase_if(orders_, isMeant) > 0 || order == "all";
    return any ? std::string() : "no such order is waiting: \"" + std::string(order) + '"';
}

/// The first order that `concerns` what begins or goes on here and is due `now`.
template <typename Concerns, typename Now>
std::optional<Fault> Injections::take(const Concerns& concerns, const Now& now, bool begins) {
    std::optional<Fault> due;
    std::erase_if(orders_, [&](Order& order) {
        if (!concerns(order)) return false;
        if (begins) ++order.seen;
        if (due || !now(order) || (order.nth != 0 && order.seen != order.nth)) return false;
        due = order.fault;
        return order.nth != 0;
    });
    return due;
}

std::optional<Fault> Injections::forFrame(std::string_view command, unsigned frame, bool last) {
    return take(
        [&](const Order& order) {
            return !order.request && (order.command.empty() || order.command == command);
        },
        [&](const Order& order) { return order.frame == 0 ? last : order.frame == frame; },
        frame == 1);
}

std::optional<Fault> Injections::forRequest(std::uint8_t netFn, std::uint8_t command) {
    return take([&](const Order& order) { return order.request == requestKey(netFn, command); },
                [](const Order&) { return true; }, true);
}

std::string Injections::nextDoorBell() {
    if (doorBells_.empty()) return {};
    std::string text = std::move(doorBells_.front());
    doorBells_.pop_front();
    return text;
}

}  // namespace tav::sim
