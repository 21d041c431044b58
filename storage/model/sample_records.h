#pragma once

#include <memory>
#include <string>

#include "storage/model/tavInventoryBase.h"

namespace tav {

/// A made-up record for the test event with that ID; null where storage has no such event.
std::unique_ptr<tavInventoryBase> sampleRecord(int eventID, const std::string& location);

}  // namespace tav
