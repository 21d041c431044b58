#include "sim/replay/TarArchive.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <stdexcept>

#include <zlib.h>

namespace tav::sim {
namespace {

constexpr std::size_t blockSize = 512;
constexpr std::size_t longestPath = 1024;

/// Fields of a header block (POSIX.1, pax, "ustar Interchange Format").
struct Field {
    std::size_t offset, size;
};
constexpr Field name{0, 100}, fileMode{100, 8}, fileSize{124, 12}, checksum{148, 8},
    linkName{157, 100}, magic{257, 5}, namePrefix{345, 155};
constexpr std::size_t kindOffset = 156;

[[noreturn]] void refuse(const std::string& why) {
    throw std::runtime_error(why);
}

/// A name for people: without what could play with a terminal.
std::string shown(std::string_view text) {
    std::string plain(text.substr(0, 80));
    std::replace_if(
        plain.begin(), plain.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return '"' + plain + '"';
}

std::string_view fieldOf(std::string_view block, const Field& field) {
    const std::string_view bytes = block.substr(field.offset, field.size);
    return bytes.substr(0, bytes.find('\0'));
}

std::size_t numberOf(std::string_view block, const Field& field) {
    std::string_view digits = fieldOf(block, field);
    digits.remove_prefix(std::min(digits.find_first_not_of(' '), digits.size()));
    digits = digits.substr(0, digits.find(' '));
    std::size_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 8);
    if (error != std::errc() || end != digits.data() + digits.size())
        refuse("a header with a number that is none");
    return value;
}

void requireChecksum(std::string_view block) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < block.size(); ++i) {
        const bool isSum = i >= checksum.offset && i < checksum.offset + checksum.size;
        sum += static_cast<unsigned char>(isSum ? ' ' : block[i]);
    }
    if (fieldOf(block, magic) != "ustar" || numberOf(block, checksum) != sum)
        refuse("it is no tar archive, or damaged");
}

std::vector<std::string_view> partsOf(std::string_view path) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t slash = path.find('/');
        parts.push_back(path.substr(0, slash));
        if (slash == std::string_view::npos) return parts;
        path.remove_prefix(slash + 1);
    }
}

void requirePlainPath(const std::string& path) {
    const bool isLong = path.size() > longestPath || path.find('\0') != std::string::npos;
    const std::vector<std::string_view> parts = partsOf(path);
    const bool isPlain = std::none_of(parts.begin(), parts.end(), [](std::string_view part) {
        return part.empty() || part == "." || part == "..";
    });
    if (isLong || !isPlain) refuse("a member's path leads outside: " + shown(path));
}

/// A target is relative, climbs at most to the top directory that its link is in, and does so
/// first: what is above another link is not known.
void requireTargetInside(const TarMember& link) {
    auto depth = static_cast<std::ptrdiff_t>(partsOf(link.path).size()) - 1;
    const bool isOdd = link.target.empty() || link.target.starts_with('/') ||
                       link.target.size() > longestPath ||
                       link.target.find('\0') != std::string::npos;
    bool isInside = !isOdd;
    bool climbs = true;
    for (const std::string_view part : partsOf(link.target)) {
        const bool isUp = part == "..";
        isInside = isInside && (climbs || !isUp) && !part.empty() && part != ".";
        climbs = climbs && isUp;
        if (isUp) --depth;
        isInside = isInside && depth >= 1;
    }
    if (!isInside) refuse("the link " + shown(link.path) + " leads outside: " + shown(link.target));
}

/// No member is written through a link, and none twice.
class Places {
 public:
    void take(const TarMember& member) {
        for (std::size_t slash = member.path.find('/'); slash != std::string::npos;
             slash = member.path.find('/', slash + 1)) {
            const auto above = kinds_.find(member.path.substr(0, slash));
            if (above != kinds_.end() && above->second != TarMember::Kind::Directory)
                refuse("the path " + shown(member.path) + " leads through a link or a file");
            directories_.insert(member.path.substr(0, slash));
        }
        const bool isNew = kinds_.emplace(member.path, member.kind).second;
        const bool isTaken =
            member.kind != TarMember::Kind::Directory && directories_.contains(member.path);
        if (!isNew || isTaken) refuse("the path " + shown(member.path) + " comes twice");
    }

 private:
    std::map<std::string, TarMember::Kind> kinds_;
    std::set<std::string> directories_;  ///< that something lies in
};

/// Values of an extended header, "LENGTH key=value\n" after the other.
std::map<std::string, std::string> extendedValues(std::string_view records) {
    std::map<std::string, std::string> values;
    while (!records.empty()) {
        std::size_t length = 0;
        const char* const end = records.data() + records.size();
        const auto [rest, error] = std::from_chars(records.data(), end, length);
        const auto digits = static_cast<std::size_t>(rest - records.data());
        if (error != std::errc() || length < digits + 2 || length > records.size() ||
            records[digits] != ' ' || records[length - 1] != '\n') {
            refuse("an extended header that cannot be read");
        }
        const std::string_view record = records.substr(digits + 1, length - digits - 2);
        const std::size_t equals = record.find('=');
        if (equals == std::string_view::npos) refuse("an extended header without a value");
        values[std::string(record.substr(0, equals))] = record.substr(equals + 1);
        records.remove_prefix(length);
    }
    return values;
}

/// Goes through an archive block by block.
class TarReader {
 public:
    explicit TarReader(std::string_view archive) : rest_(archive) {}

    /// None at the archive's end.
    std::optional<TarMember> next() {
        std::map<std::string, std::string> extended;
        while (true) {
            const std::string_view block = take(blockSize);
            if (block.find_first_not_of('\0') == std::string_view::npos) {
                if (!extended.empty()) refuse("an extended header without a member");
                return std::nullopt;
            }
            requireChecksum(block);
            const std::size_t size = numberOf(block, fileSize);
            const std::string_view content = takeContent(size);
            if (block[kindOffset] != 'x') return memberOf(block, content, extended);
            extended = extendedValues(content);
        }
    }

 private:
    static TarMember memberOf(std::string_view block, std::string_view content,
                              const std::map<std::string, std::string>& extended) {
        const auto valueOr = [&](const char* key, std::string_view otherwise) {
            const auto found = extended.find(key);
            return found == extended.end() ? std::string(otherwise) : found->second;
        };
        const std::string prefix(fieldOf(block, namePrefix));
        const std::string plain(fieldOf(block, name));
        TarMember member;
        member.path = valueOr("path", prefix.empty() ? plain : prefix + '/' + plain);
        member.target = valueOr("linkpath", fieldOf(block, linkName));
        member.mode = static_cast<unsigned>(numberOf(block, fileMode)) & 0777U;
        member.kind = kindOf(block[kindOffset], member.path);
        if (member.kind == TarMember::Kind::File) member.content = content;
        if (member.kind == TarMember::Kind::Directory && member.path.ends_with('/'))
            member.path.pop_back();
        requirePlainPath(member.path);
        if (member.kind == TarMember::Kind::Link) requireTargetInside(member);
        return member;
    }

    static TarMember::Kind kindOf(char type, const std::string& path) {
        switch (type) {
            case '0':
                return TarMember::Kind::File;
            case '2':
                return TarMember::Kind::Link;
            case '5':
                return TarMember::Kind::Directory;
            default:
                refuse("a member that is no file, directory or symbolic link: " + shown(path));
        }
    }

    std::string_view take(std::size_t size) {
        if (rest_.size() < size) refuse("it is cut short");
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }

    std::string_view takeContent(std::size_t size) {
        if (size > rest_.size()) refuse("it is cut short");
        const std::string_view content = take(size);
        take((blockSize - size % blockSize) % blockSize);
        return content;
    }

    std::string_view rest_;
};

}  // namespace

std::vector<TarMember> readTar(std::string_view archive) {
    TarReader reader(archive);
    Places places;
    std::vector<TarMember> members;
    while (auto member = reader.next()) {
        if (members.size() == mostMembers) refuse("it has too many members");
        places.take(*member);
        members.push_back(*std::move(member));
    }
    return members;
}

std::string inflated(std::string_view compressed, std::size_t limit) {
    constexpr int gzipFormat = 16 + MAX_WBITS;
    constexpr std::size_t step = 1U << 18U;
    z_stream stream{};
    if (compressed.size() > std::numeric_limits<uInt>::max() ||
        inflateInit2(&stream, gzipFormat) != Z_OK) {
        refuse("it is too large");
    }
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    std::string content;
    int result = Z_OK;
    while (result == Z_OK && content.size() <= limit) {
        const std::size_t before = content.size();
        content.resize(before + step);
        stream.next_out = reinterpret_cast<Bytef*>(content.data() + before);
        stream.avail_out = step;
        result = inflate(&stream, Z_NO_FLUSH);
        content.resize(content.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    if (content.size() > limit) refuse("it holds too much");
    if (result == Z_BUF_ERROR) refuse("it is cut short");
    if (result != Z_STREAM_END) refuse("it is no gzip file, or damaged");
    return content;
}

}  // namespace tav::sim
