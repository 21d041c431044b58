#include "service/StateKeeper.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <optional>
#include <utility>
#include <vector>

#include <poll.h>

#include <json/value.h>
#include <sys/stat.h>

#include "base/JsonText.h"
#include "base/StopSignal.h"
#include "base/Threads.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/News.h"
#include "fc/FCResourceManager.h"
#include "rmc/StateFiles.h"
#include "rmc/tavJsonAggregator.h"
#include "service/KeptFile.h"
#include "service/Metrics.h"
#include "service/ServiceState.h"

namespace tavd {
namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"TAVD"};

constexpr std::chrono::milliseconds routine = 5min;
constexpr std::chrono::milliseconds shortestPause = 1s;
/// How much longer than a writing the pause behind it is.
constexpr int pauseShare = 20;
constexpr auto patienceAtTheEnd = 1s;

constexpr mode_t forItsGroup = 0640;
constexpr mode_t forAll = 0644;

std::string fibreChannelPorts() {
    std::vector<Json::Value> ports;
    FCResourceManager::getInstance()->getInventoryJsonObject(ports);
    Json::Value list(Json::arrayValue);
    for (Json::Value& port : ports)
        list.append(std::move(port));
    return tav::compactJson(list);
}

std::string asText(const tav::EventNote& event) {
    Json::Value json;
    json["Time"] = Json::Int64{event.time};
    json["ID"] = event.id;
    json["Outcome"] = tav::eventOutcomeNames.at(static_cast<std::size_t>(event.outcome));
    json["Why"] = tav::jsonText(event.why);
    std::string text = tav::compactJson(json);
    text.pop_back();
    return text + ",\"Event\":" + (event.text.empty() ? "null" : event.text) + '}';
}

}  // namespace

/// What the thread owns.
class StateKeeper::Keeping {
 public:
    Keeping(const std::string& metricsFile, bool withFibreChannel)
        : withFibreChannel_(withFibreChannel) {
        if (!metricsFile.empty()) metrics_.emplace(metricsFile, forAll);
        tav::takeSentInventory();  // says that they are wanted
    }

    void run() {
        const tav::StopScope scope(&stop_);
        while (!stop_.requested()) {
            const tav::Stopwatch watch;
            tav::newsTaken();
            keep(std::nullopt);
            tav::pauseFor(std::max(shortestPause, pauseShare * watch.elapsed()));
            waitForNews();
        }
        keep(std::time(nullptr));
        ended_.request();
    }

    void requestStop() { stop_.request(); }
    bool hasEndedWithin(std::chrono::milliseconds time) const {
        const tav::StopScope undisturbed(nullptr);
        return tav::waitReadable(ended_.descriptor(), tav::TimeLimit(time)) == tav::Readable::Ready;
    }

 private:
    void waitForNews() const {
        std::array<pollfd, 2> watched = {pollfd{tav::newsDescriptor(), POLLIN, 0},
                                         pollfd{stop_.descriptor(), POLLIN, 0}};
        ::poll(watched.data(), watched.size(), static_cast<int>(routine.count()));
    }

    void keep(std::optional<std::time_t> stopped) {
        ::mkdir(tav::stateDirectory, 0700);  // the package's has a group that may read
        ServiceState state = takeServiceState(withFibreChannel_);
        state.started = started_;
        state.stopped = stopped;
        keepInventory(state);
        keepEvents(state.events);
        state.inventoryBytes = inventoryBytes_;
        health_.replace(renderHealth(state));
        if (metrics_) metrics_->replace(renderMetrics(state));
    }

    /// The one that was sent, and then what has been published since.
    void keepInventory(const ServiceState& state) {
        if (const auto sent = tav::takeSentInventory()) {
            sent_ = Json::Value();
            sent_["At"] = Json::Int64{sent->collected};
            sent_["Acknowledged"] = sent->isAcknowledged;
            published_ = sent->publications;
            writeInventory(state, sent->text, sent->collected);
        }
        const std::uint64_t published = tav::publications();
        if (published == published_) return;
        published_ = published;
        const Json::Value document = tavJsonAggregator::collectInventory();
        writeInventory(state, document.isNull() ? "{}" : tav::compactJson(document), state.now);
    }

    void writeInventory(const ServiceState& state, const std::string& document,
                        std::time_t collected) {
        Json::Value json;
        json["Collected"] = Json::Int64{collected};
        if (!sent_.isNull()) json["Sent"] = sent_;
        json["Built"] = Json::objectValue;
        for (const ServiceState::Manager& manager : state.managers)
            json["Built"][manager.name] = Json::Int64{manager.builds.last};
        std::string text = tav::compactJson(json);
        text.pop_back();
        if (withFibreChannel_) text += ",\"FibreChannelDevices\":" + fibreChannelPorts();
        if (document != "{}") text += ',';
        text.append(document, 1);
        text += '\n';
        inventoryBytes_ = document.size();
        inventory_.replace(text);
    }

    void keepEvents(const tav::EventTotals& totals) {
        if (events_ && *events_ == totals) return;
        events_ = totals;
        std::string text = "{\"Events\":[";
        const char* before = "";
        for (const tav::EventNote& event : tav::recentEvents()) {
            text.append(before).append(asText(event));
            before = ",";
        }
        eventsFile_.replace(text + "]}\n");
    }

    const bool withFibreChannel_;
    const std::time_t started_ = std::time(nullptr);
    tav::StopSignal stop_;
    tav::StopSignal ended_;
    KeptFile inventory_{tav::inventoryFile, forItsGroup};
    KeptFile eventsFile_{tav::eventsFile, forItsGroup};
    KeptFile health_{tav::healthFile, forItsGroup};
    std::optional<KeptFile> metrics_;
    std::uint64_t published_ = 0;  ///< before the document in the file was collected
    std::size_t inventoryBytes_ = 0;
    Json::Value sent_;
    std::optional<tav::EventTotals> events_;  ///< when the file was written
};

StateKeeper::StateKeeper(const std::string& metricsFile, bool withFibreChannel)
    : keeping_(std::make_shared<Keeping>(metricsFile, withFibreChannel)) {}

void StateKeeper::start() {
    const int failure =
        tav::startThread(thread_, "tav-state", [keeping = keeping_] { keeping->run(); });
    if (failure != 0) {
        logger.error(tav::here(), "There is no thread to keep the files in %s (errno: %d).",
                     tav::stateDirectory, failure);
    }
}

void StateKeeper::stop() {
    if (!thread_.joinable()) return;
    keeping_->requestStop();
    if (keeping_->hasEndedWithin(patienceAtTheEnd)) {
        thread_.join();
        return;
    }
    logger.warning(tav::here(),
                   "The files in %s, or the metrics, could not be written; what hangs "
                   "is left behind.",
                   tav::stateDirectory);
    thread_.detach();
}

}  // namespace tavd
