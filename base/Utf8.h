#pragma once

#include <cstddef>
#include <string_view>

#include "base/Export.h"

namespace tav {

/// Length in bytes of the well-formed UTF-8 character (RFC 3629) that the text, which is not empty,
/// begins with; 0 when it begins with something else.
TAV_API std::size_t utf8Length(std::string_view text);

}  // namespace tav
