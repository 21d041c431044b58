#include "storage/ItavStorageControllerFactory.h"

// The one copy of the list, shared by the library and everything that uses it.
template class tavRegistryManager<ItavStorageControllerFactory*>;
