#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tav::ctl {

/// How many columns of a terminal a text of printable characters takes.
std::size_t columnsOf(std::string_view text);

/// What a terminal may be shown of a foreign text, the only way there: one line without anything
/// that moves a cursor, hides or turns (base/OneLine.h), at most `columns` wide (at least 1), with
/// an ellipsis where something is left out. A terminal without UTF-8 sees '?' for what it lacks.
std::string cellText(std::string_view text, std::size_t columns, bool isUtf8);

}  // namespace tav::ctl
