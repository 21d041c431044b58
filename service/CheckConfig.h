#pragma once

#include <iosfwd>
#include <string>

namespace tavd {

/// Tells on `out` what became of every setting in the file. False when the file cannot be used,
/// which is told on the standard error, or anything in it was replaced or ignored.
bool checkConfiguration(const std::string& path, std::ostream& out);

}  // namespace tavd
