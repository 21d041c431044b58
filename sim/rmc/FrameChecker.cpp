#include "sim/rmc/FrameChecker.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

using Frame = std::span<const std::uint8_t>;

constexpr std::size_t nameOffset = 3;
constexpr std::size_t nameLength = 20;
constexpr std::size_t lengthOffset = 23;
constexpr std::size_t firstPartOffset = 27;
constexpr std::size_t laterPartOffset = 3;
constexpr std::uint8_t firstFrameMark = 0x14;
constexpr std::size_t shortestPayload = 2;  // one character and the terminating NUL

constexpr std::array<std::string_view, 2> knownCommands = {"MPEventGen", "WriteInventory"};

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...) {
    std::array<char, 256> buffer{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    return buffer.data();
}

std::uint32_t littleEndian(Frame bytes) {
    std::uint32_t value = 0;
    for (std::size_t index = bytes.size(); index-- > 0;)
        value = value << 8 | bytes[index];
    return value;
}

bool allZero(Frame bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

std::string printable(Frame bytes) {
    std::string shown;
    for (const std::uint8_t byte : bytes) {
        shown += std::isprint(byte) != 0 ? std::string(1, static_cast<char>(byte))
                                         : text("\\x%02x", byte);
    }
    return shown;
}

std::string commandName(Frame field, std::vector<std::string>& violations) {
    const auto end = std::find(field.begin(), field.end(), 0);
    const Frame name = field.first(static_cast<std::size_t>(end - field.begin()));
    if (end == field.end()) {
        violations.push_back("command name \"" + printable(name) + "\" has no terminating NUL");
    } else if (!allZero(field.subspan(name.size()))) {
        violations.push_back("command name \"" + printable(name) + "\" is not padded with zeros");
    }
    return printable(name);
}

void checkPayload(const Command& command, bool terminated, std::vector<std::string>& violations) {
    if (!terminated) {
        violations.push_back(command.name + ": the payload does not end with a NUL");
        return;
    }
    if (command.payload.find('\0') != std::string::npos) {
        violations.push_back(command.name + ": a NUL inside the payload");
        return;
    }
    const std::string fault = whyNotJsonObject(command.payload);
    if (!fault.empty()) {
        violations.push_back(command.name + ": the payload is not a JSON object: " + fault);
    }
}

}  // namespace

FrameResult FrameChecker::accept(Frame frame, unsigned sender) {
    FrameResult result;
    if (frame.size() != frameLength) {
        result.violations.push_back(text("frame of %zu bytes instead of 60", frame.size()));
        return result;
    }
    // A sender in the middle of a transfer that sends token 0 and no mark has lost its token; it
    // has not begun a command.
    const bool begins =
        littleEndian(frame.first(2)) == 0 && (frame[2] == firstFrameMark || !hasTransferOf(sender));
    if (begins) {
        acceptFirst(frame, sender, result);
    } else {
        acceptLater(frame, sender, result);
    }
    return result;
}

void FrameChecker::acceptFirst(Frame frame, unsigned sender, FrameResult& result) {
    if (frame[2] != firstFrameMark) {
        result.violations.push_back(text("first frame with %02Xh in byte 2, not 14h", frame[2]));
    }
    Transfer transfer;
    transfer.sender = sender;
    transfer.command.name = commandName(frame.subspan(nameOffset, nameLength), result.violations);
    transfer.expected = littleEndian(frame.subspan(lengthOffset, 4));
    forget(sender);
    transferring_ = sender;
    result.name = transfer.command.name;
    result.frame = 1;
    result.expected = transfer.expected;
    if (std::find(knownCommands.begin(), knownCommands.end(), result.name) == knownCommands.end()) {
        result.violations.push_back("unknown command \"" + result.name + "\"");
        result.status = TransferStatus::NotSupported;
    } else if (transfer.expected < shortestPayload || transfer.expected > longestPayload) {
        result.violations.push_back(
            text("%s: a payload of %zu bytes", result.name.c_str(), transfer.expected));
        result.status = TransferStatus::LengthExceeded;
    } else {
        append(frame.subspan(firstPartOffset), std::move(transfer), result);
    }
}

void FrameChecker::acceptLater(Frame frame, unsigned sender, FrameResult& result) {
    const auto token = static_cast<std::uint16_t>(littleEndian(frame.first(2)));
    const auto found = transfers_.find(token);
    if (found == transfers_.end() || found->second.sender != sender) {
        result.violations.push_back(
            text("frame with token %04Xh, which no answer to this sender has handed out", token));
        return;
    }
    Transfer transfer = std::move(found->second);
    transfers_.erase(found);
    result.name = transfer.command.name;
    result.frame = transfer.command.frames + 1;
    result.expected = transfer.expected;
    if (frame[2] != 0) {
        result.violations.push_back(text("%s: frame %u with %02Xh in byte 2, not 0",
                                         result.name.c_str(), result.frame, frame[2]));
    }
    if (transferring_ != sender) {
        result.violations.push_back(result.name + ": frames of two commands are mixed");
        transferring_ = sender;
    }
    append(frame.subspan(laterPartOffset), std::move(transfer), result);
}

void FrameChecker::append(Frame part, Transfer transfer, FrameResult& result) {
    Command& command = transfer.command;
    ++command.frames;
    const std::size_t wanted = std::min(part.size(), transfer.expected - command.payload.size());
    command.payload.append(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(wanted));
    result.arrived = command.payload.size();
    result.token = nextToken();
    if (result.arrived < transfer.expected) {
        result.status = TransferStatus::Incomplete;
        transfers_.emplace(result.token, std::move(transfer));
        return;
    }
    if (!allZero(part.subspan(wanted))) {
        result.violations.push_back(command.name + ": the last frame is not filled with zeros");
    }
    const bool terminated = command.payload.back() == '\0';
    if (terminated) command.payload.pop_back();
    checkPayload(command, terminated, result.violations);
    result.status = TransferStatus::Complete;
    result.complete = std::move(command);
}

void FrameChecker::abandon(std::uint16_t token) {
    transfers_.erase(token);
}

std::vector<std::string> FrameChecker::forget(unsigned sender) {
    std::vector<std::string> unfinished;
    for (auto entry = transfers_.begin(); entry != transfers_.end();) {
        const auto next = std::next(entry);
        if (entry->second.sender == sender) {
            unfinished.push_back(entry->second.command.name);
            transfers_.erase(entry);
        }
        entry = next;
    }
    return unfinished;
}

bool FrameChecker::hasTransferOf(unsigned sender) const {
    return std::any_of(transfers_.begin(), transfers_.end(),
                       [=](const auto& entry) { return entry.second.sender == sender; });
}

/// Walks through all 16-bit numbers in an order in which both bytes change.
std::uint16_t FrameChecker::nextToken() {
    do {
        lastToken_ = static_cast<std::uint16_t>(lastToken_ * 25173U + 13849U);
    } while (lastToken_ == 0 || transfers_.count(lastToken_) != 0);
    return lastToken_;
}

std::string whyNotJsonObject(std::string_view text) {
    std::string fault;
    const auto document = parseJson(text, fault);
    if (document && !document->isObject()) return "it is something else";
    return fault;
}

}  // namespace tav::sim
