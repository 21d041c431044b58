#pragma once

#include <string>
#include <string_view>

#include <json/value.h>

#include "base/Export.h"

namespace tav {

/// The value as one line of pure ASCII without blanks between its parts, whatever its texts hold.
TAV_API std::string compactJson(const Json::Value& value);

/// The text with U+FFFD in the place of every byte that is no part of well-formed UTF-8 (RFC 3629).
TAV_API std::string wellFormedUtf8(std::string_view text);

/// A JSON string of a text that came from a device or a command. They answer with any bytes; every
/// byte that is no part of well-formed UTF-8 (RFC 3629) becomes U+FFFD, so that the document stays
/// valid whatever writer is used and nothing after a bad byte is lost.
TAV_API Json::Value jsonText(const std::string& text);

}  // namespace tav
