#include "core/resource_managers.h"

#include <array>

#include "core/tavConfig.h"

namespace tav {
namespace {
// Filled by static objects of other files, so it has to be there before any of them.
constinit std::array<ManagerInstance, RESOURCE_TYPE_COUNT> instances{};
}  // namespace

void registerManager(MODULE_NAME type, ManagerInstance instance) {
    instances.at(resourceTypeIndex(type)) = instance;
}

tavResourceManager* managerOf(int type) {
    if (type < 0 || type >= RESOURCE_TYPE_COUNT) return nullptr;
    const ManagerInstance instance = instances.at(static_cast<std::size_t>(type));
    return instance == nullptr ? nullptr : instance();
}

void forEachEnabledManager(const std::function<void(MODULE_NAME, tavResourceManager&)>& visit) {
    for (int type = 0; type < RESOURCE_TYPE_COUNT; ++type) {
        if (!tavConfig::getInstance()->isResourceEnabled(type)) continue;
        tavResourceManager* const manager = managerOf(type);
        if (manager != nullptr) visit(static_cast<MODULE_NAME>(type), *manager);
    }
}

}  // namespace tav
