#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "base/Export.h"

namespace tav {

/// Somebody has been asked and does not answer, for as long as this lives: for those who show what
/// hangs. Any thread; made and ended by whoever waits for the answer.
class TAV_API Unanswered {
 public:
    struct Entry {
        std::string who;    ///< for example "disk 7:0:3:0"
        std::string what;   ///< it was asked for
        std::time_t since;  ///< when it was found to be silent, since the epoch
    };

    Unanswered(std::string who, std::string what);
    Unanswered(const Unanswered&) = delete;
    Unanswered& operator=(const Unanswered&) = delete;
    ~Unanswered();

    /// All there are, the longest first.
    static std::vector<Entry> all();

 private:
    const Entry entry_;
};

}  // namespace tav
