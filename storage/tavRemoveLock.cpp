#include "storage/tavRemoveLock.h"

void tavRemoveLock::releaseReference() noexcept {
    // Whatever other holders did before their release is visible to the destructor.
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}
