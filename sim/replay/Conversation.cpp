#include "sim/replay/Conversation.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <thread>

#include <unistd.h>

#include "sim/Clock.h"

namespace tav::sim {
namespace {

constexpr const char* devices = "/run/sim/recorded/devices/";
constexpr const char* unrecorded = "/run/sim/unrecorded";

/// Takes the first word off the front of the text.
std::string_view takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(word.size());
    return word;
}

std::string hexadecimal(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

}  // namespace

RecordedAnswer::RecordedAnswer(std::string_view words) {
    while (true) {
        const std::string_view word = takeWord(words);
        if (word.empty()) break;
        hangs_ = hangs_ || word == "hangs";
        const std::size_t equals = word.find('=');
        if (equals != std::string_view::npos)
            values_[std::string(word.substr(0, equals))] = word.substr(equals + 1);
    }
}

std::int64_t RecordedAnswer::number(std::string_view name) const {
    const auto found = values_.find(name);
    std::int64_t value = 0;
    if (found == values_.end()) return 0;
    const std::string& digits = found->second;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

std::vector<std::uint8_t> RecordedAnswer::bytes(std::string_view name) const {
    std::vector<std::uint8_t> bytes;
    const auto found = values_.find(name);
    if (found == values_.end()) return bytes;
    const std::string& digits = found->second;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
        std::uint8_t byte = 0;
        std::from_chars(digits.data() + at, digits.data() + at + 2, byte, 16);
        bytes.push_back(byte);
    }
    return bytes;
}

RecordedConversation::RecordedConversation(std::string_view lines) {
    while (!lines.empty()) {
        std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        std::string question(takeWord(line));
        if (question != "open") question.append(" ").append(takeWord(line));
        answers_.insert_or_assign(std::move(question), RecordedAnswer(line));
    }
}

const RecordedAnswer* RecordedConversation::find(std::string_view kind,
                                                 std::span<const std::uint8_t> question) const {
    const auto found = answers_.find(std::string(kind) + ' ' + hexadecimal(question));
    return found == answers_.end() ? nullptr : &found->second;
}

const RecordedAnswer* RecordedConversation::opening() const {
    const auto found = answers_.find("open");
    return found == answers_.end() ? nullptr : &found->second;
}

std::string recordedText(const std::string& device) {
    std::ifstream file(devices + device, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void waitAsRecorded(const RecordedAnswer& answer) {
    while (answer.hangs())
        ::pause();
    std::this_thread::sleep_for(realTime(answer.duration()));
}

void noteUnrecorded(const std::string& what) {
    std::ofstream(unrecorded, std::ios::app) << what + '\n' << std::flush;
}

}  // namespace tav::sim
