#pragma once

#include "base/Export.h"
#include "core/tavResourceManager.h"

/// Knows which manager looks after which type of resource.
class TAV_API tavFactory {
 public:
    /// The manager of that resource type, or null where there is none.
    tavResourceManager* createInstance(int type) const;
};
