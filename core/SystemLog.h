#pragma once

namespace tav {

/// Writes one record to the system log, identity "tav", facility LOG_USER. `priority` is a LOG_...
/// constant. For records of the log itself, and for what cannot go there. Any thread.
///
/// Not by syslog(3), which waits for a system log that hangs for as long as that does, and whose
/// settings are the process's: what finds no room within a tenth of a second is lost, as is at once
/// what follows. How many records that were is told when there is room again.
void reportToSystemLog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace tav
