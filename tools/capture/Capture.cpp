#include "tools/capture/Capture.h"

#include <functional>
#include <memory>
#include <random>
#include <utility>

#include <json/value.h>
#include <json/writer.h>

#include "base/LaneGroup.h"
#include "base/Lanes.h"
#include "tools/capture/Archive.h"
#include "tools/capture/HostFacts.h"
#include "tools/capture/HostFiles.h"
#include "tools/capture/NvmeQuestions.h"
#include "tools/capture/RaidQuestions.h"
#include "tools/capture/Recording.h"
#include "tools/capture/Scrubbing.h"
#include "tools/capture/ScsiQuestions.h"

namespace tav::capture {
namespace {

using namespace std::chrono_literals;

/// What takes longer lets others go first.
constexpr auto hangsAfter = 5s;
constexpr auto timeToStop = 1s;

/// Something that is asked on a thread of its own.
struct Source {
    std::string name;
    std::function<void(Recorder&)> take;
};

void takeFiles(Recorder& recorder) {
    takeKernelFiles(recorder);
    takePciNames(recorder);
}

std::vector<Source> sources() {
    std::vector<Source> all = {
        {"the host's commands", takeCommands},
        {"the kernel's files", takeFiles},
        {"configuration and logs", takeConfigurationAndLogs},
        {"the system's names", takeSystemNames},
        {"the links", takeLinks},
        {"the firmware's tables", takeFirmwareTables},
        {"the RAID library", askRaidLibrary},
    };
    for (const ScsiNode& node : scsiNodes()) {
        all.push_back(
            {"/dev/" + node.name, [node](Recorder& recorder) { askScsiDisk(recorder, node); }});
    }
    for (const std::string& name : nvmeControllers()) {
        all.push_back(
            {"/dev/" + name, [name](Recorder& recorder) { askNvmeController(recorder, name); }});
    }
    return all;
}

/// Asks all, and returns what has come in time.
Recording askAll(std::chrono::seconds patience) {
    const TimeLimit limit(patience);
    const auto pool = std::make_shared<Lanes>("tavctl-ask", mostAskedAtATime, hangsAfter);
    const auto recorder = std::make_shared<Recorder>();  // outlives whoever hangs
    LaneGroup<std::string, bool> lanes(pool, patience);
    for (const Source& source : sources()) {
        lanes.ask(source.name, source.name, [recorder, take = source.take] {
            take(*recorder);
            return true;
        });
    }
    lanes.collect(
        limit, [](const std::string&, bool) {}, [] {});
    lanes.forEachUnanswered([&](const std::string& name, const auto&) {
        recorder->lack(name + ": has not answered in time");
    });
    pool->requestStop();
    pool->finish(TimeLimit(timeToStop));
    return recorder->taken();
}

std::string rendered(const Conversation& conversation) {
    std::string lines;
    if (conversation.openError != 0)
        lines += "open error=" + std::to_string(conversation.openError) + '\n';
    for (const Answer& answer : conversation.answers) {
        lines += answer.question + ' ' + answer.outcome;
        if (!answer.sense.empty()) lines += " sense=" + hexadecimal(answer.sense);
        if (!answer.data.empty()) lines += " data=" + hexadecimal(answer.data);
        lines += '\n';
    }
    if (!conversation.unanswered.empty()) lines += conversation.unanswered + " hangs\n";
    return lines;
}

std::string manifest(const Recording& recording, const Wishes& wishes, std::time_t moment) {
    Json::Value value;
    value["format"] = "tav-capture";
    value["version"] = 1;
    value["program"] = "tavctl " TAV_VERSION;
    value["taken"] = Json::Int64{moment};
    value["identities"] = wishes.keepIdentities ? "kept" : "replaced";
    value["lacking"] = Json::arrayValue;
    for (const std::string& what : recording.lacking)
        value["lacking"].append(what);
    Json::StreamWriterBuilder writer;
    writer["indentation"] = " ";
    return Json::writeString(writer, value) + '\n';
}

void addEntry(const std::string& path, const HostEntry& entry, Archive& archive) {
    switch (entry.kind) {
        case HostEntry::Kind::File:
            return archive.addFile("root" + path, entry.content);
        case HostEntry::Kind::Unreadable:
            return archive.addFile("root" + path, "", 0);
        case HostEntry::Kind::Link:
            return archive.addLink("root" + path, entry.content);
        case HostEntry::Kind::Directory:
            return archive.addDirectory("root" + path);
    }
}

void addCommands(const std::vector<CommandRun>& runs, Archive& archive) {
    std::string index;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const CommandRun& run = runs[i];
        const std::string status = run.hasEnded ? std::to_string(run.status) : "hangs";
        index += std::to_string(i) + ' ' + status + ' ' + run.command + '\n';
        archive.addFile("recorded/commands/" + std::to_string(i), run.output);
    }
    archive.addFile("recorded/commands/index", index);
}

}  // namespace

std::optional<Captured> captureHost(const Wishes& wishes) {
    Recording recording = askAll(wishes.patience);
    if (!wishes.keepIdentities) {
        std::random_device source;
        const auto seed = std::uint64_t{source()} << 32U | source();
        recording = scrubbed(std::move(recording), seed);
    }
    const std::time_t moment = std::time(nullptr);
    Archive archive(moment);
    archive.addFile("manifest.json", manifest(recording, wishes, moment));
    for (const auto& [path, entry] : recording.entries)
        addEntry(path, entry, archive);
    for (const auto& [name, fact] : recording.facts)
        archive.addFile("recorded/" + name, fact);
    for (const auto& [device, conversation] : recording.conversations)
        archive.addFile("recorded/devices/" + device, rendered(conversation));
    addCommands(recording.commands, archive);
    for (const auto& [path, log] : recording.logs)
        archive.addFile("logs" + path, log);
    auto compressed = archive.compressed();
    if (!compressed) return std::nullopt;
    return Captured{*std::move(compressed), std::move(recording.lacking)};
}

}  // namespace tav::capture
