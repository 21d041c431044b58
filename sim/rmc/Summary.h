#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <json/value.h>

#include "sim/rmc/FrameChecker.h"

namespace tav::sim {

/// What an event's id tells, and which health it gives the part that it is about: "OK", "Warning",
/// "Critical", or empty where it speaks of none. An id that nobody knows has the number 0.
struct EventMeaning {
    std::int64_t id;
    std::string_view text;
    std::string_view health;
};

EventMeaning meaningOf(const Json::Value& event);

/// What a finished command says, for a person: a few lines, each ending with a line feed. Text from
/// the payload appears without control characters.
std::string summaryOf(const Command& command);

}  // namespace tav::sim
