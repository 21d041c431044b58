#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/Export.h"

/// Keeps an object alive while anybody uses it, and tells its users that the device behind it is
/// gone.
///
/// Created with one reference, which belongs to the factory that made the object. Whoever hands the
/// object out takes a reference for the receiver, who releases it when done; the last release
/// destroys the object, so it must come from `new`. A reference may only be added while another one
/// is held for certain, for example under the lock of the factory's list. Otherwise any thread may
/// call any function at any time; there is no lock.
class TAV_API tavRemoveLock {
 public:
    tavRemoveLock(const tavRemoveLock&) = delete;
    tavRemoveLock& operator=(const tavRemoveLock&) = delete;

    void addReference() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }

    /// The caller must not touch the object afterwards.
    void releaseReference() noexcept;

    /// Once removed an object refuses whatever would change the device, and answers queries with
    /// what was last known. There is no way back.
    void setRemoved() noexcept { removed_.store(1, std::memory_order_release); }
    bool isRemoved() const noexcept { return removed_.load(std::memory_order_acquire) != 0; }

 protected:
    tavRemoveLock() = default;
    virtual ~tavRemoveLock() = default;

 private:
    std::atomic<std::int32_t> removed_{0};
    std::atomic<std::int32_t> references_{1};
};

namespace tav {

struct ReleaseReference {
    void operator()(tavRemoveLock* object) const noexcept { object->releaseReference(); }
};

/// Owns one reference to an object and releases it at the end of its scope.
template <typename T>
using Reference = std::unique_ptr<T, ReleaseReference>;

/// Takes a further reference to an object that another reference keeps alive meanwhile.
template <typename T>
Reference<T> shareReference(T& object) {
    object.addReference();
    return Reference<T>(&object);
}

}  // namespace tav
