#pragma once

#include <cstdint>

#include "base/Export.h"

/// Wakes whoever keeps what the process knows for others to read. Any thread; nobody who has news
/// waits for whoever takes them.
namespace tav {

/// Something has happened that is worth a look at once.
TAV_API void noteNews();
/// Readable, for poll(), once there is news since newsTaken(). -1: there is none.
TAV_API int newsDescriptor();
TAV_API void newsTaken();

/// An inventory has been published. Most look like the one before, so that is no news.
TAV_API void notePublication();
/// How many have been, so far.
TAV_API std::uint64_t publications();

}  // namespace tav
