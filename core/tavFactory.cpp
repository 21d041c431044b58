#include "core/tavFactory.h"

#include "host/HostResourceManager.h"

tavResourceManager* tavFactory::createInstance(int type) const {
    switch (type) {
        case HOST_OS_INFO:
            return HostResourceManager::getInstance();
        default:
            return nullptr;
    }
}
