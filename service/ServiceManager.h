#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavd {

/// What the service tells whoever started it and listens (NOTIFY_SOCKET, as systemd does): that it
/// serves, that it ends, and, where a watchdog waits for it (WATCHDOG_USEC), that all its loops
/// move. Main thread only.
class ServiceManager {
 public:
    /// Takes what it is told by the environment out of it: children have nothing to say.
    ServiceManager();

    void serves() const { tell("READY=1"); }
    void ends() const { tell("STOPPING=1"); }

    /// How often lookAtLoops() has to be called for the watchdog's sake; absent without a watchdog.
    std::optional<std::chrono::milliseconds> lookEvery() const;

    /// Feeds the watchdog, unless a loop stands still: the log says which, and it is told again
    /// only when it has moved in between.
    void lookAtLoops();

 private:
    void tell(std::string_view message) const;

    std::string socket_;
    std::chrono::microseconds watchdog_{0};
    std::vector<std::string> toldOf_;
};

}  // namespace tavd
