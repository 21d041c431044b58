#pragma once

#include "storage/model/storage_conditions.h"

namespace tav {

/// The four display strings of a change, for its log line.
struct ChangeTexts {
    ChangeTexts(const Condition& now, const Condition& before)
        : state(displayText(now.state)),
          previousState(displayText(before.state)),
          health(displayText(now.health)),
          previousHealth(displayText(before.health)) {}
    const char *state, *previousState, *health, *previousHealth;
};

}  // namespace tav
