#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tav::sim {

/// What the controller does instead of answering properly. Faults combine.
struct Fault {
    std::optional<std::uint8_t> status;  ///< transfer status in place of the true one
    std::uint8_t exitStatus = 0;
    std::optional<std::uint8_t> completionCode;  ///< the exchange fails, without data
    std::optional<std::size_t> truncate;         ///< so many data bytes are answered
    std::chrono::milliseconds late{0};
    bool lost = false;
    std::string order;  ///< as it was given
};

/// The faults that were ordered and are still to come, and the texts behind the door bell.
///
/// An order is one line, of words joined by commas:
///   status=S  exit=E  code=C  truncate=BYTES  late=MS  lost    what happens
///   command=NAME                       to that command only     (default: to any)
///   request=NETFN/COMMAND              to that plain request, in hexadecimal, not to a command
///   nth=N | nth=all                    to the Nth from now on   (default: 1)
///   frame=N | frame=last               after that frame         (default: 1)
/// or withdraw=ORDER, which takes back an order that was given in these words, or all of them for
/// withdraw=all,
/// or doorbell=TEXT, the rest of the line: what the next unanswered door bell says.
class Injections {
 public:
    /// Empty when the order was understood, otherwise what is wrong with it.
    std::string add(std::string_view order);

    /// The fault due for this frame of a command, which is thereby used up.
    std::optional<Fault> forFrame(std::string_view command, unsigned frame, bool last);

    /// The fault due for this plain request, which is thereby used up.
    std::optional<Fault> forRequest(std::uint8_t netFn, std::uint8_t command);

    /// The text of this door bell; empty when there is nothing to ask for.
    std::string nextDoorBell();

 private:
    struct Order {
        Fault fault;
        std::string command;
        std::optional<std::uint16_t> request;  ///< NetFn and command
        unsigned nth = 1;                      ///< 0: all
        unsigned frame = 1;                    ///< 0: the last
        unsigned seen = 0;
    };

    std::string withdraw(std::string_view order);
    static std::string parseWord(std::string_view word, Order& order);
    template <typename Concerns, typename Now>
    std::optional<Fault> take(const Concerns& concerns, const Now& now, bool begins);

    std::vector<Order> orders_;
    std::deque<std::string> doorBells_;
};

}  // namespace tav::sim
