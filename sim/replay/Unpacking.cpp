#include "sim/replay/Unpacking.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "sim/replay/Memory.h"
#include "sim/replay/TarArchive.h"
#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t mostBytes = 256U << 20U;
constexpr int knownVersion = 1;
constexpr std::string_view manifestName = "manifest.json";

/// Where members may go to: by what they begin with, and what stands for that in the private root.
/// Anything else is no part of a capture.
struct Destination {
    std::string_view member;
    std::string_view path;  ///< empty: not unpacked
    bool hasLinks = false;
};
constexpr std::array destinations = {
    Destination{"root/sys/", "sys/", true},
    Destination{"root/etc/config/orn/tav/", "etc/config/orn/tav/"},
    Destination{"root/opt/orn/tav/data/", "opt/orn/tav/data/"},
    Destination{"root/var/log/vmksummary.log", "var/log/vmksummary.log"},
    Destination{"recorded/", "run/sim/recorded/"},
    Destination{"logs/", ""},
    Destination{manifestName, "run/sim/recorded/manifest.json"},
};

const Destination& destinationOf(const TarMember& member) {
    const auto* const found =
        std::find_if(destinations.begin(), destinations.end(), [&](const Destination& candidate) {
            const bool isDirectory = candidate.member.ends_with('/');
            const std::string path = member.path + (isDirectory ? "/" : "");
            return isDirectory ? path.starts_with(candidate.member) : path == candidate.member;
        });
    const bool isRefused =
        found == destinations.end() || (member.kind == TarMember::Kind::Link && !found->hasLinks);
    if (isRefused) throw std::runtime_error("a member that no capture has");
    return *found;
}

void requireManifest(const std::vector<TarMember>& members) {
    if (members.empty() || members.front().path != manifestName)
        throw std::runtime_error("it is no capture of a host: it does not begin with a manifest");
    std::string fault;
    const auto manifest = parseJson(members.front().content, fault);
    if (!manifest || textOf(*manifest, "format") != "tav-capture")
        throw std::runtime_error("it is no capture of a host: its manifest says something else");
    const std::string version = textOf(*manifest, "version");
    if (version != std::to_string(knownVersion)) {
        throw std::runtime_error(
            "it is a capture of version " + shown(member(*manifest, "version")) +
            "; this is the simulation of version " + std::to_string(knownVersion));
    }
}

void write(const TarMember& member, const fs::path& path) {
    fs::create_directories(member.kind == TarMember::Kind::Directory ? path : path.parent_path());
    const bool isUnreadable = member.kind == TarMember::Kind::File && member.mode == 0;
    if (member.kind == TarMember::Kind::Link) {
        fs::create_symlink(member.target, path);
    } else if (isUnreadable) {
        fs::create_symlink(path.filename(), path);  // which nobody can follow
    } else if (member.kind == TarMember::Kind::File) {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(member.content.data(), static_cast<std::streamsize>(member.content.size()));
        file.close();
        if (!file) throw std::runtime_error(path.string() + " cannot be written");
    }
}

}  // namespace

void unpackCapture(std::string_view compressed, const fs::path& root) {
    const std::string archive = inflated(compressed, mostBytes);
    const std::vector<TarMember> members = readTar(archive);
    requireManifest(members);
    for (const TarMember& member : members)
        destinationOf(member);
    for (const TarMember& member : members) {
        const Destination& destination = destinationOf(member);
        if (destination.path.empty()) continue;
        const std::size_t begin = std::min(destination.member.size(), member.path.size());
        const std::string below = std::string(destination.path) + member.path.substr(begin);
        write(member, root / std::string_view(below).substr(0, below.find_last_not_of('/') + 1));
    }
    makeMemory(root);
}

}  // namespace tav::sim
