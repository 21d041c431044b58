#pragma once

#include <functional>

#include "base/Export.h"
#include "core/tavResourceManager.h"

/// Which manager looks after which type of resource, for those who need all of them and may name
/// none. The floor above the managers enters them while the library is loaded, before any thread
/// runs; afterwards the registry is only read, so it has no lock.
namespace tav {

/// Hands out the one manager of its type, which it makes when it is first asked.
using ManagerInstance = tavResourceManager* (*)();

TAV_API void registerManager(MODULE_NAME type, ManagerInstance instance);

/// The manager of that resource type; null where there is none. Any thread.
TAV_API tavResourceManager* managerOf(int type);

/// Visits the managers of the types that the configuration enables, in the order of the types. Any
/// thread.
TAV_API void forEachEnabledManager(
    const std::function<void(MODULE_NAME, tavResourceManager&)>& visit);

}  // namespace tav
