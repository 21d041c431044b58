#include "sim/rmc/Reporter.h"

#include <cstdio>
#include <iostream>

#include <unistd.h>

#include "sim/Clock.h"
#include "sim/rmc/Json.h"
#include "sim/rmc/Summary.h"

namespace tav::sim {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr unsigned silentFrames = 100;  // a transfer shorter than this needs no progress
constexpr auto terminalPace = 100ms;
constexpr auto logPace = 10s;

constexpr const char* eraseLine = "\r\033[K";

void addMeaning(const std::string& payload, Json::Value& line) {
    std::string fault;
    const auto event = parseJson(payload, fault);
    if (!event) return;
    const EventMeaning meaning = meaningOf(*event);
    line["meaning"] = std::string(meaning.text);
    if (!meaning.health.empty()) line["health"] = std::string(meaning.health);
}

Json::Value lineOf(const char* what, const Command& command) {
    Json::Value line;
    line[what] = command.name;
    line["payload"] = command.payload;
    line["frames"] = command.frames;
    if (command.name == "MPEventGen") addMeaning(command.payload, line);
    return line;
}

}  // namespace

Reporter::Reporter(const std::string& recordPath, bool quiet)
    : recordPath_(recordPath), quiet_(quiet), terminal_(::isatty(STDOUT_FILENO) == 1) {
    if (!recordPath_.empty()) record_.open(recordPath_, std::ios::trunc);
}

void Reporter::report(const Outcome& outcome) {
    for (const std::string& text : outcome.violations)
        violation(text);
    if (outcome.frame && outcome.frame->frame == 1) begun_[outcome.frame->name] = Clock::now();
    if (outcome.frame && !outcome.finished) progress(*outcome.frame);
    if (!outcome.struck.empty()) {
        Json::Value line;
        line["struck"] = outcome.struck;
        keep(line);
    }
    if (outcome.refused) keep(lineOf("refused", *outcome.refused));
    if (outcome.finished) {
        Json::Value line = lineOf("command", *outcome.finished);
        line["took"] = elapsedSince(begun_[outcome.finished->name]);
        if (!outcome.answer || outcome.answer->completionCode != 0) line["unanswered"] = true;
        keep(line);
        show(summaryOf(*outcome.finished));
    }
    if (outcome.doorBell && !outcome.doorBell->empty()) {
        Json::Value line;
        line["doorBell"] = *outcome.doorBell;
        keep(line);
        show("Door bell: " + shown(*outcome.doorBell) + '\n');
    }
}

void Reporter::violation(const std::string& text) {
    ++violations_;
    Json::Value line;
    line["violation"] = text;
    keep(line);
    show("");
    std::cerr << "tav-sim-rmc: violation: " << text << std::endl;
}

void Reporter::note(const Json::Value& line) {
    keep(line);
}

void Reporter::unfinished(const std::string& command) {
    show(command + ": given up by the sender\n");
}

void Reporter::progress(const FrameResult& frame) {
    const Clock::time_point now = Clock::now();
    if (quiet_ || frame.frame == 0 || now < nextProgress_) return;
    nextProgress_ = now + (terminal_ ? Clock::duration(terminalPace) : Clock::duration(logPace));
    if (frame.frame < silentFrames) return;
    const std::string text = frame.name + ": " + std::to_string(frame.arrived) + " of " +
                             std::to_string(frame.expected) + " bytes";
    if (terminal_) {
        std::cout << eraseLine << text << std::flush;
        progressShown_ = true;
    } else {
        show(text + '\n');
    }
}

void Reporter::show(const std::string& text) {
    if (quiet_) return;
    if (progressShown_) std::cout << eraseLine;
    progressShown_ = false;
    std::cout << text << std::flush;
}

/// In seconds of the simulated clock.
double Reporter::elapsedSince(Clock::time_point begin) {
    const std::chrono::duration<double> elapsed = Clock::now() - begin;
    return elapsed.count() * clockSpeed();
}

/// Each line tells when, in seconds of the simulated clock since the controller has been there.
void Reporter::keep(Json::Value line) {
    if (recordPath_.empty()) return;
    line["time"] = elapsedSince(start_);
    record_ << oneLine(line) << std::endl;
}

}  // namespace tav::sim
