#pragma once

#include <span>
#include <string>

#include <json/value.h>

namespace tav::sim {

/// What the controller's record holds beside what the controller saw, so that somebody who reads it
/// later can tell why: the changes of the server, and the words of the story. The controller puts
/// them there, with its time. Nothing happens where there is none.

/// A change that is about to be made. `entry` is the part that it concerns, null for none.
void noteChange(const std::string& change, const Json::Value& entry);

/// What a story says of what follows.
void noteWords(const std::string& words);

/// What has come of a story: the controller has gone, this is the record's last line.
void keepVerdict(const std::string& recordPath, std::span<const std::string> expected,
                 std::span<const std::string> faults);

}  // namespace tav::sim
