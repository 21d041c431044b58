#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace tav::capture {

/// The bytes of a tar archive (POSIX ustar, with extended headers where a name is long),
/// compressed.
class Archive {
 public:
    explicit Archive(std::time_t moment) : moment_(moment) {}

    void addFile(const std::string& path, std::string_view content, unsigned mode = 0644);
    void addDirectory(const std::string& path);
    void addLink(const std::string& path, const std::string& target);

    /// The finished archive; none without memory for it.
    std::optional<std::string> compressed();

 private:
    void addMember(const std::string& path, char type, unsigned mode, const std::string& target,
                   std::string_view content);
    void addHeader(std::string_view path, char type, unsigned mode, std::string_view target,
                   std::size_t size);
    void addContent(std::string_view content);

    std::time_t moment_;
    std::string bytes_;
};

}  // namespace tav::capture
