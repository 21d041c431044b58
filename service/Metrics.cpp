#include "service/Metrics.h"

#include <array>
#include <charconv>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "base/JsonText.h"

namespace tavd {
namespace {

using Label = std::pair<std::string_view, std::string_view>;
using Labels = std::initializer_list<Label>;

/// Writes one family of metrics after the other.
class Exposition {
 public:
    void family(std::string_view name, std::string_view type, std::string_view help) {
        name_ = name;
        for (const auto& [what, text] : {Label{"# HELP ", help}, Label{"# TYPE ", type}})
            text_.append(what).append(name).append(" ").append(text).append("\n");
    }

    template <class Number>
    void sample(Number value, Labels labels = {}, std::string_view suffix = {}) {
        text_.append(name_).append(suffix);
        appendLabels(labels);
        std::array<char, 32> digits{};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
        text_.append(" ").append(digits.data(), end).append("\n");
    }

    /// A family of one.
    template <class Number>
    void single(std::string_view name, std::string_view type, std::string_view help, Number value) {
        family(name, type, help);
        sample(value);
    }

    std::string take() { return std::move(text_); }

 private:
    void appendLabels(Labels labels) {
        std::string_view before = "{";
        for (const auto& [name, value] : labels) {
            text_.append(before).append(name).append("=\"");
            for (const char c : tav::wellFormedUtf8(value)) {
                if (c == '\\' || c == '"') text_ += '\\';
                text_.append(c == '\n' ? "\\n" : std::string_view(&c, 1));
            }
            text_ += '"';
            before = ",";
        }
        if (labels.size() > 0) text_ += '}';
    }

    std::string text_;
    std::string_view name_;
};

double secondsOf(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

void writeInventories(Exposition& out, const tav::Delivery& pushes, std::size_t bytes) {
    out.family("tav_inventory_pushes_total", "counter", "Inventories that were sent, by outcome.");
    out.sample(pushes.acknowledgedInAll, {{"outcome", "acknowledged"}});
    out.sample(pushes.failedInAll, {{"outcome", "failed"}});
    out.single("tav_inventory_failures_in_a_row", "gauge",
               "Inventories that have failed since the last that was acknowledged.",
               pushes.failures);
    // A moment that has not been is left out: 0 would be one in 1970.
    if (pushes.acknowledged != 0) {
        out.single("tav_inventory_last_acknowledged_timestamp_seconds", "gauge",
                   "When the controller last acknowledged an inventory.", pushes.acknowledged);
        out.single("tav_inventory_last_push_duration_seconds", "gauge",
                   "How long the transfer of the last acknowledged inventory took.",
                   secondsOf(pushes.took));
    }
    if (pushes.failed != 0) {
        out.single("tav_inventory_last_failed_timestamp_seconds", "gauge",
                   "When an inventory last failed.", pushes.failed);
    }
    out.single("tav_inventory_size_bytes", "gauge", "Size of the last inventory.", bytes);
}

void writeEvents(Exposition& out, const tav::Delivery& events, const tav::EventTotals& totals) {
    // There from the beginning, so that a first failure is an increase.
    out.family("tav_event_deliveries_total", "counter", "Events that were sent, by outcome.");
    out.sample(events.acknowledgedInAll, {{"outcome", "acknowledged"}});
    out.sample(events.failedInAll, {{"outcome", "failed"}});
    if (totals.empty()) return;
    constexpr std::array outcomes = {"delivered", "dropped", "failed"};
    static_assert(outcomes.size() == tav::eventOutcomeNames.size());
    out.family("tav_events_total", "counter",
               "Events by ID and outcome; ID 0 is that of events without one.");
    for (const auto& [event, count] : totals) {
        out.sample(count, {{"id", std::to_string(event.first)},
                           {"outcome", outcomes.at(static_cast<std::size_t>(event.second))}});
    }
}

void writeController(Exposition& out, const tav::RmcFigures& rmc) {
    out.single("tav_rmc_frames_total", "counter", "Frames that the controller has answered.",
               rmc.frames);
    out.family("tav_rmc_failures_total", "counter",
               "Failures on the way to the controller, by step.");
    for (std::size_t i = 0; i < tav::rmcStepNames.size(); ++i)
        out.sample(rmc.failures.at(i), {{"step", tav::rmcStepNames.at(i)}});
}

struct Work {
    tav::Spent::Reading ServiceState::Manager::*reading;
    std::string_view duration, durationHelp, last, lastHelp;
};
constexpr std::array works = {
    Work{&ServiceState::Manager::builds, "tav_manager_build_duration_seconds",
         "Builds of a manager's inventory, and how long they took.",
         "tav_manager_last_build_timestamp_seconds", "When a manager last ended a build."},
    Work{&ServiceState::Manager::polls, "tav_manager_poll_duration_seconds",
         "A manager's looks for changes, and how long they took.",
         "tav_manager_last_poll_timestamp_seconds", "When a manager last ended a poll."},
};

void writeManagers(Exposition& out, const std::vector<ServiceState::Manager>& managers) {
    if (managers.empty()) return;
    for (const Work& work : works) {
        out.family(work.duration, "summary", work.durationHelp);
        for (const ServiceState::Manager& manager : managers) {
            const tav::Spent::Reading& reading = manager.*work.reading;
            out.sample(secondsOf(reading.took), {{"manager", manager.name}}, "_sum");
            out.sample(reading.count, {{"manager", manager.name}}, "_count");
        }
        out.family(work.last, "gauge", work.lastHelp);
        for (const ServiceState::Manager& manager : managers) {
            const tav::Spent::Reading& reading = manager.*work.reading;
            if (reading.last != 0) out.sample(reading.last, {{"manager", manager.name}});
        }
    }
}

void writeUse(Exposition& out, const OwnUse& use, std::time_t started) {
    out.single("tav_process_cpu_seconds_total", "counter",
               "Processor time that the service has used, its commands not counted.",
               use.process.cpuSeconds);
    out.single("tav_process_resident_memory_bytes", "gauge", "Resident memory of the service.",
               use.process.residentBytes);
    out.single("tav_process_virtual_memory_bytes", "gauge", "Virtual memory of the service.",
               use.process.virtualBytes);
    out.single("tav_process_threads", "gauge", "Threads of the service.", use.process.threads);
    out.single("tav_process_open_fds", "gauge", "Open descriptors of the service.",
               use.descriptors);
    out.single("tav_process_max_fds", "gauge", "Most descriptors that it may have.",
               use.mostDescriptors);
    out.single("tav_process_start_time_seconds", "gauge", "When the service was started.", started);
}

}  // namespace

std::string renderMetrics(const ServiceState& state) {
    Exposition out;
    out.family("tav_build_info", "gauge", "The version of the service; always 1.");
    out.sample(1, {{"version", TAV_VERSION}});
    out.single("tav_up", "gauge", "Whether the service runs: 0 once it has been stopped.",
               state.stopped ? 0 : 1);
    writeInventories(out, state.deliveries.inventories, state.inventoryBytes);
    writeEvents(out, state.deliveries.events, state.events);
    writeController(out, state.rmc);
    writeManagers(out, state.managers);
    out.single("tav_devices_not_answering", "gauge",
               "Devices and libraries that were asked and do not answer.", state.unanswered.size());
    out.single("tav_loops_standing_still", "gauge", "Threads that should have gone on long ago.",
               state.standingStill.size());
    writeUse(out, state.use, state.started);
    return out.take();
}

}  // namespace tavd
