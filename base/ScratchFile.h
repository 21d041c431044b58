#pragma once

#include <string>

#include "base/FileDescriptor.h"

namespace tav {

/// A short-lived file at a fixed path that a host command appends to and we read back.
///
/// What stands at the path is removed and the file made anew, for its owner alone and never through
/// a link, so that neither a stale file nor a planted one is ever read. While another thread or
/// process of the same user has the same scratch file in use, construction waits for it. The file
/// is removed on every path.
class ScratchFile {
 public:
    explicit ScratchFile(const char* path);
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile();

    /// Whether the file could be made; errno told why not.
    bool isOpen() const { return file_.isOpen(); }

    /// The first `limit` bytes of what has been written so far. Empty when it cannot be read.
    std::string read(std::size_t limit) const;

 private:
    const char* path_;
    FileDescriptor file_;
};

}  // namespace tav
