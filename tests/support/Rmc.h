#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sim/device/FakeIpmiDevice.h"
#include "sim/rmc/FrameChecker.h"

namespace tav::test {

/// A management controller inside the test: takes commands, notes every byte that is not as
/// promised, and can be told to do otherwise.
class Rmc {
 public:
    using Intercept = std::function<std::optional<sim::Reply>(const sim::IpmiRequest&)>;

    Rmc() : device_([this](const sim::IpmiRequest& request) { return answer(request); }) {}

    /// `intercept` answers what it gives a reply for in the controller's place.
    void intercept(Intercept intercept) {
        const std::lock_guard<std::mutex> held(lock_);
        intercept_ = std::move(intercept);
    }

    /// Texts for the next looks at the door bell; after them it answers nothing.
    void ring(std::vector<std::string> texts) {
        const std::lock_guard<std::mutex> held(lock_);
        doorBell_.insert(doorBell_.end(), texts.begin(), texts.end());
    }

    std::vector<sim::Command> commands() const {
        const std::lock_guard<std::mutex> held(lock_);
        return commands_;
    }
    std::vector<std::string> violations() const {
        const std::lock_guard<std::mutex> held(lock_);
        return violations_;
    }
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const sim::Command& command : commands())
            names.push_back(command.name);
        return names;
    }

    /// Whether that many commands have arrived before ten seconds were over.
    bool waitForCommands(std::size_t count) {
        std::unique_lock<std::mutex> held(lock_);
        return arrived_.wait_for(held, std::chrono::seconds(10),
                                 [&] { return commands_.size() >= count; });
    }

    sim::FakeIpmiDevice& device() { return device_; }

 private:
    sim::Reply answer(const sim::IpmiRequest& request) {
        const std::lock_guard<std::mutex> held(lock_);
        if (intercept_) {
            if (auto reply = intercept_(request)) return *std::move(reply);
        }
        if (request.netFn == 0x3A && request.command == 0x80) return answerFrame(request);
        if (request.netFn == 0x3A && request.command == 0x81) return answerDoorBell();
        return sim::Reply::failure(0xC1);
    }

    sim::Reply answerFrame(const sim::IpmiRequest& request) {
        const sim::FrameResult result = checker_.accept(request.data, request.open);
        violations_.insert(violations_.end(), result.violations.begin(), result.violations.end());
        if (result.complete) {
            commands_.push_back(*result.complete);
            arrived_.notify_all();
        }
        return sim::Reply::answer({static_cast<std::uint8_t>(result.status),
                                   static_cast<std::uint8_t>(result.token),
                                   static_cast<std::uint8_t>(result.token >> 8U), 0});
    }

    sim::Reply answerDoorBell() {
        std::string text;
        if (!doorBell_.empty()) {
            text = doorBell_.front();
            doorBell_.pop_front();
        }
        return sim::Reply::answer({text.begin(), text.end()});
    }

    mutable std::mutex lock_;
    std::condition_variable arrived_;
    Intercept intercept_;
    std::deque<std::string> doorBell_;
    std::vector<sim::Command> commands_;
    std::vector<std::string> violations_;
    sim::FrameChecker checker_;
    sim::FakeIpmiDevice device_;
};

}  // namespace tav::test
