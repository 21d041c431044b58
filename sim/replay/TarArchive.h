#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tav::sim {

/// A file, directory or link of a tar archive.
struct TarMember {
    enum class Kind { File, Directory, Link };
    Kind kind = Kind::File;
    std::string path;    ///< relative, without "." and "..", and no empty part
    std::string target;  ///< of a link
    unsigned mode = 0;
    std::string_view content;  ///< of a file; stands in the archive
};

/// Takes a whole archive apart that may come from anybody. Throws std::runtime_error, which says
/// what is wrong: one that is cut short, a path that leads outside or through a link, a path that
/// comes twice, a link whose target is absolute or leads out of the top directory that the link is
/// in, any other kind of member, more than `mostMembers` of them.
std::vector<TarMember> readTar(std::string_view archive);
inline constexpr std::size_t mostMembers = 200000;

/// What a gzip file holds. Throws std::runtime_error when it is cut short, is none, or holds more
/// than `limit` bytes.
std::string inflated(std::string_view compressed, std::size_t limit);

}  // namespace tav::sim
