#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <json/writer.h>
#include <sys/inotify.h>

#include "base/FileDescriptor.h"
#include "rmc/StateFiles.h"
#include "tools/Command.h"
#include "tools/CommandLine.h"
#include "tools/Sections.h"
#include "tools/ServiceFiles.h"
#include "tools/Table.h"

namespace tav::ctl {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view help =
    R"(Shows what the service knows, also when the management controller does not
answer, and what it knew last when it does not run any more. WHAT is one of

  host storage drives volumes ethernet fibre-channel
            the inventory, what is not OK first; without WHAT all of it
  events    the last (a hundred at most), the newest first, and what became of each
  service   the service itself: its managers, the controller, what hangs

  --json    one JSON object for programs: "ServiceRuns", "AsOf" (seconds since the
            epoch, for each part) and the parts with all that is known of them
  --watch   go on showing it whenever it changes

What a device says of itself is shown without what could disturb the terminal, and
shortened where it is long; --json leaves nothing out. Colours are for terminals
alone, and not where NO_COLOR is set. Root may look, and the group tavd.

Exit status: 0 shown, 1 it cannot be read, 2 wrong usage, 3 there is nothing: the
service has not run since the boot, 5 you may not look.
)";

struct Wish {
    std::vector<const Section*> sections;
    bool isEverything = false;
    bool asJson = false;
    bool goesOn = false;
};

/// What is asked for; none when it cannot be understood, which has been told then.
std::optional<Wish> parse(Arguments arguments) {
    const auto line = sortArguments("show", arguments, {}, {"--json", "--watch"});
    if (!line) return std::nullopt;
    Wish wish;
    wish.asJson = line->options.contains("--json");
    wish.goesOn = line->options.contains("--watch");
    if (line->words.empty()) {
        wish.isEverything = true;
        for (const Section& section : sections) {
            if (section.file == &Shown::inventory) wish.sections.push_back(&section);
        }
        return wish;
    }
    const auto found = std::find_if(sections.begin(), sections.end(), [&](const Section& section) {
        return section.name == line->words[0];
    });
    if (line->words.size() == 1 && found != sections.end()) {
        wish.sections.push_back(&*found);
        return wish;
    }
    std::cerr << "tavctl show: "
              << (line->words.size() > 1 ? "only one part can be shown" : "there is no such part")
              << "; see tavctl show --help\n";
    return std::nullopt;
}

Shown readAll(const Wish& wish) {
    const auto isWanted = [&](StateFile Shown::*file) {
        return std::any_of(wish.sections.begin(), wish.sections.end(),
                           [&](const Section* section) { return section->file == file; });
    };
    Shown shown;
    shown.health = readStateFile(healthFile);
    if (isWanted(&Shown::inventory)) shown.inventory = readStateFile(inventoryFile);
    if (isWanted(&Shown::events)) shown.events = readStateFile(eventsFile);
    return shown;
}

/// Why there is nothing to be shown.
struct Complaint {
    ExitStatus status = Done;
    std::string text{};
};

Complaint complaintAbout(int error, bool isRunning) {
    const std::string directory = stateDirectory;
    switch (error) {
        case 0:
            return {};
        case ENOENT:
        case ENOTDIR:
            if (isRunning) {
                return {Failed, "tavd runs, and has not kept that in " + directory +
                                    " yet; should it stay so, its log says why"};
            }
            return {NoService, "there is nothing in " + directory +
                                   ": tavd has not run since the boot (systemctl status tavd)"};
        case EACCES:
        case EPERM:
            return {NotAllowed,
                    directory + " may not be read by you; root may, and the group tavd"};
        case EBADMSG:
            return {Failed, "what stands in " + directory + " is not what tavd writes"};
        default:
            return {Failed, "cannot read " + directory + ": " + std::strerror(error)};
    }
}

std::string ageText(std::time_t since) {
    struct Unit {
        std::time_t from, seconds;
        const char* name;
    };
    constexpr std::array units = {Unit{172800, 86400, " days ago"}, Unit{7200, 3600, " hours ago"},
                                  Unit{120, 60, " min ago"}, Unit{0, 1, " s ago"}};
    const std::time_t age = std::time(nullptr) - since;
    const auto* const unit = std::find_if(units.begin(), units.end(),
                                          [age](const Unit& each) { return age >= each.from; });
    return unit == units.end() ? "in the future: the clock has been set back"
                               : std::to_string(age / unit->seconds) + unit->name;
}

std::string headline(const Section& section, const Json::Value& picked, std::time_t moment) {
    std::string line(section.name);
    if (picked.isArray()) line += " (" + std::to_string(picked.size()) + ')';
    if (moment != 0) line += ", as of " + timeText(moment) + ", " + ageText(moment);
    return line;
}

void printNotice(const Shown& shown, std::ostream& out, const Look& look) {
    if (isOfAnEarlierService(shown.health.json)) {
        out << toned(
                   "The service cannot write what it knows, and its log says why. This is what an "
                   "earlier one knew.",
                   Tone::Bad, look)
            << "\n\n";
        return;
    }
    const Life life = lifeOf(shown.health.json);
    if (life == Life::Runs || life == Life::Unknown) return;
    const bool wasStopped = life == Life::Stopped;
    const std::time_t last = timeIn(shown.health.json, wasStopped ? "Stopped" : "Written");
    out << toned("The service does not run any more; it " +
                     std::string(wasStopped ? "was stopped " : "ended unasked after ") +
                     timeText(last) + ". This is what it knew.",
                 Tone::Bad, look)
        << "\n\n";
}

void printTables(const Wish& wish, const Shown& shown, std::ostream& out, const Look& look) {
    printNotice(shown, out, look);
    const char* before = "";
    for (const Section* const section : wish.sections) {
        const Json::Value& picked = section->pick(shown);
        if (wish.isEverything && picked.empty()) continue;
        out << before
            << toned(headline(*section, picked, asOf(*section, shown)), Tone::Heading, look)
            << '\n';
        if (!picked.empty()) section->print(picked, out, look);
        before = "\n";
    }
    if (*before == '\0') out << "Nothing is known yet, or nothing is enabled.\n";
}

void printJson(const Wish& wish, const Shown& shown, std::ostream& out) {
    Json::Value json;
    json["ServiceRuns"] = lifeOf(shown.health.json) == Life::Runs;
    for (const Section* const section : wish.sections) {
        json["AsOf"][section->member] = Json::Int64{asOf(*section, shown)};
        json[section->member] = section->pick(shown);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    out << Json::writeString(builder, json) << '\n';
}

Complaint show(const Wish& wish, std::ostream& out, const Look& look) {
    const Shown shown = readAll(wish);
    const int error = (shown.*wish.sections.front()->file).error;
    if (error != 0) return complaintAbout(error, lifeOf(shown.health.json) == Life::Runs);
    if (wish.asJson) {
        printJson(wish, shown, out);
    } else {
        printTables(wish, shown, out, look);
    }
    return {};
}

// --- Going on ------------------------------------------------------------------------------------

/// Tells when the service has written its files anew.
class Changes {
 public:
    /// Waits for it, and no longer than that: whether it has. A directory that is not there yet is
    /// looked for every second.
    bool wait(std::chrono::milliseconds longest) {
        if (::inotify_add_watch(notices_.get(), stateDirectory, IN_MOVED_TO | IN_ONLYDIR) < 0) {
            pause(1s);
            return true;
        }
        pollfd watched{notices_.get(), POLLIN, 0};
        if (::poll(&watched, 1, static_cast<int>(longest.count())) <= 0) return false;
        pause(50ms);  // one writing replaces several files
        alignas(inotify_event) std::array<char, 4096> notices;
        while (::read(notices_.get(), notices.data(), notices.size()) > 0) {
        }
        return true;
    }

 private:
    static void pause(std::chrono::milliseconds time) {
        ::poll(nullptr, 0, static_cast<int>(time.count()));
    }

    FileDescriptor notices_{::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
};

/// Over what the terminal shows, and no more than it has lines.
void draw(const std::string& text, const Look& look) {
    std::istringstream lines(text);
    std::string line;
    std::cout << "\x1B[H";
    for (std::size_t left = look.lines; left > 1 && std::getline(lines, line); --left)
        std::cout << line << "\x1B[K\n";
    std::cout << "\x1B[J" << std::flush;
}

/// Until it is interrupted, or nobody takes what it writes.
ExitStatus goOn(const Wish& wish) {
    constexpr auto agesGoOn = 5s;
    Changes changes;
    std::string before;
    bool hasChanged = true;
    while (true) {
        const Look look = lookOfOutput();  // a window may have another size by now
        std::ostringstream text;
        const Complaint complaint = show(wish, text, look);
        if (complaint.status != Done) text << complaint.text << '\n';
        if (look.lines > 0 && !wish.asJson) {
            draw(text.str(), look);
        } else if (hasChanged && text.str() != before) {
            before = text.str();
            std::cout << before << std::flush;
        }
        if (!std::cout) return Failed;
        hasChanged = changes.wait(agesGoOn);
    }
}

ExitStatus run(Arguments arguments) {
    const auto wish = parse(arguments);
    if (!wish) return Misused;
    if (wish->goesOn) return goOn(*wish);
    const Complaint complaint = show(*wish, std::cout, lookOfOutput());
    if (complaint.status != Done) std::cerr << "tavctl show: " << complaint.text << '\n';
    return complaint.status;
}

}  // namespace

const Command showCommand{"show", "[WHAT] [--json] [--watch]", "show what the service knows", help,
                          run};

}  // namespace tav::ctl
