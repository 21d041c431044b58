#include "collector/tavFactory.h"

#include "host/HostResourceManager.h"
#include "nic/NICResourceManager.h"
#include "storage/SASResourceManager.h"

tavResourceManager* tavFactory::createInstance(int type) const {
    switch (type) {
        case HOST_OS_INFO:
            return HostResourceManager::getInstance();
        case ETHERNET_DEVICES:
            return NICResourceManager::getInstance();
        case STORAGE_CONTROLLERS:
            return SASResourceManager::getInstance();
        default:
            return nullptr;
    }
}
