#pragma once

#include <string>
#include <string_view>

#include "base/Answer.h"

namespace tav {

/// `path` less what can be said in two ways without leading elsewhere: repeated and ending slashes,
/// and "." components. "/" stays; "." is empty. ".." stays, since what is before it may be a link.
std::string plainPath(std::string_view path);

/// What `path` says behind `root`, both plain: empty for the root itself. Absent when it is neither
/// the root nor below it.
Answer<std::string_view> pathBelow(std::string_view root, std::string_view path);

}  // namespace tav
