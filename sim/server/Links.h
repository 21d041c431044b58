#pragma once

#include <json/value.h>

namespace tav::sim {

/// Makes a veth link for each described adapter, the other end standing for its cable, and sets
/// each up or down. Needs the right to change the private network. Throws std::runtime_error.
void makeLinks(const Json::Value& adapters);

/// Sets an adapter's link to its member "link", "up" or "down".
void setLink(const Json::Value& adapter);

}  // namespace tav::sim
