#include "tools/capture/Recording.h"

#include <utility>

namespace tav::capture {

bool Recorder::hasRoomFor(std::string_view what, std::size_t bytes) {
    if (bytes_ + bytes <= mostBytes) {
        bytes_ += bytes;
        return true;
    }
    if (!std::exchange(isFull_, true)) {
        recording_.lacking.push_back("from " + std::string(what) + " on: the capture is full");
    }
    return false;
}

void Recorder::addEntry(const std::string& path, HostEntry entry) {
    const std::lock_guard held(lock_);
    if (hasRoomFor(path, entry.content.size()))
        recording_.entries.insert_or_assign(path, std::move(entry));
}

void Recorder::addFact(const std::string& name, std::string content) {
    const std::lock_guard held(lock_);
    if (hasRoomFor(name, content.size())) recording_.facts[name] = std::move(content);
}

void Recorder::addLog(const std::string& path, std::string content) {
    const std::lock_guard held(lock_);
    if (hasRoomFor(path, content.size())) recording_.logs[path] = std::move(content);
}

void Recorder::addCommand(CommandRun run) {
    const std::lock_guard held(lock_);
    if (hasRoomFor(run.command, run.output.size())) recording_.commands.push_back(std::move(run));
}

void Recorder::lack(std::string what) {
    const std::lock_guard held(lock_);
    recording_.lacking.push_back(std::move(what));
}

void Recorder::ask(const std::string& device, std::string_view question) {
    const std::lock_guard held(lock_);
    recording_.conversations[device].unanswered = question;
}

void Recorder::addAnswer(const std::string& device, Answer answer) {
    const std::lock_guard held(lock_);
    Conversation& conversation = recording_.conversations[device];
    conversation.unanswered.clear();
    if (hasRoomFor(device, answer.data.size())) conversation.answers.push_back(std::move(answer));
}

void Recorder::refuseToOpen(const std::string& device, int error) {
    const std::lock_guard held(lock_);
    Conversation& conversation = recording_.conversations[device];
    conversation.unanswered.clear();
    conversation.openError = error;
}

Recording Recorder::taken() const {
    const std::lock_guard held(lock_);
    return recording_;
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += digits[value >> 4U];
        text += digits[value & 15U];
    }
    return text;
}

}  // namespace tav::capture
