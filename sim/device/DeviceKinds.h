#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "sim/device/DeviceTable.h"
#include "sim/device/FactsFile.h"
#include "sim/replay/Conversation.h"

/// What the nodes of different kinds have in common. Each kind has a File, which is an OpenDevice
/// that looks at a Request as the kernel's driver does and hands it to a function of its maker.
namespace tav::sim {

/// A node whose requests a script answers.
template <class File, class Script>
class ScriptedDevice final : public Device {
 public:
    explicit ScriptedDevice(Script script) : script_(std::move(script)) {}

    std::shared_ptr<OpenDevice> open(FileDescriptor deviceEnd, int& /*error*/) override {
        return std::make_shared<File>(std::move(deviceEnd), script_);
    }

 private:
    const Script script_;
};

/// A node of a captured host, which answers as it has answered there.
template <class File, class Request, int (*serve)(const RecordedConversation&, Request&)>
class RecordedDevice final : public Device {
 public:
    explicit RecordedDevice(std::string_view lines)
        : conversation_(std::make_shared<RecordedConversation>(lines)) {}

    std::shared_ptr<OpenDevice> open(FileDescriptor deviceEnd, int& error) override {
        if (const RecordedAnswer* const answer = conversation_->opening()) {
            waitAsRecorded(*answer);
            error = static_cast<int>(answer->number("error"));
            return nullptr;
        }
        return std::make_shared<File>(std::move(deviceEnd),
                                      [conversation = conversation_](Request& request) {
                                          return serve(*conversation, request);
                                      });
    }

 private:
    const std::shared_ptr<const RecordedConversation> conversation_;
};

/// The node of a path in /dev: a Recorded one where this host is a captured one, one by Facts where
/// there is a file of that name in `factsDirectory`, else none.
template <class Recorded, class Facts>
std::shared_ptr<Device> findDevice(const std::string& path, const char* factsDirectory) {
    constexpr std::string_view directory = "/dev/";
    const std::string name = path.substr(directory.size());
    if (name.find('/') != std::string::npos) return nullptr;
    if (const std::string recorded = recordedText(name); !recorded.empty())
        return std::make_shared<Recorded>(recorded);
    const std::string facts = factsDirectory + name;
    std::error_code error;
    if (!std::filesystem::is_regular_file(facts, error)) return nullptr;
    return std::make_shared<Facts>(FactsFile(facts));
}

}  // namespace tav::sim
