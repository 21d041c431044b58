#include "service/ServiceState.h"

#include <unistd.h>

#include <json/value.h>

#include "base/JsonText.h"
#include "core/resource_managers.h"

namespace tavd {
namespace {

double secondsOf(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

ServiceState::Manager managerState(MODULE_NAME type) {
    const tav::ManagerFigures& figures = tav::figuresOf(type);
    return {TAV_MODULE_NAME_MAP.at(type), figures.builds.read(), figures.polls.read()};
}

Json::Value asJson(const ServiceState::Manager& manager) {
    Json::Value json;
    json["Builds"] = Json::UInt64{manager.builds.count};
    json["BuildSeconds"] = secondsOf(manager.builds.took);
    json["LastBuild"] = Json::Int64{manager.builds.last};
    json["Polls"] = Json::UInt64{manager.polls.count};
    json["PollSeconds"] = secondsOf(manager.polls.took);
    json["LastPoll"] = Json::Int64{manager.polls.last};
    return json;
}

Json::Value asJson(const OwnUse& use) {
    Json::Value json;
    json["CpuSeconds"] = use.process.cpuSeconds;
    json["ResidentBytes"] = Json::UInt64{use.process.residentBytes};
    json["VirtualBytes"] = Json::UInt64{use.process.virtualBytes};
    json["Threads"] = Json::UInt64{use.process.threads};
    json["Descriptors"] = Json::UInt64{use.descriptors};
    return json;
}

}  // namespace

ServiceState takeServiceState(bool withFibreChannel) {
    ServiceState state;
    state.now = std::time(nullptr);
    state.uptime = std::chrono::steady_clock::now().time_since_epoch();
    state.deliveries = tav::deliveryRecord();
    state.events = tav::eventTotals();
    state.rmc = tav::rmcFigures();
    tav::forEachEnabledManager([&](MODULE_NAME type, tavResourceManager& /*manager*/) {
        state.managers.push_back(managerState(type));
    });
    if (withFibreChannel) state.managers.push_back(managerState(FIBRE_CHANNEL_DEVICES));
    state.standingStill = tav::LoopWatch::standingStill();
    state.unanswered = tav::Unanswered::all();
    state.use = ownUse();
    return state;
}

std::string renderHealth(const ServiceState& state) {
    Json::Value json = tav::renderDeliveryRecord(state.deliveries);
    json["Version"] = TAV_VERSION;
    json["Process"] = ::getpid();
    json["StartTicks"] = Json::UInt64{state.use.process.startTicks};
    json["Started"] = Json::Int64{state.started};
    json["Written"] = Json::Int64{state.now};
    json["Uptime"] = Json::Int64{std::chrono::floor<std::chrono::seconds>(state.uptime).count()};
    if (state.stopped) json["Stopped"] = Json::Int64{*state.stopped};
    json["Managers"] = Json::objectValue;
    for (const ServiceState::Manager& manager : state.managers)
        json["Managers"][manager.name] = asJson(manager);
    json["StandingStill"] = Json::arrayValue;
    for (const tav::StandingLoop& loop : state.standingStill) {
        Json::Value entry;
        entry["Loop"] = loop.name;
        entry["Seconds"] = Json::Int64{loop.overdue.count()};
        json["StandingStill"].append(std::move(entry));
    }
    json["Unanswered"] = Json::arrayValue;
    for (const tav::Unanswered::Entry& silent : state.unanswered) {
        Json::Value entry;
        entry["Who"] = tav::jsonText(silent.who);
        entry["What"] = tav::jsonText(silent.what);
        entry["Since"] = Json::Int64{silent.since};
        json["Unanswered"].append(std::move(entry));
    }
    json["Frames"] = Json::UInt64{state.rmc.frames};
    for (std::size_t i = 0; i < tav::rmcStepNames.size(); ++i)
        json["FailuresByStep"][tav::rmcStepNames.at(i)] = Json::UInt64{state.rmc.failures.at(i)};
    json["Use"] = asJson(state.use);
    return tav::compactJson(json) + '\n';
}

}  // namespace tavd
