#pragma once

#include <string>

namespace tav {

/// What printf would print, up to 1,023 characters.
std::string printed(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace tav
