/// tav-sim-server: a described server, or a captured host, for the simulation. Builds its /sys and
/// links in a private root, changes it while it runs, and compares what was reported with what it
/// is.
#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sim/hostcmds/Files.h"
#include "sim/replay/RecordedLinks.h"
#include "sim/replay/Unpacking.h"
#include "sim/rmc/Json.h"
#include "sim/server/Changes.h"
#include "sim/server/Links.h"
#include "sim/server/Notes.h"
#include "sim/server/RaidOrders.h"
#include "sim/server/ServerTree.h"
#include "sim/server/Uevents.h"
#include "sim/server/Verdict.h"

namespace {

using namespace tav::sim;
using Arguments = std::span<const std::string>;

constexpr int succeeded = 0;
constexpr int failed = 1;
constexpr int misused = 2;

Json::Value readServer(const std::string& path) {
    std::string fault;
    auto server = parseJson(fileText(path), fault);
    if (!server) throw std::runtime_error(path + ": " + fault);
    return std::move(*server);
}

int build(Arguments arguments) {
    buildServer(readServer(arguments[0]), Tree(arguments[1]));
    return succeeded;
}

int unpack(Arguments arguments) {
    try {
        unpackCapture(fileText(arguments[0]), arguments[1]);
    } catch (const std::exception& fault) {
        throw std::runtime_error(arguments[0] + ": " + fault.what());
    }
    return succeeded;
}

int links(Arguments /*arguments*/) {
    const std::string recorded = fileText(std::string(recordedDirectory) + "links.json");
    if (!recorded.empty()) {
        std::string fault;
        makeRecordedLinks(parseJson(recorded, fault).value_or(Json::Value()));
        return succeeded;
    }
    makeLinks(member(readServer(serverDescription), "ethernet"));
    return succeeded;
}

std::string joined(Arguments words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

/// The tree is written anew, which changes just the files whose content has changed.
int change(Arguments arguments) {
    Json::Value server = readServer(serverDescription);
    std::string fault;
    const Json::Value* const entry =
        changeEntry(server, arguments[0], arguments[1], arguments.subspan(2), fault);
    if (entry == nullptr) throw std::runtime_error(fault);
    noteChange(joined(arguments), *entry);  // first: nobody can have reported it before
    changeServer(server, Tree("/"));
    if (arguments[0] == "ethernet") setLink(*entry);
    return succeeded;
}

int raid(Arguments arguments) {
    Json::Value server = readServer(serverDescription);
    std::string fault;
    const Json::Value* const entry = changeRaid(server, arguments[0], fault);
    if (entry == nullptr) throw std::runtime_error(fault);
    noteChange("raid " + arguments[0], *entry);
    // First: a library that is not there now reads it when it comes.
    Tree("/").write(serverDescription, oneLine(server) + '\n');
    orderRaid(arguments[0]);
    return succeeded;
}

int tell(Arguments arguments) {
    std::cout << "\n--- " << arguments[0] << std::endl;
    noteWords(arguments[0]);
    return succeeded;
}

int uevent(Arguments arguments) {
    sendUevent(arguments[0], arguments[1], arguments[2]);
    return succeeded;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

int verdict(Arguments arguments) {
    std::vector<std::string> faults;
    const std::vector<Reported> reports = readRecord(fileText(arguments[0]), faults);
    const Arguments events = arguments.subspan(1);
    for (const auto& found :
         {compareEvents(reports, events), compareInventory(reports, readServer(serverDescription)),
          linesOf(fileText(raidViolations))}) {
        faults.insert(faults.end(), found.begin(), found.end());
    }
    keepVerdict(arguments[0], events, faults);
    for (const std::string& fault : faults)
        std::cerr << "  " << fault << '\n';
    if (!faults.empty()) return failed;
    std::cout << "Each of the " << events.size()
              << " expected events came, once and in order. The last inventory agrees with the "
                 "server.\n";
    return succeeded;
}

struct Subcommand {
    std::string_view name;
    std::size_t least;  ///< number of arguments
    std::size_t most;
    int (*run)(Arguments);
    std::string_view usage;
};

constexpr std::size_t any = 1000;
constexpr std::array subcommands = {
    Subcommand{"build", 2, 2, build,
               "build DESCRIPTION ROOT       write the described server's files under ROOT"},
    Subcommand{"unpack", 2, 2, unpack,
               "unpack CAPTURE ROOT          write the captured host's files under ROOT"},
    Subcommand{"links", 0, 0, links, "links                        make its network links"},
    Subcommand{"change", 3, any, change,
               "change SECTION NAME M=V...   change a running server's part"},
    Subcommand{"raid", 1, 1, raid, "raid ORDER                   give the RAID library an order"},
    Subcommand{"tell", 1, 1, tell,
               "tell WORDS                   say what follows, to the record too"},
    Subcommand{"uevent", 3, 3, uevent,
               "uevent ACTION PATH SUBSYSTEM have the kernel tell of a device (enter --uevents)"},
    Subcommand{"verdict", 1, any, verdict,
               "verdict RECORD EVENT...      compare a controller's record with the events\n"
               "                             (ID or ID@TEXT) and the server, and add to it\n"
               "                             what has come of it; 1 when they differ"},
};

int refuse() {
    std::cerr << "usage: tav-sim-server SUBCOMMAND\n";
    for (const Subcommand& known : subcommands)
        std::cerr << "  " << known.usage << '\n';
    return misused;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + std::max(argc, 1));
    for (const Subcommand& known : subcommands) {
        if (words.empty() || words[0] != known.name) continue;
        const Arguments arguments = Arguments(words).subspan(1);
        if (arguments.size() < known.least || arguments.size() > known.most) return refuse();
        try {
            return known.run(arguments);
        } catch (const std::exception& fault) {
            std::cerr << "tav-sim-server: " << fault.what() << '\n';
            return failed;
        }
    }
    return refuse();
}
