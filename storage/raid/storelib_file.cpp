#include "storage/raid/storelib_file.h"

#include <utility>

#include <dlfcn.h>

#include "core/Log.h"

namespace tav::storelib {
namespace {

constexpr ModuleLog logger{"LSI_INTERF"};

}  // namespace

EntryPoint LibraryFile::open() {
    handle_ = ::dlopen("libstorelib.so", RTLD_LAZY);
    if (handle_ == nullptr) {
        logger.error(here(),
                     "Failed to load library for monitoring MegaRAID devices. If you need TAV to "
                     "monitor this class of devices, then kindly remove and install storelib "
                     "package and restart tav.service.");
        logger.debug(here(), "Error occurred while loading MegaRAID lib dlerror = %s", ::dlerror());
        return nullptr;
    }
    logger.info(here(), "Library loaded for MegaRAID SAS Controller.");
    const auto entryPoint = reinterpret_cast<EntryPoint>(::dlsym(handle_, "ProcessLibCommand"));
    if (entryPoint == nullptr) {
        logger.error(here(), "Unable to get Entry Point function address Exiting.");
        close();
    }
    return entryPoint;
}

void LibraryFile::close() noexcept {
    if (handle_ != nullptr) ::dlclose(std::exchange(handle_, nullptr));
}

}  // namespace tav::storelib
