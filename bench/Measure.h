#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <unistd.h>

#include <sys/resource.h>
#include <sys/wait.h>

namespace bench {

/// Seconds of one call of `work`, `calls` made in a row.
template <class Work>
double secondsPerCall(int calls, Work work) {
    const auto start = std::chrono::steady_clock::now();
    for (int call = 0; call < calls; ++call)
        work();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return taken.count() / calls;
}

struct Pair {
    double ours = std::numeric_limits<double>::max();
    double theirs = std::numeric_limits<double>::max();
};

/// The least disturbed of `rounds` measurements of both, taken in turn so that a busy machine
/// disturbs both alike. Each measurement is a function that returns seconds.
template <class Ours, class Theirs>
Pair leastOf(int rounds, Ours ours, Theirs theirs) {
    Pair least;
    for (int round = 0; round < rounds; ++round) {
        least.ours = std::min(least.ours, ours());
        least.theirs = std::min(least.theirs, theirs());
    }
    return least;
}

inline double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

struct ProcessCost {
    double wall;
    double cpu;  ///< user plus system
};

/// Runs a program to its end, with its output discarded. Ends this process when it fails. Spawned,
/// not forked: the copy of this process's pages would be counted as the program's cost.
inline ProcessCost run(std::vector<std::string> command) {
    std::vector<char*> arguments;
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = -1;
    const bool spawned =
        ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    ::posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    if (spawned) ::wait4(child, &status, 0, &usage);
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    if (!spawned || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "%s failed\n", command[0].c_str());
        ::_exit(2);
    }
    return {wall.count(), secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime)};
}

struct Latency {
    double median, percentile99;
};

inline Latency latencyOf(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 2], samples[samples.size() * 99 / 100]};
}

/// Bytes that are allocated now.
inline double allocatedBytes() {
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// Prints figures, each as a row of the table that scripts/bench makes of all programs' rows (what,
/// beside what, measured, bound, verdict; a tab between them), and remembers whether one was above
/// its bound.
class Report {
 public:
    /// Ours in times of theirs.
    void ratio(const char* what, const char* beside, const Pair& pair, double bound) {
        row(what, beside, timesOf(pair), pair.ours / pair.theirs, bound);
    }
    static void ratio(const char* what, const char* beside, const Pair& pair) {
        row(what, beside, timesOf(pair));
    }
    void value(const char* what, double value, const char* unit, double bound) {
        row(what, "", printed("%.3f %s", value, unit), value, bound);
    }
    /// What has no bound.
    static void value(const char* what, double value, const char* unit) {
        row(what, "", printed("%.3f %s", value, unit));
    }
    /// Median and 99th percentile, in microseconds.
    static void latency(const char* what, const Latency& ours, const char* beside,
                        const Latency& theirs) {
        row(what, printed("%s: %.0f and %.0f us", beside, theirs.median, theirs.percentile99),
            printed("%.0f and %.0f us", ours.median, ours.percentile99));
    }
    int exitStatus() const { return failed_ ? 1 : 0; }

 private:
    static std::string timesOf(const Pair& pair) {
        return printed("%.3f (%.3f of %.3f us)", pair.ours / pair.theirs, pair.ours * 1e6,
                       pair.theirs * 1e6);
    }
    __attribute__((format(printf, 1, 2))) static std::string printed(const char* format, ...) {
        std::array<char, 160> text{};
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text.data(), text.size(), format, arguments);
        va_end(arguments);
        return text.data();
    }
    void row(const char* what, const char* beside, const std::string& measured, double value,
             double bound) {
        const bool met = value <= bound;
        failed_ = failed_ || !met;
        row(what, beside, measured, printed("%g", bound), met ? "met" : "ABOVE");
    }
    static void row(const char* what, const std::string& beside, const std::string& measured,
                    const std::string& bound = "", const char* verdict = "") {
        std::printf("%-46s\t%-32s\t%-28s\t%8s\t%s\n", what, beside.c_str(), measured.c_str(),
                    bound.c_str(), verdict);
        std::fflush(stdout);
    }
    bool failed_ = false;
};

}  // namespace bench
