#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <sys/stat.h>

#include "base/FileDescriptor.h"
#include "base/Files.h"
#include "tools/ChildProcess.h"
#include "tools/Command.h"
#include "tools/CommandLine.h"
#include "tools/capture/Capture.h"

namespace tav::ctl {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view help =
    R"(Takes this host's facts home: writes into FILE (a .tar.gz, for its owner alone)
everything from which the service makes its inventory here, so that the same
inventory can be made of it elsewhere. A FILE that is there is replaced, but for
what is no regular file. Says first what it takes, and, on a terminal, asks
whether it may.

Serial numbers, world wide names, host names, MAC and IP addresses are replaced
by stand-ins of the same length, the same ones everywhere; which stands for
which is told nowhere.

  --keep-identities  leave them as they are
  --yes              do not ask

Needs root, as the service does. What does not answer is left out, and told; it
is over within a minute.

Exit status: 0 FILE holds everything, 1 FILE could not be written, or lacks
something that has been told, 2 wrong usage or not wanted, 5 not allowed.
)";

constexpr const char* contents =
    R"(This takes:
  the configuration, the host's summary log, the service's health and the ends of its logs
  what the kernel tells of PCI functions, SCSI hosts and disks, Fibre Channel
    ports and links, and its SMBIOS tables
  what localcli, esxtop and mdadm print
  what disks and the RAID library answer when they are asked how they are
No user's data is read, and nothing is changed.
)";
constexpr const char* replaced =
    R"(Serial numbers, world wide names, host names and addresses are replaced by
stand-ins: it can be given to whoever is to look into the trouble. The logs'
other words stand as they are; look through them where that matters.
)";
constexpr const char* kept =
    R"(Serial numbers, world wide names, host names and addresses are KEPT: give it to
nobody who is not to know them.
)";

/// All is over by then, whatever hangs.
constexpr auto timeLimit = 55s;

struct Wish {
    std::string file;
    bool keepIdentities = false;
    bool isAgreed = false;
};

/// What is asked for; none when it cannot be understood, which has been told then.
std::optional<Wish> parse(Arguments arguments) {
    Wish wish;
    std::vector<const char*> rest;
    for (const char* const argument : arguments) {
        const std::string_view text = argument;
        wish.keepIdentities |= text == "--keep-identities";
        wish.isAgreed |= text == "--yes";
        if (text != "--keep-identities" && text != "--yes") rest.push_back(argument);
    }
    const auto line = sortArguments("capture", rest);
    if (!line) return std::nullopt;
    if (line->words.size() != 1 || line->words[0].empty()) {
        std::cerr << "tavctl capture: exactly one FILE is needed; see tavctl capture --help\n";
        return std::nullopt;
    }
    wish.file = line->words[0];
    return wish;
}

/// Only who sits at a terminal is asked.
bool isWanted(const Wish& wish) {
    std::cout << contents << (wish.keepIdentities ? kept : replaced) << std::flush;
    if (wish.isAgreed || ::isatty(STDIN_FILENO) == 0 || ::isatty(STDOUT_FILENO) == 0) return true;
    std::cout << "Go on? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

/// Why the file cannot be replaced; empty when it can be, or is not there. What is no file stays: a
/// device's node, say, is nothing that a capture may take the place of.
std::string whyNotReplaceable(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return {};
    return path + " is no regular file; name one, or one that is not there yet";
}

/// Writes the file in one step, for its owner alone. Why not; empty when it is there.
std::string write(const std::string& path, const std::string& content) {
    const std::string fresh = path + '.' + std::to_string(::getpid());
    FileDescriptor file(
        ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.isOpen()) return fresh + ": " + std::strerror(errno);
    if (writeAll(file.get(), content.data(), content.size()) && ::fsync(file.get()) == 0 &&
        ::rename(fresh.c_str(), path.c_str()) == 0) {
        return {};
    }
    std::string why = path + ": " + std::strerror(errno);
    ::unlink(fresh.c_str());
    return why;
}

ExitStatus capture(const Wish& wish) {
    const auto captured = capture::captureHost({.keepIdentities = wish.keepIdentities});
    if (!captured) {
        std::cerr << "tavctl capture: there is not enough memory\n";
        return Failed;
    }
    const std::string why = write(wish.file, captured->archive);
    if (!why.empty()) {
        std::cerr << "tavctl capture: " << why << '\n';
        return Failed;
    }
    std::cout << "Written: " << wish.file << ", " << (captured->archive.size() + 1023) / 1024
              << " KiB\n";
    for (const std::string& what : captured->lacking)
        std::cerr << "tavctl capture: lacking: " << what << '\n';
    return captured->lacking.empty() ? Done : Failed;
}

ExitStatus captureInChild(const Wish& wish) {
    const auto status = workInChild(timeLimit, [&wish] {
        const ExitStatus done = capture(wish);
        std::cout.flush();  // the file is there, whoever reads that
        return std::string(1, static_cast<char>(done));
    });
    if (status && status->size() == 1) return static_cast<ExitStatus>(status->front());
    std::cerr << "tavctl capture: it has not come to an end; nothing is written\n";
    return Failed;
}

ExitStatus run(Arguments arguments) {
    const auto wish = parse(arguments);
    if (!wish) return Misused;
    if (::geteuid() != 0) {
        std::cerr << "tavctl capture: only root can ask the devices; try it as root\n";
        return NotAllowed;
    }
    if (const std::string why = whyNotReplaceable(wish->file); !why.empty()) {
        std::cerr << "tavctl capture: " << why << '\n';
        return Failed;
    }
    if (!isWanted(*wish)) {
        std::cerr << "tavctl capture: nothing is taken\n";
        return Misused;
    }
    return captureInChild(*wish);
}

}  // namespace

const Command captureCommand{"capture", "FILE [--keep-identities] [--yes]",
                             "take this host's facts home, to be looked at elsewhere", help, run};

}  // namespace tav::ctl
