#pragma once

#include <optional>
#include <string>

#include <json/value.h>

#include "base/Export.h"

namespace tav {

/// The text's value when it is JSON, strictly (RFC 8259; but its strings may hold any bytes), and
/// nothing else; otherwise none, and why not has been logged.
TAV_API std::optional<Json::Value> parseStrictJson(const std::string& text);

/// The event that a client's text holds: one JSON object with two members or more. Bytes that are
/// no UTF-8 have become U+FFFD.
TAV_API std::optional<Json::Value> parseClientEvent(const std::string& text);

}  // namespace tav
