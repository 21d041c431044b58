#include "core/Figures.h"

#include <array>

namespace tav {

void Spent::add(std::chrono::nanoseconds took) noexcept {
    ++count_;
    nanoseconds_ += took.count();
    last_ = std::time(nullptr);
}

Spent::Reading Spent::read() const noexcept {
    return {count_, std::chrono::nanoseconds(nanoseconds_), static_cast<std::time_t>(last_.load())};
}

ManagerFigures& figuresOf(MODULE_NAME type) {
    static auto* const figures =
        new std::array<ManagerFigures, RESOURCE_TYPE_COUNT>;  // outlives every thread
    return figures->at(resourceTypeIndex(type));
}

}  // namespace tav
