#include "collector/tavFactory.h"

#include "core/resource_managers.h"
#include "host/HostResourceManager.h"
#include "nic/NICResourceManager.h"
#include "storage/SASResourceManager.h"

namespace {

template <class Manager>
tavResourceManager* instanceOf() {
    return Manager::getInstance();
}

[[maybe_unused]] const bool areManagersRegistered = [] {
    tav::registerManager(HOST_OS_INFO, instanceOf<HostResourceManager>);
    tav::registerManager(STORAGE_CONTROLLERS, instanceOf<SASResourceManager>);
    tav::registerManager(ETHERNET_DEVICES, instanceOf<NICResourceManager>);
    return true;
}();

}  // namespace

tavResourceManager* tavFactory::createInstance(int type) const {
    return tav::managerOf(type);
}
