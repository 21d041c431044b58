#pragma once

namespace tav {

/// Writes one record to the system log, identity "tav", facility LOG_USER. `priority` is a LOG_...
/// constant. For records of the log itself, and for what cannot go there. Any thread.
void reportToSystemLog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace tav
