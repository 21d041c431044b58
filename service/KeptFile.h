#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

namespace tavd {

/// A file that others read while it is kept up to date: replaced as a whole, so that nobody sees
/// half of it. It takes the place of a file or link, and of nothing else. What cannot be written is
/// let go, and the log says why, once.
class KeptFile {
 public:
    KeptFile(std::string path, mode_t mode) : path_(std::move(path)), mode_(mode) {}

    /// Follows no link and waits for no disk (what is lost in a crash is of no use after it).
    void replace(std::string_view text);

 private:
    bool put(std::string_view text) const;

    std::string path_;
    mode_t mode_;
    int told_ = 0;  ///< the errno that the log knows of; 0 while all is well
};

}  // namespace tavd
