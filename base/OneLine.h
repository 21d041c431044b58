#pragma once

#include <string>
#include <string_view>

#include "base/Export.h"

namespace tav {

/// Appends `text` so that whatever shows it shows one line and nothing else: what ends a line,
/// moves a cursor, turns the direction of writing or is no well-formed UTF-8 stands as an escape
/// sequence ("\n", "\x1B"), all other characters as they are. Works on foreign text of any length.
TAV_API void appendOneLine(std::string& line, std::string_view text);

}  // namespace tav
