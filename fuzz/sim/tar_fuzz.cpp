#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "sim/replay/Conversation.h"
#include "sim/replay/TarArchive.h"

namespace {

constexpr std::size_t block = 512;

/// Makes the checksums of what could be headers right, or nothing else would ever be looked at.
std::string withChecksums(std::string archive) {
    for (std::size_t at = 0; at + block <= archive.size(); at += block) {
        if (archive.compare(at + 257, 5, "ustar") != 0) continue;
        archive.replace(at + 148, 8, "        ");
        unsigned sum = 0;
        for (std::size_t i = at; i < at + block; ++i)
            sum += static_cast<unsigned char>(archive[i]);
        std::array<char, 8> digits{};
        std::snprintf(digits.data(), digits.size(), "%06o", sum);
        archive.replace(at + 148, 7, digits.data(), 7);
    }
    return archive;
}

/// Wherever a link of the archive stands and leads, it is below the archive's top.
void requireInside(const std::filesystem::path& path) {
    const std::string begin = *path.lexically_normal().begin();
    if (path.is_absolute() || begin == ".." || begin == ".") std::abort();
}

void readArchive(const std::string& archive) {
    for (const tav::sim::TarMember& member : tav::sim::readTar(archive)) {
        requireInside(member.path);
        const auto above = std::filesystem::path(member.path).parent_path();
        if (member.kind == tav::sim::TarMember::Kind::Link) requireInside(above / member.target);
    }
}

void readPlain(const std::string& bytes) try {
    readArchive(withChecksums(bytes));
} catch (const std::runtime_error&) {
}

/// What does not begin as a compressed file is refused at its second byte, after much memory has
/// been asked for: a few of these are enough.
void readCompressed(const std::string& bytes) try {
    readArchive(withChecksums(tav::sim::inflated(bytes, 1U << 20U)));
} catch (const std::runtime_error&) {
}

}  // namespace

/// An archive is any bytes, compressed or not; and so is what a device is recorded to have
/// answered.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    readPlain(bytes);
    if (bytes.starts_with("\x1f\x8b") || size % 64 == 1) readCompressed(bytes);
    const tav::sim::RecordedConversation conversation(bytes);
    if (const auto* const answer = conversation.find("scsi", {data, size % 16})) {
        if (answer->bytes("data").size() > size || answer->hangs()) return 0;
    }
    return 0;
}
