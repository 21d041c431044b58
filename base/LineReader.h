#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace tav {

/// One line of a text, without its newline.
struct Line {
    std::uint64_t position;  ///< of its first character in the text
    std::string_view text;   ///< stands until the next line is read
    bool whole;              ///< false: `text` is only the beginning of a line too long for us
};

/// Splits a text into lines while it is read piece by piece, so that it never stands in memory as a
/// whole. `Read(room, position)` reads at most room.size() bytes from `position` of the text on and
/// returns how many it read, 0 at the end.
template <class Read>
class LineReader {
 public:
    /// Begins at `position`. A line of fewer than `bufferSize` characters is read whole.
    LineReader(Read read, std::uint64_t position, std::size_t bufferSize)
        : read_(std::move(read)), nextRead_(position), buffer_(bufferSize) {}

    std::optional<Line> next() {
        while (true) {
            const std::string_view held(buffer_.data() + begin_, end_ - begin_);
            const std::size_t length = held.find('\n');
            if (length != std::string_view::npos) {
                const auto line = take(length, true);
                ++begin_;
                if (!std::exchange(skipping_, false)) return line;
            } else if (skipping_ && !held.empty()) {
                begin_ = end_;
            } else if (held.size() == buffer_.size()) {
                skipping_ = true;
                return take(length, false);
            } else if (!refill()) {
                if (held.empty()) return std::nullopt;
                return take(length, true);
            }
        }
    }

 private:
    Line take(std::size_t length, bool whole) {
        const std::string_view held(buffer_.data() + begin_, end_ - begin_);
        const Line line{nextRead_ - held.size(), held.substr(0, length), whole};
        begin_ += line.text.size();
        return line;
    }

    bool refill() {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= std::exchange(begin_, 0);
        const std::size_t count = read_(std::span(buffer_).subspan(end_), nextRead_);
        end_ += count;
        nextRead_ += count;
        return count > 0;
    }

    Read read_;
    std::uint64_t nextRead_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool skipping_ = false;
};

}  // namespace tav
