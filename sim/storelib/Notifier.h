#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace tav::sim {

/// Tells a registered callback of events, on a thread of its own.
class Notifier {
 public:
    using Event = std::vector<std::uint8_t>;
    using Callback = void (*)(void* event);

    Notifier() : thread_([this] { run(); }) {}
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;
    /// Waits for a callback that is running.
    ~Notifier();

    /// Replaces the callback. With null it ends: when this returns, no callback runs any more, and
    /// what had not been told is dropped.
    void setCallback(Callback callback);

    /// False when there is nobody to tell.
    bool tell(Event event);

 private:
    void run();

    std::mutex lock_;
    std::condition_variable changed_;
    Callback callback_ = nullptr;
    std::deque<Event> events_;
    bool telling_ = false;
    bool stopping_ = false;
    std::thread thread_;  // last: it uses the others
};

}  // namespace tav::sim
