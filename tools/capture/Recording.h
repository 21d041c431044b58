#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// What has been taken of a host. Bytes of any kind stand in strings.
namespace tav::capture {

/// A file, link or directory of the host.
struct HostEntry {
    enum class Kind { File, Unreadable, Link, Directory };
    Kind kind = Kind::File;
    std::string content;  ///< of a file; of a link its target
};

/// What a device has answered to one question.
struct Answer {
    std::string question;  ///< its kind and its bytes: "scsi 12018000fc00"
    std::string outcome;   ///< what else came back, as "name=value" words
    std::string sense;
    std::string data;
    bool hasAtaTexts = false;  ///< the first character of each pair stands behind the second
};

/// What one device was asked, in this order.
struct Conversation {
    int openError = 0;  ///< the error number when it could not be opened
    std::vector<Answer> answers;
    std::string unanswered;  ///< the question that it has not answered (yet); "open" for none
};

struct CommandRun {
    std::string command;
    bool hasEnded = false;
    int status = -1;
    std::string output;
};

struct Recording {
    std::map<std::string, HostEntry> entries;  ///< by absolute path
    std::map<std::string, Conversation> conversations;
    std::vector<CommandRun> commands;
    std::map<std::string, std::string> facts;  ///< files about what is no file, by name
    std::map<std::string, std::string> logs;   ///< by absolute path
    std::vector<std::string> lacking;          ///< what could not be taken, and why
};

/// A recording that many threads add to, some of which may hang and come back late. Any thread.
class Recorder {
 public:
    void addEntry(const std::string& path, HostEntry entry);
    /// A further kind of file: see Recording.
    void addFact(const std::string& name, std::string content);
    void addLog(const std::string& path, std::string content);
    void addCommand(CommandRun run);
    void lack(std::string what);

    /// The device is about to be asked; until the answer is added it has not answered.
    void ask(const std::string& device, std::string_view question);
    void addAnswer(const std::string& device, Answer answer);
    void refuseToOpen(const std::string& device, int error);

    /// What there is by now. What comes later changes nothing in it.
    Recording taken() const;

    /// Bytes that a recording can hold: what comes when it is full is left out, and lacking.
    static constexpr std::size_t mostBytes = 64U << 20U;

 private:
    /// Under the lock.
    bool hasRoomFor(std::string_view what, std::size_t bytes);

    mutable std::mutex lock_;
    Recording recording_;
    std::size_t bytes_ = 0;
    bool isFull_ = false;
};

/// "0a1b" for these bytes.
std::string hexadecimal(std::string_view bytes);

}  // namespace tav::capture
