#include "core/Unanswered.h"

#include <mutex>
#include <utility>

#include "core/News.h"

namespace tav {
namespace {

struct Registry {
    std::mutex lock;
    std::vector<const Unanswered*> silent;
};

Registry& registry() {
    static Registry* const instance = new Registry;  // who hangs may do so until the very end
    return *instance;
}

}  // namespace

Unanswered::Unanswered(std::string who, std::string what)
    : entry_{std::move(who), std::move(what), std::time(nullptr)} {
    {
        const std::lock_guard<std::mutex> held(registry().lock);
        registry().silent.push_back(this);
    }
    noteNews();
}

Unanswered::~Unanswered() {
    {
        const std::lock_guard<std::mutex> held(registry().lock);
        std::erase(registry().silent, this);
    }
    noteNews();
}

std::vector<Unanswered::Entry> Unanswered::all() {
    std::vector<Entry> entries;
    const std::lock_guard<std::mutex> held(registry().lock);
    entries.reserve(registry().silent.size());
    for (const Unanswered* const silent : registry().silent)
        entries.push_back(silent->entry_);
    return entries;
}

}  // namespace tav
