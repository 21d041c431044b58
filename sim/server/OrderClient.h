#pragma once

#include <optional>
#include <string>

namespace tav::sim {

/// What a program of the simulation answers to an order.
struct OrderAnswer {
    bool isReached = false;           ///< somebody listens
    std::optional<std::string> line;  ///< none: nothing was answered
};

/// Gives an order, one line without its line feed, on the Unix socket at `path`.
OrderAnswer giveOrder(const char* path, const std::string& order);

}  // namespace tav::sim
