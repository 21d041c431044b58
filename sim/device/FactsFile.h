#pragma once

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "sim/Clock.h"
#include "sim/device/DiskModel.h"

namespace tav::sim {

/// The file that says what a simulated disk is. It is read anew for every open and command, so that
/// a disk can change at any moment; one that is not there is a disk that is not there.
class FactsFile {
 public:
    explicit FactsFile(std::string path) : path_(std::move(path)) {}

    DiskFacts read() const {
        std::ifstream file(path_);
        if (!file) return DiskFacts("present=no");
        return DiskFacts(std::string(std::istreambuf_iterator<char>(file), {}));
    }

    /// A disk whose facts say so lets nobody go on, whatever time-out was asked for.
    void waitWhileHanging(std::string_view where) const {
        while (read().text("hang") == where)
            std::this_thread::sleep_for(recheck);
    }

    /// False when the disk has not answered within `patience`, or what it says of itself. One that
    /// has been unplugged answers.
    bool waitUntilItAnswers(std::chrono::milliseconds patience) const {
        DiskFacts disk = read();
        const auto deadline =
            std::chrono::steady_clock::now() +
            realTime(std::chrono::milliseconds(disk.number("patience", patience.count())));
        while (disk.isPresent() && !disk.answers()) {
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(recheck);
            disk = read();
        }
        return true;
    }

 private:
    static constexpr std::chrono::milliseconds recheck{2};

    std::string path_;
};

}  // namespace tav::sim
