#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What a device of a captured host answers. Its file has a line for each question: the question's
/// kind and bytes, then "name=value" words, bytes in hexadecimal digits; "hangs" for an answer that
/// did not come.
namespace tav::sim {

class RecordedAnswer {
 public:
    /// `words` is what stands behind the question.
    explicit RecordedAnswer(std::string_view words);

    bool hangs() const { return hangs_; }
    /// The number of that name; 0 for none.
    std::int64_t number(std::string_view name) const;
    std::vector<std::uint8_t> bytes(std::string_view name) const;
    /// How long it took.
    std::chrono::milliseconds duration() const { return std::chrono::milliseconds(number("ms")); }

 private:
    std::map<std::string, std::string, std::less<>> values_;
    bool hangs_ = false;
};

class RecordedConversation {
 public:
    explicit RecordedConversation(std::string_view lines);

    /// Null when the host was never asked that.
    const RecordedAnswer* find(std::string_view kind, std::span<const std::uint8_t> question) const;
    /// The answer to the opening, where that failed; null when it could be opened.
    const RecordedAnswer* opening() const;

 private:
    std::map<std::string, RecordedAnswer, std::less<>> answers_;
};

/// The text of the file about a device, in this process's private root; empty when there is none.
std::string recordedText(const std::string& device);

/// Waits as long as the device took, or for ever.
void waitAsRecorded(const RecordedAnswer& answer);

/// Notes that something was asked which the host was not: what comes of it is made up.
void noteUnrecorded(const std::string& what);

}  // namespace tav::sim
