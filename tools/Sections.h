#pragma once

#include <ctime>
#include <ostream>
#include <string_view>
#include <vector>

#include <json/value.h>

#include "tools/ServiceFiles.h"
#include "tools/Table.h"

namespace tav::ctl {

/// All that can be shown, of one moment.
struct Shown {
    StateFile inventory;
    StateFile events;
    StateFile health;
};

/// What `tavctl show` can be asked for.
struct Section {
    std::string_view name;
    const char* member;      ///< in the JSON that programs get
    const char* manager;     ///< that has built it; null: the service itself
    StateFile Shown::*file;  ///< where it stands
    const Json::Value& (*pick)(const Shown& shown);
    void (*print)(const Json::Value& picked, std::ostream& out, const Look& look);
};

/// When what is picked was so, in seconds since the epoch; 0: that is not known.
std::time_t asOf(const Section& section, const Shown& shown);

/// In the order in which they are shown.
extern const std::vector<Section> sections;

}  // namespace tav::ctl
