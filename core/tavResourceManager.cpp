#include "core/tavResourceManager.h"

int tavResourceManager::getInventoryJsonObject2(int /*kind*/,
                                                std::vector<Json::Value>& /*records*/) {
    return 0;
}
