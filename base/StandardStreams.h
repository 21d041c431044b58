#pragma once

#include "base/Export.h"

namespace tav {

/// The first line of a program's main(), before any thread and any other descriptor: what it prints
/// arrives where it is meant to or fails, and does nothing else. A standard stream that it was
/// started without is taken by /dev/null, opened the wrong way round so that its use goes on
/// failing; the next descriptor would get its number otherwise, and all that is printed. And the
/// limit of a file's size fails a write (EFBIG) instead of ending the process.
TAV_API void secureStandardStreams();

}  // namespace tav
