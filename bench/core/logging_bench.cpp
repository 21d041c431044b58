// What a log line costs: suppressed, beside nothing; written, beside one write() of the same bytes;
// from four threads at once, beside one. Run it in a private root (scripts/bench does).

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "bench/Measure.h"
#include "core/Log.h"
#include "core/Logger.h"

namespace {

constexpr int rounds = 40;
constexpr int linesPerRound = 5000;
constexpr int suppressedPerRound = 2'000'000;
constexpr int threads = 4;
constexpr const char* logPath = "/var/log/tav/bench.log";
constexpr const char* message = "RM 1 not ready with inventory, and some more words to say so";

constexpr tav::ModuleLog logger{"BENCH"};

void configure() {
    std::filesystem::create_directories("/etc/config/orn/tav");
    std::ofstream("/etc/config/orn/tav/tav.conf")
        << R"({"LoggingLevel": "Info", "TAVLogLocation": ")" << logPath << "\"}";
}

void writeLines(int count) {
    for (int line = 0; line < count; ++line) {
        logger.info(tav::at(271), "%s", message);
    }
}

double secondsPerLineOfThreads(int count) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> writers;
    for (int thread = 0; thread < count; ++thread) {
        writers.emplace_back(writeLines, linesPerRound / count);
    }
    for (std::thread& writer : writers)
        writer.join();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return taken.count() / linesPerRound;
}

}  // namespace

int main() {
    configure();
    bench::Report report;
    CPlusPlusLogging::Logger::loggerInit();

    double suppressed = 1;
    for (int round = 0; round < rounds; ++round) {
        suppressed = std::min(suppressed, bench::secondsPerCall(suppressedPerRound, [] {
                                  logger.debug(tav::at(1), "%s %d", message, 1);
                              }));
    }
    report.value("a suppressed call", suppressed * 1e9, "ns", 5);

    writeLines(1);
    std::string line;
    std::getline(std::ifstream(logPath), line);
    line += '\n';
    const int file = ::open("/var/log/tav/floor.log", O_WRONLY | O_APPEND | O_CREAT, 0600);
    const auto writeFloor = [&] {
        if (::write(file, line.data(), line.size()) < 0) std::perror("write");
    };
    report.ratio(
        "a written line", "one write of the same bytes",
        bench::leastOf(
            rounds, [] { return bench::secondsPerCall(linesPerRound, [] { writeLines(1); }); },
            [&] { return bench::secondsPerCall(linesPerRound, writeFloor); }),
        1.3);
    report.ratio("a line of four threads", "a line of one thread",
                 bench::leastOf(
                     rounds, [] { return secondsPerLineOfThreads(threads); },
                     [] { return secondsPerLineOfThreads(1); }),
                 1.2);
    return report.exitStatus();
}
