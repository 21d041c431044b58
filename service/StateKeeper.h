#pragma once

#include <memory>
#include <string>
#include <thread>

namespace tavd {

/// Keeps what others read about the service up to date (rmc/StateFiles.h), and the file of metrics
/// where one is wanted: at once when there is news (core/News.h), and every five minutes. On a
/// thread of its own, for which nobody waits: a file system that hangs costs the files alone. Never
/// takes more than a twentieth of a processor. Service's thread only.
class StateKeeper {
 public:
    /// `metricsFile` empty: none is wanted.
    StateKeeper(const std::string& metricsFile, bool withFibreChannel);
    StateKeeper(const StateKeeper&) = delete;
    StateKeeper& operator=(const StateKeeper&) = delete;
    ~StateKeeper() { stop(); }

    void start();

    /// Has all files written a last time, and waits for that for a second at most. What hangs then
    /// is left behind and owns what it touches.
    void stop();

 private:
    class Keeping;

    std::shared_ptr<Keeping> keeping_;
    std::thread thread_;
};

}  // namespace tavd
