#pragma once

#include <string>
#include <vector>

#include "base/Export.h"
#include "hwlib/location/physloc.h"

/// How the resource managers name a place. Any thread may call it.
class TAV_API tavPhyLoc {
 public:
    /// The location code as 16 upper-case hexadecimal digits, bytes 7 down to 0.
    ///
    /// `geo` is rack, chassis position and slot as decimal texts; one that is missing reads unset.
    /// `instance` is a number (0x and a leading 0 as in C) or "NA". Numbers above 255 wrap. What
    /// cannot be encoded gives the preset code "FFFFFFFFFFFFFF00".
    static std::string getPhyLoc(const std::vector<std::string>& geo, physloc_type_t type,
                                 const std::string& instance);

    /// The same, but "FFFFFFFFFFFFFFFF" for what cannot be encoded.
    static std::string getPhyLocOrNone(const std::vector<std::string>& geo, physloc_type_t type,
                                       const std::string& instance);
};
