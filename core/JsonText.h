#pragma once

#include <string>

#include <json/value.h>

namespace tav {

/// The value as one line of pure ASCII without blanks or a line end, whatever bytes its texts hold.
std::string compactJson(const Json::Value& value);

}  // namespace tav
