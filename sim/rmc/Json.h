#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <json/json.h>

namespace tav::sim {

/// Parses text that may be anything. On failure `fault` says why, in one line.
std::optional<Json::Value> parseJson(std::string_view text, std::string& fault);

/// The member `name` of `object`, or null when there is none or `object` is no object.
const Json::Value& member(const Json::Value& object, const char* name);

/// The member `name` as text; empty when it is no scalar.
std::string textOf(const Json::Value& object, const char* name);

/// The member `name` as a number, which may also be text such as "0x18"; 0 when it is none.
std::int64_t numberOf(const Json::Value& object, const char* name);

/// A scalar as a person reads it, without control characters; "?" for anything else.
std::string shown(const Json::Value& value);

/// `value` on one line, ending without a line feed.
std::string oneLine(const Json::Value& value);

}  // namespace tav::sim
