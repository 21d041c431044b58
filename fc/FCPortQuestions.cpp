#include "fc/FCPortQuestions.h"

#include <algorithm>
#include <utility>

#include "base/StopSignal.h"
#include "core/Log.h"

namespace tav {
namespace {

using Clock = std::chrono::steady_clock;

constexpr ModuleLog logger{"FC_RM"};

}  // namespace

FCPortQuestions::Answers FCPortQuestions::ask(
    const std::vector<std::string>& hosts,
    const std::function<Answer(const std::string&)>& question) {
    std::erase_if(ports_, [&](const auto& port) {
        return !port.second.lane.isBusy() &&
               std::find(hosts.begin(), hosts.end(), port.first) == hosts.end();
    });
    for (const std::string& host : hosts)
        begin(host, question);
    Answers answers;
    const auto end = Clock::now() + patience;
    while (takeAnswers(answers) > 0 && !stopRequested() && Clock::now() < end)
        pool_.waitForAnswer(TimeLimit(patience));
    if (!stopRequested()) tellOfSilence();
    return answers;
}

void FCPortQuestions::begin(const std::string& host,
                            const std::function<Answer(const std::string&)>& question) {
    Port& port = ports_.try_emplace(host, pool_).first->second;
    // What came late tells how it was then.
    if (port.lane.take() && port.silent) {
        port.silent.reset();
        logger.warning(here(), "%s answers again.", host.c_str());
    }
    port.isAwaited = port.lane.ask(host, [question, host] { return question(host); });
}

/// Returns how many are still waited for.
std::size_t FCPortQuestions::takeAnswers(Answers& answers) {
    std::size_t left = 0;
    for (auto& [host, port] : ports_) {
        if (!port.isAwaited) continue;
        if (auto answer = port.lane.take()) {
            port.isAwaited = false;
            answers[host] = *std::move(answer);
        } else {
            ++left;
        }
    }
    return left;
}

void FCPortQuestions::tellOfSilence() {
    for (auto& [host, port] : ports_) {
        if (!port.isAwaited || port.silent) continue;
        port.silent.emplace("Fibre Channel port " + host, "its state");
        logger.warning(here(),
                       "%s has not answered for %lld s. What was known of it stands, but its state "
                       "is unknown until it does.",
                       host.c_str(), static_cast<long long>(patience.count()));
    }
}

}  // namespace tav
