#include "core/News.h"

#include <atomic>

#include "base/StopSignal.h"

namespace tav {
namespace {

/// "Requested" is: there is some.
StopSignal& news() {
    static StopSignal* const instance = new StopSignal;  // outlives every thread
    return *instance;
}

std::atomic<std::uint64_t> published{0};

}  // namespace

void noteNews() {
    news().request();
}

int newsDescriptor() {
    return news().descriptor();
}

void newsTaken() {
    news().withdraw();
}

void notePublication() {
    ++published;
}

std::uint64_t publications() {
    return published;
}

}  // namespace tav
