#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <sys/types.h>

#include "base/FileDescriptor.h"

namespace tav {

/// The file that a log's lines are appended to. Only a regular file is ever written to, and nothing
/// that stands in its place makes anybody wait. Used under the log lock.
class LogFile {
 public:
    explicit LogFile(std::string path) : path_(std::move(path)) {}

    const std::string& path() const { return path_; }
    bool isOpen() const { return descriptor_.isOpen(); }

    /// Opens the file, made when missing. False: errno tells why (EINVAL: it is no regular file).
    bool open();

    /// Appends `line`, which ends with a newline. What finds no room on a full disk is lost; the
    /// next line begins at the left all the same. Nothing happens while the file is not open.
    void append(std::string_view line);

    /// Whether the path does not name the open file any more: it was deleted, moved or replaced.
    bool isAstray() const;

    /// Opens what the path names now, made when missing, never through a link: the place may be a
    /// trap. False on failure: lines go where they went before.
    bool reopen();

    /// Puts a new, empty file in the place of this one and goes on there. The new file is made
    /// under a name that nobody can have foreseen, and grants nothing that the old one does not.
    /// False on failure: all is as it was then.
    bool startAnew();

    /// Whether `file` is the very file that is open here.
    bool isSameFile(int file) const;

 private:
    bool adopt(FileDescriptor file);

    std::string path_;
    FileDescriptor descriptor_;
    bool torn_ = false;  ///< the file ends within a line
};

/// The rights that a new file may have in place of, or beside, the log that is open as `file`.
mode_t logModeLike(int file);

}  // namespace tav
