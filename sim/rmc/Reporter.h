#pragma once

#include <chrono>
#include <fstream>
#include <map>
#include <string>

#include <json/json.h>

#include "sim/rmc/Controller.h"

namespace tav::sim {

/// Keeps the record and shows a person what arrives.
class Reporter {
 public:
    /// `recordPath` is created anew; empty: no record. Quiet: only violations are shown, on the
    /// standard error.
    Reporter(const std::string& recordPath, bool quiet);

    void report(const Outcome& outcome);
    void violation(const std::string& text);
    void unfinished(const std::string& command);

    /// What somebody else has to say: a line with these members, for the record alone.
    void note(const Json::Value& line);

    unsigned violations() const { return violations_; }

    /// Whether everything so far has reached the record.
    bool recordIsSound() const { return recordPath_.empty() || record_.good(); }

 private:
    static double elapsedSince(std::chrono::steady_clock::time_point begin);
    void progress(const FrameResult& frame);
    void show(const std::string& text);
    void keep(Json::Value line);

    const std::string recordPath_;
    const bool quiet_;
    const bool terminal_;
    std::ofstream record_;
    unsigned violations_ = 0;
    std::map<std::string, std::chrono::steady_clock::time_point> begun_;  ///< by command
    bool progressShown_ = false;
    std::chrono::steady_clock::time_point nextProgress_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace tav::sim
