#pragma once

#include "core/Uevent.h"

namespace tav {

/// Whether what the kernel tells may be about a controller, a drive or a volume. What programs
/// cause all the time is not: loop and mapped devices that come and go, and a "change" of a block
/// device, which is told whenever somebody has written to it.
bool concernsStorage(const Uevent& event);

}  // namespace tav
