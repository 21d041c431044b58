#pragma once

#include <span>
#include <string>

#include <json/value.h>

namespace tav::sim {

/// Sets members of one entry of a section of the description: the entry whose "name", "address",
/// "host" or "id" is `key`. Each of `assignments` is "member=value"; a value of digits becomes a
/// number, one in brackets a list. Returns the entry, or null and says in `fault` why not.
const Json::Value* changeEntry(Json::Value& server, const std::string& section,
                               const std::string& key, std::span<const std::string> assignments,
                               std::string& fault);

/// The same for an order to the RAID library: "drive CONTROLLER ID member=value ...", "volume ..."
/// or "controller CONTROLLER member=value ...". Other orders leave the description as it is, and
/// return a null value that is no part's.
const Json::Value* changeRaid(Json::Value& server, const std::string& order, std::string& fault);

}  // namespace tav::sim
