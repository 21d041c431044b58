#include "tools/capture/Archive.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <numeric>

#include <zlib.h>

namespace tav::capture {
namespace {

constexpr std::size_t blockSize = 512;

/// Fields of a header block (POSIX.1, pax, "ustar Interchange Format").
struct Field {
    std::size_t offset, size;
};
constexpr Field name{0, 100}, fileMode{100, 8}, userId{108, 8}, groupId{116, 8}, fileSize{124, 12},
    changed{136, 12}, checksum{148, 8}, kind{156, 1}, linkName{157, 100}, magic{257, 8};

using Block = std::array<char, blockSize>;

void put(Block& block, const Field& field, std::string_view text) {
    text.copy(block.data() + field.offset, std::min(field.size, text.size()));
}

/// In octal digits, with a NUL behind them.
void putNumber(Block& block, const Field& field, unsigned long long value) {
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "%0*llo", static_cast<int>(field.size - 1), value);
    put(block, field, text.data());
}

/// "LENGTH key=value\n", where the length counts itself.
std::string extendedRecord(std::string_view key, std::string_view value) {
    const std::size_t bare = key.size() + value.size() + 3;
    std::size_t length = bare;
    while (std::to_string(length).size() + bare != length)
        length = bare + std::to_string(length).size();
    return std::to_string(length).append(" ").append(key).append("=").append(value).append("\n");
}

}  // namespace

void Archive::addHeader(std::string_view path, char type, unsigned mode, std::string_view target,
                        std::size_t size) {
    Block block{};
    put(block, name, path);
    putNumber(block, fileMode, mode);
    putNumber(block, userId, 0);
    putNumber(block, groupId, 0);
    putNumber(block, fileSize, size);
    putNumber(block, changed, static_cast<unsigned long long>(moment_));
    put(block, checksum, "        ");
    put(block, kind, {&type, 1});
    put(block, linkName, target);
    put(block, magic, std::string_view("ustar\00000", 8));
    const unsigned sum = std::accumulate(
        block.begin(), block.end(), 0U,
        [](unsigned total, char byte) { return total + static_cast<unsigned char>(byte); });
    putNumber(block, {checksum.offset, checksum.size - 1}, sum);
    bytes_.append(block.data(), block.size());
}

void Archive::addContent(std::string_view content) {
    bytes_ += content;
    bytes_.append((blockSize - content.size() % blockSize) % blockSize, '\0');
}

void Archive::addMember(const std::string& path, char type, unsigned mode,
                        const std::string& target, std::string_view content) {
    std::string extended;
    if (path.size() > name.size) extended += extendedRecord("path", path);
    if (target.size() > linkName.size) extended += extendedRecord("linkpath", target);
    if (!extended.empty()) {
        addHeader("extended", 'x', 0644, "", extended.size());
        addContent(extended);
    }
    addHeader(path, type, mode, target, content.size());
    addContent(content);
}

void Archive::addFile(const std::string& path, std::string_view content, unsigned mode) {
    addMember(path, '0', mode, "", content);
}

void Archive::addDirectory(const std::string& path) {
    addMember(path + '/', '5', 0755, "", "");
}

void Archive::addLink(const std::string& path, const std::string& target) {
    addMember(path, '2', 0777, target, "");
}

std::optional<std::string> Archive::compressed() {
    constexpr int gzipFormat = 16 + MAX_WBITS;
    constexpr int quickly = 4;
    constexpr int memory = 8;
    bytes_.append(2 * blockSize, '\0');  // the end
    z_stream stream{};
    if (bytes_.size() > std::numeric_limits<uInt>::max() ||
        deflateInit2(&stream, quickly, Z_DEFLATED, gzipFormat, memory, Z_DEFAULT_STRATEGY) !=
            Z_OK) {
        return std::nullopt;
    }
    std::string result(deflateBound(&stream, static_cast<uLong>(bytes_.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(bytes_.data());
    stream.avail_in = static_cast<uInt>(bytes_.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    const bool isWhole = deflate(&stream, Z_FINISH) == Z_STREAM_END;
    result.resize(stream.total_out);
    deflateEnd(&stream);
    if (!isWhole) return std::nullopt;
    return result;
}

}  // namespace tav::capture
