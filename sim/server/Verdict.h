#pragma once

#include <span>
#include <string>
#include <vector>

#include <json/value.h>

namespace tav::sim {

/// One line of a controller's record, as far as it is of interest here.
struct Reported {
    std::string command;
    Json::Value document;
};

/// What a controller's record holds. Lines that cannot be read, and violations, become faults.
std::vector<Reported> readRecord(const std::string& text, std::vector<std::string>& faults);

/// Compares the events of a record with the expected ones, which have to be there exactly once and
/// in this order. An expected event is "ID" or "ID@TEXT", where TEXT stands somewhere in its
/// record.
std::vector<std::string> compareEvents(std::span<const Reported> reports,
                                       std::span<const std::string> expected);

/// Compares the last inventory of a record with the server that it should describe.
std::vector<std::string> compareInventory(std::span<const Reported> reports,
                                          const Json::Value& server);

}  // namespace tav::sim
