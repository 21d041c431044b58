#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>

#include <sys/stat.h>

#include "base/FileDescriptor.h"

namespace tav {

/// The kind of a directory's entry as DT_... constant, where the listing does not tell.
inline unsigned char kindByStat(int directory, const char* name) {
    struct stat data;
    if (::fstatat(directory, name, &data, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
    return static_cast<unsigned char>(IFTODT(data.st_mode));
}

struct DirectoryEntry {
    std::string_view name;
    unsigned char kind;  ///< DT_... constant
    ino64_t inode;       ///< of a link its own
};

/// Calls `visit(entry)` for each entry of the freshly opened directory but "." and "..", in the
/// kernel's order. A directory that cannot be read has no entries.
template <class Visit>
void forEachEntry(const FileDescriptor& directory, Visit visit) {
    if (!directory.isOpen()) return;
    alignas(dirent64) std::array<char, 32768> buffer;
    while (true) {
        const ssize_t length = ::getdents64(directory.get(), buffer.data(), buffer.size());
        if (length <= 0) return;
        for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
            const auto* const entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
            at += entry->d_reclen;
            const std::string_view name = entry->d_name;
            if (name == "." || name == "..") continue;
            const unsigned char kind = entry->d_type != DT_UNKNOWN
                                           ? entry->d_type
                                           : kindByStat(directory.get(), entry->d_name);
            visit(DirectoryEntry{name, kind, entry->d_ino});
        }
    }
}

/// The same by path; `extraFlags` are further flags for open().
template <class Visit>
void forEachEntry(const char* path, int extraFlags, Visit visit) {
    forEachEntry(FileDescriptor(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | extraFlags)),
                 visit);
}

}  // namespace tav
