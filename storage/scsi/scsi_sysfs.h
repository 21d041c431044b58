#pragma once

#include <string>

/// What the kernel's directory of a SCSI device tells at every look at it: the same as the queries
/// in scsi_info.h, as texts that nobody has to free. `link` is theirs, too.
namespace tav::scsi {

/// Name of the SCSI generic node ("sg3"); empty when there is none.
std::string genericName(const char* link);

/// Serial number from the kernel's copy of VPD page 80h, up to the first NUL and without the blanks
/// around it; empty when there is none.
std::string unitSerial(const char* link);

}  // namespace tav::scsi
