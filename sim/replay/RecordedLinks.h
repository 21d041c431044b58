#pragma once

#include <json/value.h>

namespace tav::sim {

/// Makes the links and addresses of a captured host in the private network, in the host's order.
/// Throws std::runtime_error when one of them cannot be made.
void makeRecordedLinks(const Json::Value& recorded);

}  // namespace tav::sim
