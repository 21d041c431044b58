#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Lanes.h"
#include "core/Unanswered.h"
#include "fc/FCPortLedgers.h"

namespace tav {

/// Asks the ports side by side, each in a lane of its own: an attribute of one whose adapter hangs
/// may never be read to its end, and the others are not to wait for it. Manager's thread.
class FCPortQuestions {
 public:
    /// What a port tells; absent when it has gone since it was listed.
    using Answer = std::optional<FoundFcPort>;
    using Answers = std::map<std::string, Answer>;

    /// In real time: it is the adapter's.
    static constexpr std::chrono::seconds patience{3};

    /// Asks each host ("hostN"), and returns the answers of those that give one in time. One that
    /// has not answered an earlier question is not asked again; the log says so once, and again
    /// when it answers. Ends early, with what there is, when the thread is asked to stop.
    Answers ask(const std::vector<std::string>& hosts,
                const std::function<Answer(const std::string&)>& question);

 private:
    struct Port {
        explicit Port(Lanes& pool) : lane(pool) {}
        Lane<Answer> lane;
        bool isAwaited = false;
        std::optional<Unanswered> silent;  ///< of which it has been said
    };

    void begin(const std::string& host, const std::function<Answer(const std::string&)>& question);
    std::size_t takeAnswers(Answers& answers);
    void tellOfSilence();

    Lanes pool_{"tav-fc-port", 4, patience};
    std::map<std::string, Port> ports_;
};

}  // namespace tav
